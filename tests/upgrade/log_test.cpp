// Log lines, and which of them reach the file.
#include <sys/stat.h>

#include "support/temporary_folder.h"
#include "upgrade/log.h"
#include "upgrade_rig.h"

namespace perilink::testing {
namespace {

class LogTest : public UpgradeTest {
 protected:
  LogTest() {
    std::filesystem::current_path(folder_.path());
    SetSaveLogFile(false);
    ResetUpgradeLog();
  }
  ~LogTest() override { std::filesystem::current_path("/"); }

  std::string RawFile() const { return folder_.Content("dll_log.txt"); }

  const TemporaryFolder folder_;
};

TEST_F(LogTest, FileHoldsEightBitText) {
  LogLine(L"before");
  UsbUpgrade_EnableSaveLogFile(2);
  LogLine(L"~\u00E4\u0101\u20AC \n\x1b[2J\u009bx", 7);
  UsbUpgrade_EnableSaveLogFile(0);
  LogLine(L"after");
  EXPECT_EQ(RawFile(), "~\xE4?? ??[2J?x7\r\n");
  EXPECT_EQ(RawLog(), (Lines{"before", "~\u00E4\u0101\u20AC \n\x1b[2J\u009bx7", "after"}));
}

// What stands where the file should be, made by somebody else.
TEST_F(LogTest, NothingButAPlainFileIsWritten) {
  UsbUpgrade_EnableSaveLogFile(1);
  ASSERT_EQ(mkfifo("dll_log.txt", 0600), 0);
  LogLine(L"not into a pipe, and nobody waits for its reader");
  std::filesystem::remove("dll_log.txt");
  std::filesystem::create_symlink("elsewhere", "dll_log.txt");
  LogLine(L"not through a link");
  EXPECT_FALSE(std::filesystem::exists("elsewhere"));
  std::filesystem::remove("dll_log.txt");
  LogLine(L"here");
  EXPECT_EQ(RawFile(), "here\r\n");
}

TEST_F(LogTest, KeepsTheLastLines) {
  for (int i = 0; i < PERILINK_LOG_LIMIT + 5; ++i)
    LogLine(L"line ", i);
  const Lines lines = RawLog();
  ASSERT_EQ(lines.size(), size_t{PERILINK_LOG_LIMIT});
  EXPECT_EQ(lines.front(), "line 5");
  EXPECT_EQ(lines.back(), "line " + std::to_string(PERILINK_LOG_LIMIT + 4));
}

// From its start, an upgrade's part of the file begins with a mark; earlier lines stay.
TEST_F(LogTest, SwitchedOnInTheMiddleOfAnUpgrade) {
  sim::Mouse mouse;
  mouse.PlugInBootMode();
  on_event = [](const Event& event) {
    if (event == Event{3, 17, 2, 0}) UsbUpgrade_EnableSaveLogFile(1);
  };
  ASSERT_TRUE(RunUpgrade(FileFor(mouse)));
  EXPECT_EQ(RawFile(), "Start DownloadFile\r\nAll Upgrade Success\r\n");
  EXPECT_FALSE(RunUpgrade(sim::Bytes(8192)));
  EXPECT_EQ(std::ranges::count(RawLog(), "valid:false"), 1);
  const std::regex time("time:\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\d{3}\r\n");
  EXPECT_EQ(std::regex_replace(RawFile(), time, "time:T\r\n"),
            "Start DownloadFile\r\nAll Upgrade Success\r\nlog reset\r\nFile check init\r\n"
            "Invalid header\r\nlogs UsbUpgradeFile\r\nlogs size = 2\r\ntime:T\r\n"
            "totalPacketCount:0\r\nicName:\r\nbootInputEndPoint:\r\nbootOutputEndPoint:\r\n"
            "normalInputEndPoint:\r\nnormalOutputEndPoint:\r\nsenserName:\r\nproductName:\r\n"
            "Upgrade Bin File Error,Upgrade return\r\n");
}

}  // namespace
}  // namespace perilink::testing
