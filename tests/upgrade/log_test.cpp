// Log lines, and which of them reach the file.
#include <filesystem>
#include <fstream>

#include "upgrade/log.h"
#include "upgrade/upgrade_file.h"
#include "upgrade_rig.h"

namespace perilink::testing {
namespace {

class LogTest : public UpgradeTest {
 protected:
  LogTest() {
    std::string folder = (std::filesystem::temp_directory_path() / "perilink_log_XXXXXX").string();
    EXPECT_NE(mkdtemp(folder.data()), nullptr);
    folder_ = folder;
    std::filesystem::current_path(folder_);
    SetSaveLogFile(false);
    ResetUpgradeLog();
  }
  ~LogTest() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder_);
  }

  static std::string RawFile() {
    std::ifstream file("dll_log.txt", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Each line must end in CR LF.
  static Lines FileLines() {
    Lines lines;
    std::string text = RawFile();
    for (size_t end; (end = text.find("\r\n")) != std::string::npos; text.erase(0, end + 2))
      lines.push_back(text.substr(0, end));
    EXPECT_EQ(text, "");
    return lines;
  }

 private:
  std::filesystem::path folder_;
};

TEST_F(LogTest, Timestamp) {
  const SYSTEMTIME time{2025, 1, 2, 7, 9, 3, 5, 7};
  EXPECT_EQ(FormatTimestamp(time), L"2025-01-07 09:03:05 007");
}

TEST_F(LogTest, HexLineShowsEightBytesAtMostAndSkipsTheFile) {
  SetSaveLogFile(true);
  LogHexLine(L"Received Data:", std::vector<uint8_t>(64, 0xAF));
  LogHexLine(L"short:", std::vector<uint8_t>{0, 0x1B});
  LogHexLine(L"none:", {});
  EXPECT_EQ(Log(),
            (Lines{"T:  Received Data:af af af af af af af af ", "T:  short:00 1b ", "T:  none:"}));
  EXPECT_FALSE(std::filesystem::exists("dll_log.txt"));
}

TEST_F(LogTest, FileHoldsEightBitText) {
  LogLine(L"before");
  EXPECT_FALSE(std::filesystem::exists("dll_log.txt"));
  UsbUpgrade_EnableSaveLogFile(2);
  LogLine(L"\u00E4\u0101\u20AC \nx");
  UsbUpgrade_EnableSaveLogFile(0);
  LogLine(L"after");
  EXPECT_EQ(RawFile(), "\xE4?? \r\nx\r\n");
  EXPECT_EQ(RawLog(), (Lines{"before", "\u00E4\u0101\u20AC \nx", "after"}));
}

TEST_F(LogTest, RecordGoesToBothStores) {
  SetSaveLogFile(true);
  UsbUpgradeFile record;
  record.total_packet_count = 12;
  record.file_id = L"hidden";
  record.ic_name = L"ic";
  record.boot_input_end_point = L"bi";
  record.boot_output_end_point = L"bo";
  record.normal_input_end_point = L"ni";
  record.normal_output_end_point = L"no";
  record.senser_name = L"s";
  record.product_name = L"p";
  LogLine(L"one");
  LogUpgradeFile(record);
  const Lines common = {"totalPacketCount:12",    "icName:ic",
                        "bootInputEndPoint:bi",   "bootOutputEndPoint:bo",
                        "normalInputEndPoint:ni", "normalOutputEndPoint:no",
                        "senserName:s",           "productName:p"};
  EXPECT_EQ(Log(), (Lines{"one", "T", "  UsbUpgradeFile", "isEnd:true", "valid:false"} + common));
  Lines file = FileLines();
  ASSERT_GE(file.size(), 4u);
  EXPECT_EQ(file[3].substr(0, 5), "time:");
  EXPECT_TRUE(StartsWithTimestamp(file[3].substr(5)));
  file[3] = "time:";
  EXPECT_EQ(file, (Lines{"one", "logs UsbUpgradeFile", "logs size = 1", "time:"} + common));
}

TEST_F(LogTest, SwitchedOnInTheMiddleOfAnUpgrade) {
  sim::Mouse mouse;
  mouse.PlugInBootMode();
  on_event = [](const Event& event) {
    if (event == Event{3, 17, 2, 0}) UsbUpgrade_EnableSaveLogFile(1);
  };
  ASSERT_TRUE(RunUpgrade(FileFor(mouse)));
  EXPECT_EQ(FileLines(), (Lines{"Start DownloadFile", "All Upgrade Success"}));

  // From its start, an upgrade's file part begins with a mark; earlier lines stay.
  const sim::Bytes broken(8192);
  EXPECT_FALSE(RunUpgrade(broken));
  const Lines file = FileLines();
  ASSERT_GT(file.size(), 8u);
  EXPECT_EQ(Lines(file.begin() + 2, file.begin() + 7),
            (Lines{"log reset", "File check init", "Invalid header", "logs UsbUpgradeFile",
                   "logs size = 2"}));
  EXPECT_EQ(file.back(), "Upgrade Bin File Error,Upgrade return");
}

}  // namespace
}  // namespace perilink::testing
