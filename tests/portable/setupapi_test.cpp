// Enumeration of the present HID interfaces.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "perilink_platform/win32.h"
#include "support/scripted_device.h"

namespace perilink {
namespace {

using testing::ScriptedDevice;

constexpr DWORD kFlags = DIGCF_PRESENT | DIGCF_DEVICEINTERFACE;

GUID HidGuid() {
  GUID guid;
  HidD_GetHidGuid(&guid);
  return guid;
}

SP_DEVICE_INTERFACE_DATA Record() {
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  return data;
}

TEST(SetupApi, ListsASnapshotInOrder) {
  const GUID guid = HidGuid();
  ScriptedDevice first(L"\\\\?\\HID#First");
  std::optional<ScriptedDevice> second(std::in_place, L"\\\\?\\hid#second");
  const HDEVINFO set = SetupDiGetClassDevsW(&guid, nullptr, nullptr, kFlags);
  ASSERT_NE(set, INVALID_HANDLE_VALUE);
  second.reset();
  std::vector<std::wstring> paths;
  SP_DEVICE_INTERFACE_DATA data = Record();
  for (DWORD i = 0; SetupDiEnumDeviceInterfaces(set, nullptr, &guid, i, &data); ++i) {
    DWORD required = 0;
    EXPECT_FALSE(SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, &required, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    std::vector<DWORD> buffer(required / sizeof(DWORD) + 1);
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
    detail->cbSize = sizeof(*detail);
    EXPECT_FALSE(
        SetupDiGetDeviceInterfaceDetailW(set, &data, detail, required - 1, nullptr, nullptr));
    EXPECT_TRUE(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, required, nullptr, nullptr));
    paths.emplace_back(reinterpret_cast<const WCHAR*>(buffer.data() + 1));
  }
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(paths, (std::vector<std::wstring>{L"\\\\?\\HID#First", L"\\\\?\\hid#second"}));
  EXPECT_EQ(platform::OpenHandleCount(), 1u);
  EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
  EXPECT_FALSE(SetupDiEnumDeviceInterfaces(set, nullptr, &guid, 0, &data));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
}

TEST(SetupApi, RefusesWrongRecordsAndArguments) {
  const GUID guid = HidGuid();
  ScriptedDevice device;
  EXPECT_EQ(SetupDiGetClassDevsW(&guid, nullptr, nullptr, DIGCF_PRESENT), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_FLAGS);
  EXPECT_EQ(SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr, kFlags),
            INVALID_HANDLE_VALUE);
  const HDEVINFO set = SetupDiGetClassDevsW(&guid, nullptr, nullptr, kFlags);
  SP_DEVICE_INTERFACE_DATA data{};
  EXPECT_FALSE(SetupDiEnumDeviceInterfaces(set, nullptr, &guid, 0, &data));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_USER_BUFFER);
  data = Record();
  EXPECT_FALSE(SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);  // a record that nobody has filled
  ASSERT_TRUE(SetupDiEnumDeviceInterfaces(set, nullptr, &guid, 0, &data));
  DWORD buffer[256] = {sizeof(buffer)};  // the size of the whole, a common mistake
  EXPECT_FALSE(SetupDiGetDeviceInterfaceDetailW(
      set, &data, reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer), sizeof(buffer),
      nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_USER_BUFFER);
  SetupDiDestroyDeviceInfoList(set);
}

}  // namespace
}  // namespace perilink
