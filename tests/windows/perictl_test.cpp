// perictl.exe as a person runs it, on a virtual mouse in Wine.
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <functional>
#include <string>

#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "sim/wine_device.h"
#include "support/temporary_folder.h"

namespace perilink {
namespace {

constexpr uint16_t kNewVersion = 0x0345;

class Perictl : public ::testing::Test {
 protected:
  Perictl() {
    FreeConsole();  // Wine gives a program without a terminal one that knows no Ctrl-C
    EXPECT_TRUE(AllocConsole());
    std::filesystem::current_path(folder_.path());
    mouse.Plug();
    EXPECT_TRUE(mouse.AwaitArrival());
  }
  ~Perictl() override { std::filesystem::current_path(perictl_.parent_path()); }

  struct Outcome {
    DWORD exit_code;
    std::string output;
  };
  static HANDLE OpenInherited(const wchar_t* name, DWORD disposition) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    return CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                       &inherited, disposition, 0, nullptr);
  }
  // Standard output and errors go to one place.
  HANDLE Start(const std::wstring& arguments, HANDLE output) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = output;
    PROCESS_INFORMATION process{};
    std::wstring line = L"\"" + perictl_.wstring() + L"\" " + arguments;
    EXPECT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                               &startup, &process));
    CloseHandle(process.hThread);
    return process.hProcess;
  }
  // Calls `meanwhile` with what has been printed so far;
  // when it returns true, the command is broken off with Ctrl-C, which this process then ignores.
  Outcome Run(const std::wstring& arguments,
              const std::function<bool(const std::string&)>& meanwhile = {}) {
    const HANDLE file = OpenInherited(L"output", CREATE_ALWAYS);
    const HANDLE process = Start(arguments, file);
    while (WaitForSingleObject(process, 20) == WAIT_TIMEOUT) {
      if (!meanwhile || !meanwhile(folder_.Content("output"))) continue;
      SetConsoleCtrlHandler(nullptr, TRUE);
      EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
      WaitForSingleObject(process, 60'000);
      TerminateProcess(process, 99);
    }
    Outcome outcome{};
    GetExitCodeProcess(process, &outcome.exit_code);
    CloseHandle(process);
    CloseHandle(file);
    outcome.output = folder_.Content("output");
    return outcome;
  }
  // Runs it, and holds it to its exit code and a part of what it tells. On a busy machine an answer
  // may come too late.
  void Expect(const std::wstring& arguments, DWORD exit_code, const std::string& told) {
    constexpr DWORD kNoAnswer = 5;
    Outcome outcome = Run(arguments);
    for (int tries = 0; tries < 4 && outcome.exit_code == kNoAnswer; ++tries)
      outcome = Run(arguments);
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.output;
    EXPECT_NE(outcome.output.find(told), std::string::npos) << outcome.output;
  }
  sim::WineDevice mouse;
  const testing::TemporaryFolder folder_;

 private:
  const std::filesystem::path perictl_ = std::filesystem::absolute("perictl.exe");
};

TEST_F(Perictl, TellsOfADevice) {
  Expect(L"list --interfaces", 0, "vid_1234&pid_abcd&mi_01&col05");
  Expect(L"info", 0, "1.02");
  Expect(L"battery", 0, "80 %, 4020 mV");
  Expect(L"info --json", 0, "\"version\": \"1.02\"");
  mouse.SetAsleep(true);
  Expect(L"battery", 4, "asleep");
  mouse.Unplug();
  Expect(L"info", 3, "is plugged in");
  Expect(L"info --vid 12", 2, "hexadecimal");
}

TEST_F(Perictl, SavesSetsAndLoadsAConfiguration) {
  Expect(L"config save Łódź.json", 0, "json");
  EXPECT_TRUE(std::filesystem::exists(L"Łódź.json"));
  Expect(L"macro set 2 --name Copy --events \"press:1:0600 release:1:0600\"", 0, "");
  Expect(L"macro show", 0, "Copy");
  Expect(L"config diff Łódź.json", 10, "macros[2]");
  Expect(L"config load Łódź.json", 0, "");
  Expect(L"config diff Łódź.json", 0, "no difference");
  Expect(L"config load nowhere.json", 8, "no such file");
}

// Whatever the system's code page has.
TEST_F(Perictl, TellsAConsoleOfNames) {
  const HANDLE console = OpenInherited(L"CONOUT$", OPEN_EXISTING);
  const HANDLE process = Start(L"upgrade inspect Łódź", console);
  WaitForSingleObject(process, 60'000);
  wchar_t text[400];
  DWORD count = 0;
  EXPECT_TRUE(ReadConsoleOutputCharacterW(console, text, 400, {0, 0}, &count));
  EXPECT_NE(std::wstring(text, count).find(L"Łódź"), std::wstring::npos);
  CloseHandle(process);
  CloseHandle(console);
}

TEST_F(Perictl, ReadsFiles) {
  Expect(L"model list", 0, "virtual-mouse.json");
  // A file of one byte more than its header: the digest is that of the letter a.
  std::string file(8193, '\0');
  file[8] = 1;  // payload length
  file[8192] = 'a';
  folder_.Store("digest", file);
  Expect(L"upgrade inspect digest", 11,
         "ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb");
}

TEST_F(Perictl, FollowsADeviceUntilItIsInterrupted) {
  bool sent = false;
  const Outcome outcome = Run(L"events --json", [&](const std::string& output) {
    if (!sent && output.find("battery") != output.npos) mouse.SendEvent(0x05), sent = true;
    return output.find("status") != output.npos;
  });
  EXPECT_EQ(outcome.exit_code, 0u) << outcome.output;
}

TEST_F(Perictl, UpgradesADeviceEvenWhenItIsInterrupted) {
  const sim::Bytes firmware = sim::MakeVirtualFirmware(kNewVersion, 4096);
  folder_.Store("upgrade", sim::UpgradeFileBuilder(sim::ImageFor(mouse, firmware)).Build());
  const Outcome outcome = Run(L"upgrade run upgrade", [](const std::string& output) {
    return output.find("boot mode") != output.npos;
  });
  EXPECT_EQ(outcome.exit_code, 0u) << outcome.output;
  const auto lock = mouse.Lock();
  EXPECT_EQ(mouse.firmware().options().version, kNewVersion);
}

}  // namespace
}  // namespace perilink
