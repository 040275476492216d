// The registry's file: shared by processes, killed processes and damage.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "battery/registry_fixture.h"

namespace perilink::platform {
namespace {

namespace fs = std::filesystem;

class RegistryFile : public RegistryTest {
 protected:
  std::string Contents() const {
    std::ifstream file(file_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // In one go, as a writing process does.
  void Replace(const std::string& text) const {
    std::ofstream(folder_ / "test") << text;
    fs::rename(folder_ / "test", file_);
  }

  const fs::path file_ = folder_ / "registry.txt";
};

TEST_F(RegistryFile, DamageLosesNoMoreThanItsLine) {
  SetRawRecord(L"good");
  const std::string good = Contents();
  const struct {
    std::string text;
    std::wstring value;
  } cases[] = {
      {good + "value \"Other\" text \"cut", L"good"},
      {good + "value \"BatteryValue_1a2b3c\" text \"no end\nvalue \"BatteryValue_1a2b3c\" 1 "
              "0g\nvalue \"x\" 1 012\n?\n",
       L"good"},
      {good + "value \"BatteryValue_1a2b3c\" text \"\\x{zz}\"\nvalue \"BatteryValue_1a2b3c\" "
              "99999999999 00\n",
       L"good"},
      {good.substr(0, good.size() - 1), L""},
      {std::string(1000, '\0'), L""},
      {"perilink registry 1\nvalue \"BatteryValue_1a2b3c\" text \"of no key\"\nkey \"\\\\\n", L""},
  };
  for (const auto& [text, value] : cases) {
    Replace(text);
    EXPECT_EQ(RawRecord(), value) << text;
  }
  // What nobody understands is put aside, not overwritten.
  Replace("something else");
  SetRawRecord(L"new");
  EXPECT_EQ(RawRecord(), L"new");
  EXPECT_TRUE(fs::exists(folder_ / "registry.damaged"));
}

TEST_F(RegistryFile, AKilledWriterLeavesTheOldOrTheNew) {
  SetRawRecord(L"bbb");
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      for (size_t turn = 0;; ++turn)
        SetRawRecord(turn % 2 == 0 ? std::wstring(250, L'a') : L"bbb");
    }
    usleep(static_cast<useconds_t>(1000 + 700 * i));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const std::wstring value = RawRecord();
    EXPECT_TRUE(value == std::wstring(250, L'a') || value == L"bbb") << i;
  }
  SetRawRecord(L"alive");
  EXPECT_EQ(RawRecord(), L"alive");
}

}  // namespace
}  // namespace perilink::platform
