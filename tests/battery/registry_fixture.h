// Tests with a registry of their own.
#ifndef PERILINK_TESTS_BATTERY_REGISTRY_FIXTURE_H_
#define PERILINK_TESTS_BATTERY_REGISTRY_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "perilink_platform/world.h"
#include "platform/win32.h"

namespace perilink {

class RegistryTest : public ::testing::Test {
 protected:
  RegistryTest() {
    std::string folder = (std::filesystem::temp_directory_path() / "registryXXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) std::abort();
    folder_ = folder;
    platform::SetRegistryFolder(folder);
  }
  ~RegistryTest() override { std::filesystem::remove_all(folder_); }

  // The value of a device, as the registry holds it; empty when there is none.
  static std::wstring RawRecord(const wchar_t* name = L"BatteryValue_1a2b3c") {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\DeviceBatteryOptimize", 0, KEY_READ, &key))
      return {};
    wchar_t text[300] = {};
    DWORD bytes = sizeof(text);
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes))
      bytes = 0;
    RegCloseKey(key);
    return std::wstring(text, bytes / sizeof(wchar_t));
  }
  static void SetRawRecord(const std::wstring& text) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\DeviceBatteryOptimize", &key), 0);
    ASSERT_EQ(RegSetValueExW(key, L"BatteryValue_1a2b3c", 0, REG_SZ,
                             reinterpret_cast<const BYTE*>(text.data()),
                             static_cast<DWORD>(text.size() * sizeof(wchar_t))),
              0);
    RegCloseKey(key);
  }

  std::filesystem::path folder_;
};

}  // namespace perilink

#endif  // PERILINK_TESTS_BATTERY_REGISTRY_FIXTURE_H_
