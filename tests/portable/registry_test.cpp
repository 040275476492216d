// The registry's file: shared by processes, killed processes and damage.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "perilink_platform/win32.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

namespace fs = std::filesystem;

class RegistryFile : public testing::Test {
 protected:
  void SetUp() override { SetRegistryFolder(folder_); }
  void TearDown() override { fs::remove_all(folder_); }

  std::string Contents() const {
    std::ifstream file(file_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // In one go, as a writing process does.
  void Replace(const std::string& text) const {
    std::ofstream(file_ + ".test") << text;
    fs::rename(file_ + ".test", file_);
  }

  static bool Set(const std::wstring& text) {
    HKEY key = nullptr;
    if (RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\Test", &key) != 0) return false;
    const auto* const data = reinterpret_cast<const BYTE*>(text.data());
    const auto size = static_cast<DWORD>(text.size() * sizeof(WCHAR));
    const LSTATUS status = RegSetValueExW(key, L"Value", 0, REG_SZ, data, size);
    RegCloseKey(key);
    return status == 0;
  }
  static std::wstring Get() {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Test", 0, KEY_READ, &key) != 0)
      return L"no key";
    WCHAR text[600];
    DWORD size = sizeof(text);
    const LSTATUS status =
        RegQueryValueExW(key, L"value", nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
    RegCloseKey(key);
    return status == 0 ? std::wstring(text, size / sizeof(WCHAR)) : L"no value";
  }

  const std::string folder_ =
      (fs::temp_directory_path() / ("perilink-registry-" + std::to_string(getpid()))).string();
  const std::string file_ = folder_ + "/registry.txt";
};

TEST_F(RegistryFile, DamageLosesNoMoreThanItsLine) {
  ASSERT_TRUE(Set(L"good"));
  const std::string good = Contents();
  const struct {
    std::string text;
    std::wstring value;
  } cases[] = {
      {good + "value \"Other\" text \"cut", L"good"},
      {good + "value \"Value\" text \"no end\nvalue \"Value\" 1 0g\nvalue \"x\" 1 012\n?\n",
       L"good"},
      {good + "value \"Value\" text \"\\x{zz}\"\nvalue \"Value\" 99999999999 00\n", L"good"},
      {good.substr(0, good.size() - 1), L"no value"},
      {std::string(1000, '\0'), L"no key"},
      {"perilink registry 1\nvalue \"Value\" text \"of no key\"\nkey \"\\\\\n", L"no key"},
  };
  for (const auto& [text, value] : cases) {
    Replace(text);
    EXPECT_EQ(Get(), value) << text;
  }
  // What nobody understands is put aside, not overwritten.
  Replace("something else");
  EXPECT_TRUE(Set(L"new"));
  EXPECT_EQ(Get(), L"new");
  EXPECT_TRUE(fs::exists(folder_ + "/registry.damaged"));
}

TEST_F(RegistryFile, AKilledWriterLeavesTheOldOrTheNew) {
  ASSERT_TRUE(Set(L"bbb"));
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      for (size_t turn = 0;; ++turn)
        Set(turn % 2 == 0 ? std::wstring(500, L'a') : L"bbb");
    }
    usleep(static_cast<useconds_t>(1000 + 700 * i));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const std::wstring value = Get();
    EXPECT_TRUE(value == std::wstring(500, L'a') || value == L"bbb") << i;
  }
  EXPECT_TRUE(Set(L"alive"));
  EXPECT_EQ(Get(), L"alive");
}

}  // namespace
}  // namespace perilink::platform
