#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "perilink/usb_changed.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "platform/win32.h"

namespace perilink {
namespace {

constexpr wchar_t kWindowClass[] = L"usb hook msg window";

// The calls so far, by the callback's letter: upper case for an arrival, lower case for a removal.
std::string calls;

template <char arrival, char removal>
void PERILINK_CALL Callback(bool arrived) {
  calls += arrived ? arrival : removal;
}
constexpr UsbChangedCallback kA = Callback<'A', 'a'>;
constexpr UsbChangedCallback kB = Callback<'B', 'b'>;

void Broadcast(bool arrived) {
  platform::Bus().BroadcastUsbChange(L"\\\\?\\usb#vid_1234&pid_5678#1", arrived);
}

// The calls so far, with those that pumping leads to.
std::string Pump() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
  return std::exchange(calls, {});
}

// The callback that counts is the one at the end of the delay, and nobody is not waited for.
TEST(Arrival, DelaysBroadcastsOnly) {
  struct Row {
    UsbChangedCallback callback;
    UsbChangedCallback replacement;  // 250 ms later
    int32_t delay_ms;
    const char* calls;
    uint64_t took_ms;
  } constexpr kRows[] = {{kA, kA, 500, "Aa", 500},
                         {kA, kB, 500, "Ab", 500},
                         {kA, nullptr, 500, "A", 500},
                         {nullptr, kA, 500, "", 0},
                         {kA, kB, -1, "Aa", 0}};
  for (const Row& row : kRows) {
    const uint64_t start_ms = GetTickCount64();
    StartUsbChanged(row.callback, row.delay_ms);
    EXPECT_LE(GetTickCount64() - start_ms, 1u);
    Broadcast(false);
    platform::ScheduleIn(250 * 1000, [&row] { SetUsbChangedCallBack(row.replacement, 0); });
    EXPECT_EQ(Pump(), row.calls);
    const uint64_t took_ms = GetTickCount64() - start_ms;
    EXPECT_TRUE(took_ms >= row.took_ms && took_ms <= row.took_ms + 1) << took_ms;
    Sleep(300);
  }
}

TEST(Arrival, StopsAndStartsAgain) {
  StopUsbChanged();
  StartUsbChanged(kA, 0);
  const HWND first = FindWindowW(kWindowClass, L"");
  StopUsbChanged();
  EXPECT_TRUE(IsWindow(first));  // until its thread pumps
  StartUsbChanged(kB, 0);
  EXPECT_EQ(Pump(), "AB");
  EXPECT_FALSE(IsWindow(first));
  // A callback may stop and start, too.
  const auto restart = [](bool) {
    StopUsbChanged();
    StartUsbChanged(kA, 0);
  };
  SetUsbChangedCallBack(restart, 0);
  Broadcast(false);
  EXPECT_EQ(Pump(), "A");
  Broadcast(false);
  EXPECT_EQ(Pump(), "a");
  StopUsbChanged();
  Pump();
  Broadcast(true);
  EXPECT_EQ(Pump(), "");
  EXPECT_EQ(FindWindowW(kWindowClass, nullptr), nullptr);
}

// The window went with its thread, or was closed by somebody else: the next start has a new one.
TEST(Arrival, AWindowThatHasGoneIsMadeAnew) {
  const HANDLE thread = CreateThread(
      nullptr, 0, [](LPVOID) { return StartUsbChanged(kA, 0), DWORD{0}; }, nullptr, 0, nullptr);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  StartUsbChanged(kA, 0);
  Broadcast(true);
  EXPECT_EQ(Pump(), "AAA");
  DestroyWindow(FindWindowW(kWindowClass, nullptr));
  StopUsbChanged();  // nothing of ours is left to close
  StartUsbChanged(nullptr, 0);
  const HWND taken = FindWindowW(kWindowClass, nullptr);
  SetWindowLongPtrW(taken, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&DefWindowProcW));
  StopUsbChanged();  // the window is another's by now
  Pump();
  EXPECT_TRUE(IsWindow(taken));
  DestroyWindow(taken);
  StartUsbChanged(kA, 0);
  Broadcast(false);
  EXPECT_EQ(Pump(), "Aa");
}

TEST(Arrival, NothingIsThrownAndNothingCallsAfterAStop) {
  StartUsbChanged([](bool) { throw 1; }, 0);
  Broadcast(true);
  Pump();
  SetUsbChangedCallBack(kA, 0);
  Broadcast(true);
  StopUsbChanged();
  EXPECT_EQ(Pump(), "");
}

TEST(Arrival, OtherMessagesCallNothing) {
  platform::ArmFault("CreateWindowExW", 1);
  StartUsbChanged(kA, 0);
  platform::DisarmFault();
  Broadcast(true);
  EXPECT_EQ(Pump(), "A");  // there is no window
  StartUsbChanged(kA, 0);  // tries again
  Pump();
  const HWND window = FindWindowW(kWindowClass, L"");
  DEV_BROADCAST_HDR volume{sizeof(volume), 2, 0};
  DEV_BROADCAST_HDR device{sizeof(device), DBT_DEVTYP_DEVICEINTERFACE, 0};
  const auto send = [window](UINT message, WPARAM event, const void* broadcast) {
    return SendMessageW(window, message, event, reinterpret_cast<LPARAM>(broadcast));
  };
  EXPECT_EQ(send(WM_DEVICECHANGE, DBT_DEVICEARRIVAL, &volume), TRUE);
  EXPECT_EQ(send(WM_DEVICECHANGE, DBT_DEVICEARRIVAL, nullptr), TRUE);
  EXPECT_EQ(send(WM_DEVICECHANGE, 0x8001, &device), TRUE);
  EXPECT_EQ(send(WM_USER, DBT_DEVICEARRIVAL, &device), 0);
  EXPECT_EQ(calls, "");
  EXPECT_EQ(send(WM_DEVICECHANGE, DBT_DEVICEREMOVECOMPLETE, &device), TRUE);
  EXPECT_EQ(calls, "a");
}

}  // namespace
}  // namespace perilink
