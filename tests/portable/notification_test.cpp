// What windows hear of USB devices, and messages between threads that end.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "perilink_platform/hid_bus.h"
#include "perilink_platform/win32.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

std::vector<std::wstring>& Heard() {
  static std::vector<std::wstring> heard;
  return heard;
}

LRESULT Listen(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_DEVICECHANGE) {
    const auto& header = *reinterpret_cast<const DEV_BROADCAST_HDR*>(lparam);
    EXPECT_EQ(header.dbch_devicetype, DBT_DEVTYP_DEVICEINTERFACE);
    const auto& record = reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_W&>(header);
    EXPECT_TRUE(record.dbcc_classguid == GUID_DEVINTERFACE_USB_DEVICE);
    Sleep(10);  // the record must outlive what the window does meanwhile
    const auto* const name = reinterpret_cast<const char*>(&record) +
                             offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name);
    Heard().push_back((wparam == DBT_DEVICEARRIVAL ? L"+" : L"-") +
                      std::wstring(reinterpret_cast<const wchar_t*>(name)));
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

HWND CreateListener() {
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = Listen;
  window_class.lpszClassName = L"listener";
  RegisterClassW(&window_class);
  return CreateWindowExW(0, L"listener", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
}

HDEVNOTIFY Register(HWND window, const GUID& guid = GUID_DEVINTERFACE_USB_DEVICE, DWORD size = 32) {
  DEV_BROADCAST_DEVICEINTERFACE_W filter{};
  filter.dbcc_size = size;
  filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
  filter.dbcc_classguid = guid;
  return RegisterDeviceNotificationW(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
}

TEST(Notification, ReachesRegisteredWindowsWhenTheyPump) {
  const HWND window = CreateListener();
  const HWND unregistered = CreateListener();
  EXPECT_EQ(Register(window, GUID{}), nullptr);
  EXPECT_EQ(Register(window, GUID_DEVINTERFACE_USB_DEVICE, 28), nullptr);
  EXPECT_EQ(Register(nullptr), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
  ASSERT_NE(Register(window), nullptr);
  // From device code, whose lock must not be held when the window hears of it.
  ScheduleIn(1000, [] { Bus().BroadcastUsbChange(L"\\\\?\\usb#one", true); });
  ScheduleIn(2000, [] { Bus().BroadcastUsbChange(L"", false); });
  Sleep(5);
  EXPECT_TRUE(Heard().empty());
  MSG message;
  EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(Heard(), (std::vector<std::wstring>{L"+\\\\?\\usb#one", L"-"}));
  // A message loop that waits wakes for it.
  ScheduleIn(1000, [] { Bus().BroadcastUsbChange(L"two", true); });
  ScheduleIn(60'000, [window] { PostMessageW(window, WM_NULL, 0, 0); });
  EXPECT_TRUE(GetMessageW(&message, window, 0, 0));
  EXPECT_EQ(Heard().size(), 3u);
  DestroyWindow(window);
  Bus().BroadcastUsbChange(L"three", true);
  EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(Heard().size(), 3u);
  EXPECT_TRUE(DestroyWindow(unregistered));
}

DWORD OwnAWindowFor10Ms(void* window) {
  *static_cast<HWND*>(window) = CreateListener();
  Sleep(10);
  return 0;
}

TEST(Notification, TheWindowsOfAThreadEndWithIt) {
  HWND window = nullptr;
  const HANDLE thread = CreateThread(nullptr, 0, OwnAWindowFor10Ms, &window, 0, nullptr);
  Sleep(5);
  EXPECT_TRUE(IsWindow(window));
  SetLastError(0);
  EXPECT_EQ(SendMessageW(window, WM_USER, 1, 1), 0);  // never pumped
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
  WaitForSingleObject(thread, INFINITE);
  EXPECT_FALSE(IsWindow(window));
  CloseHandle(thread);
}

}  // namespace
}  // namespace perilink::platform
