#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "perilink/usb_changed.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "platform/win32.h"

namespace perilink {
namespace {

constexpr wchar_t kWindowClass[] = L"usb hook msg window";

using Calls = std::vector<std::pair<char, bool>>;
Calls calls;

template <char name>
void PERILINK_CALL Callback(bool arrived) {
  calls.emplace_back(name, arrived);
}

void Broadcast(bool arrived) {
  platform::Bus().BroadcastUsbChange(L"\\\\?\\usb#vid_1234&pid_5678#1", arrived);
}

// The calls so far, with those that pumping leads to.
Calls Pump() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
  return std::exchange(calls, {});
}

TEST(Arrival, CallsBackOnEveryChangeOnceItsThreadPumps) {
  StartUsbChanged(Callback<'a'>, 0);
  StartUsbChanged(Callback<'b'>, 0);  // the same window
  EXPECT_EQ(std::exchange(calls, {}), (Calls{{'a', true}, {'b', true}}));
  Broadcast(false);
  Broadcast(true);
  Sleep(1000);
  EXPECT_TRUE(calls.empty());
  EXPECT_EQ(Pump(), (Calls{{'b', false}, {'b', true}}));
}

// The callback that counts is the one at the end of the delay, and nobody is not waited for.
TEST(Arrival, DelaysBroadcastsOnly) {
  struct Row {
    UsbChangedCallback callback;
    UsbChangedCallback replacement;  // 250 ms later
    int32_t delay_ms;
    Calls seen;
    uint64_t took_ms;
  };
  const auto a = Callback<'a'>;
  const auto b = Callback<'b'>;
  for (const Row& row : {Row{a, a, 500, {{'a', false}}, 500}, Row{a, b, 500, {{'b', false}}, 500},
                         Row{a, nullptr, 500, {}, 500}, Row{nullptr, a, 500, {}, 0},
                         Row{a, b, -1, {{'a', false}}, 0}}) {
    uint64_t start_ms = GetTickCount64();
    StartUsbChanged(row.callback, row.delay_ms);
    EXPECT_EQ(std::exchange(calls, {}), row.callback == nullptr ? Calls{} : (Calls{{'a', true}}));
    Broadcast(false);
    platform::ScheduleIn(250 * 1000, [&row] { SetUsbChangedCallBack(row.replacement, 0); });
    EXPECT_EQ(Pump(), row.seen);
    EXPECT_NEAR(static_cast<double>(GetTickCount64() - start_ms), static_cast<double>(row.took_ms),
                1);
    Sleep(300);
  }
}

TEST(Arrival, StopsAndStartsAgain) {
  StopUsbChanged();
  StartUsbChanged(Callback<'a'>, 0);
  const HWND first = FindWindowW(kWindowClass, L"");
  StopUsbChanged();
  EXPECT_TRUE(IsWindow(first));  // until its thread pumps
  StartUsbChanged(Callback<'b'>, 0);
  EXPECT_EQ(Pump(), (Calls{{'a', true}, {'b', true}}));
  EXPECT_FALSE(IsWindow(first));
  // A callback may stop and start, too.
  SetUsbChangedCallBack(
      [](bool) {
        StopUsbChanged();
        StartUsbChanged(Callback<'c'>, 0);
      },
      0);
  Broadcast(false);
  EXPECT_EQ(Pump(), (Calls{{'c', true}}));
  Broadcast(false);
  EXPECT_EQ(Pump(), (Calls{{'c', false}}));
  StopUsbChanged();
  Pump();
  Broadcast(true);
  EXPECT_EQ(Pump(), Calls{});
  EXPECT_EQ(FindWindowW(kWindowClass, nullptr), nullptr);
}

TEST(Arrival, OtherMessagesCallNothing) {
  platform::ArmFault("CreateWindowExW", 1);
  StartUsbChanged(Callback<'a'>, 0);
  platform::DisarmFault();
  Broadcast(true);
  EXPECT_EQ(Pump(), (Calls{{'a', true}}));  // there is no window
  StartUsbChanged(Callback<'a'>, 0);        // tries again
  calls.clear();
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
  EXPECT_TRUE(calls.empty());
  EXPECT_EQ(send(WM_DEVICECHANGE, DBT_DEVICEREMOVECOMPLETE, &device), TRUE);
  EXPECT_EQ(calls, (Calls{{'a', false}}));
}

}  // namespace
}  // namespace perilink
