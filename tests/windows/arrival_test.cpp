// The notice of USB devices by the real DLL: its hidden window, to which another thread sends what
// the system broadcasts.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "perilink/usb_changed.h"
#include "platform/win32.h"

namespace perilink {
namespace {

constexpr wchar_t kClass[] = L"usb hook msg window";
constexpr DWORD kVolume = 2;

// The calls so far: '+' an arrival, '-' a removal, in upper case 'A' and 'R' of the other callback.
std::string calls;
DWORD calling_thread = 0;

template <char arrival, char removal>
void PERILINK_CALL Callback(bool arrived) {
  calls += arrived ? arrival : removal;
  calling_thread = GetCurrentThreadId();
}
constexpr UsbChangedCallback kCallback = Callback<'+', '-'>;
constexpr UsbChangedCallback kOther = Callback<'A', 'R'>;

void Pump() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
}

// The next window of the notice after `previous` that is this process's own: other tests run on the
// same desktop.
HWND NoticeWindow(HWND previous = nullptr) {
  HWND window = previous;
  DWORD process = 0;
  do {
    window = FindWindowExW(nullptr, window, kClass, L"");
    process = 0;
    if (window != nullptr) GetWindowThreadProcessId(window, &process);
  } while (window != nullptr && process != GetCurrentProcessId());
  return window;
}

// Sends a broadcast about a device of this type from another thread while this one pumps, and holds
// the window's answer to the system's own.
void Broadcast(WPARAM event, DWORD device_type = DBT_DEVTYP_DEVICEINTERFACE) {
  DEV_BROADCAST_DEVICEINTERFACE_W broadcast{};
  broadcast.dbcc_size = sizeof broadcast;
  broadcast.dbcc_devicetype = device_type;
  const HWND window = NoticeWindow();
  EXPECT_NE(window, nullptr);
  LRESULT result = -1;
  std::atomic<bool> sent = false;
  std::thread sender([&] {
    result = SendMessageW(window, WM_DEVICECHANGE, event, reinterpret_cast<LPARAM>(&broadcast));
    sent = true;
  });
  while (!sent) {
    Pump();
    Sleep(1);
  }
  sender.join();
  EXPECT_EQ(result, DefWindowProcW(window, WM_DEVICECHANGE, event, 0));
}

TEST(Arrival, TheWindowIsHiddenAndOnlyOne) {
  EXPECT_EQ(NoticeWindow(), nullptr);
  StopUsbChanged();
  StartUsbChanged(nullptr, 0);
  const HWND window = NoticeWindow();
  ASSERT_NE(window, nullptr);
  EXPECT_FALSE(IsWindowVisible(window));
  EXPECT_EQ(GetWindowThreadProcessId(window, nullptr), GetCurrentThreadId());
  EXPECT_EQ(GetWindowLongPtrW(window, GWL_STYLE) & WS_OVERLAPPEDWINDOW, WS_OVERLAPPEDWINDOW);
  EXPECT_EQ(calls, "");

  StartUsbChanged(kCallback, 0);
  StartUsbChanged(kCallback, 0);
  EXPECT_EQ(calls, "++");
  EXPECT_EQ(NoticeWindow(window), nullptr);
}

TEST(Arrival, CallsBackForDeviceInterfacesOnly) {
  StartUsbChanged(kCallback, 0);
  const std::tuple<WPARAM, DWORD, const char*> rows[] = {
      {DBT_DEVICEREMOVECOMPLETE, DBT_DEVTYP_DEVICEINTERFACE, "-"},
      {DBT_DEVICEARRIVAL, DBT_DEVTYP_DEVICEINTERFACE, "+"},
      {DBT_DEVICEARRIVAL, kVolume, ""},
      {DBT_DEVICEREMOVECOMPLETE, kVolume, ""},
      {DBT_DEVICEQUERYREMOVE, DBT_DEVTYP_DEVICEINTERFACE, ""},
  };
  for (const auto& [event, device_type, expected] : rows) {
    calls.clear();
    calling_thread = 0;
    Broadcast(event, device_type);
    EXPECT_EQ(calls, expected) << event << " " << device_type;
    EXPECT_EQ(calling_thread, calls.empty() ? 0 : GetCurrentThreadId());
  }
  calls.clear();
  SendMessageW(NoticeWindow(), WM_DEVICECHANGE, DBT_DEVNODES_CHANGED, 0);
  EXPECT_EQ(calls, "");
}

TEST(Arrival, StopsAndStartsAgain) {
  StartUsbChanged(kCallback, 0);
  const HWND first = NoticeWindow();
  StopUsbChanged();
  EXPECT_TRUE(IsWindow(first));  // until its thread pumps
  StartUsbChanged(kOther, 200);
  Pump();
  EXPECT_FALSE(IsWindow(first));
  EXPECT_EQ(calls, "+A");
  const ULONGLONG sent = GetTickCount64();
  Broadcast(DBT_DEVICEARRIVAL);
  EXPECT_EQ(calls, "+AA");
  EXPECT_GE(GetTickCount64() - sent, 190u);
  StopUsbChanged();
  Pump();
  EXPECT_EQ(NoticeWindow(), nullptr);
}

}  // namespace
}  // namespace perilink
