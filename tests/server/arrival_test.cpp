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

struct Call {
  char callback;
  bool arrived;
  uint64_t at_ms;
  bool operator==(const Call&) const = default;
};
std::vector<Call> calls;

template <char name>
void PERILINK_CALL Callback(bool arrived) {
  calls.push_back({name, arrived, GetTickCount64()});
}

void Pump() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
}

void Broadcast(bool arrived) {
  platform::Bus().BroadcastUsbChange(L"\\\\?\\usb#vid_1234&pid_5678#1", arrived);
}

std::vector<std::pair<char, bool>> TakeCalls() {
  std::vector<std::pair<char, bool>> taken;
  for (const Call& call : std::exchange(calls, {}))
    taken.emplace_back(call.callback, call.arrived);
  return taken;
}
using Calls = std::vector<std::pair<char, bool>>;

TEST(Arrival, CallsBackOnEveryChangeOnceItsThreadPumps) {
  StartUsbChanged(Callback<'a'>, 0);
  EXPECT_EQ(TakeCalls(), (Calls{{'a', true}}));
  Broadcast(false);
  Broadcast(true);
  Sleep(1000);
  EXPECT_TRUE(calls.empty());
  Pump();
  EXPECT_EQ(TakeCalls(), (Calls{{'a', false}, {'a', true}}));
}

TEST(Arrival, DelaysBroadcastsOnly) {
  for (const int32_t delay_ms : {500, 0, -1}) {
    const uint64_t start_ms = GetTickCount64();
    StartUsbChanged(Callback<'a'>, delay_ms);
    Broadcast(false);
    Pump();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_LE(calls[0].at_ms - start_ms, 1u);
    EXPECT_NEAR(static_cast<double>(calls[1].at_ms - start_ms), delay_ms > 0 ? 500 : 0, 1);
    calls.clear();
  }
}

TEST(Arrival, CallbackReplacedDuringTheDelayCounts) {
  StartUsbChanged(Callback<'a'>, 500);
  for (const UsbChangedCallback replacement : {UsbChangedCallback{Callback<'b'>}, {}}) {
    Broadcast(false);
    calls.clear();
    platform::ScheduleIn(250 * 1000, [replacement] { SetUsbChangedCallBack(replacement, 0); });
    Pump();
    EXPECT_EQ(TakeCalls(), replacement == nullptr ? Calls{} : (Calls{{'b', false}}));
    SetUsbChangedCallBack(Callback<'a'>, 500);
  }
}

TEST(Arrival, NullCallbackCreatesTheWindowAllTheSame) {
  StartUsbChanged(nullptr, 500);
  ASSERT_NE(FindWindowW(kWindowClass, L""), nullptr);
  const uint64_t start_ms = GetTickCount64();
  Broadcast(true);
  Pump();
  EXPECT_LT(GetTickCount64() - start_ms, 500u);  // no delay for nobody
  SetUsbChangedCallBack(Callback<'b'>, 0);
  EXPECT_TRUE(calls.empty());
  Broadcast(true);
  Pump();
  EXPECT_EQ(TakeCalls(), (Calls{{'b', true}}));
}

TEST(Arrival, TwoStartsMakeOneWindow) {
  StartUsbChanged(Callback<'a'>, 0);
  StartUsbChanged(Callback<'b'>, 0);
  EXPECT_EQ(TakeCalls(), (Calls{{'a', true}, {'b', true}}));
  Broadcast(false);
  Pump();
  EXPECT_EQ(TakeCalls(), (Calls{{'b', false}}));
}

TEST(Arrival, StopsAndStartsAgain) {
  StopUsbChanged();
  StartUsbChanged(Callback<'a'>, 0);
  const HWND first = FindWindowW(kWindowClass, L"");
  StopUsbChanged();
  EXPECT_TRUE(IsWindow(first));  // until its thread pumps
  StopUsbChanged();
  StartUsbChanged(Callback<'b'>, 0);
  Pump();
  EXPECT_FALSE(IsWindow(first));
  EXPECT_NE(FindWindowW(kWindowClass, L""), nullptr);
  EXPECT_EQ(TakeCalls(), (Calls{{'a', true}, {'b', true}}));
  Broadcast(true);
  Pump();
  EXPECT_EQ(TakeCalls(), (Calls{{'b', true}}));

  StopUsbChanged();
  Pump();
  Broadcast(true);
  Pump();
  EXPECT_TRUE(calls.empty());
  EXPECT_EQ(FindWindowW(kWindowClass, nullptr), nullptr);
}

TEST(Arrival, OtherDeviceChangesCallNothing) {
  StartUsbChanged(Callback<'a'>, 0);
  calls.clear();
  const HWND window = FindWindowW(kWindowClass, L"");
  DEV_BROADCAST_HDR volume{sizeof(volume), 2, 0};
  DEV_BROADCAST_HDR device{sizeof(device), DBT_DEVTYP_DEVICEINTERFACE, 0};
  const auto send = [window](UINT message, WPARAM event, const void* broadcast) {
    return SendMessageW(window, message, event, reinterpret_cast<LPARAM>(broadcast));
  };
  EXPECT_EQ(send(WM_DEVICECHANGE, DBT_DEVICEARRIVAL, &volume), TRUE);
  EXPECT_EQ(send(WM_DEVICECHANGE, DBT_DEVICEARRIVAL, nullptr), TRUE);
  EXPECT_EQ(send(WM_DEVICECHANGE, 0x0007, nullptr), TRUE);
  EXPECT_EQ(send(WM_DEVICECHANGE, 0x8001, &device), TRUE);
  EXPECT_EQ(send(WM_USER, DBT_DEVICEARRIVAL, &device), 0);
  EXPECT_TRUE(calls.empty());
  EXPECT_EQ(send(WM_DEVICECHANGE, DBT_DEVICEREMOVECOMPLETE, &device), TRUE);
  EXPECT_EQ(TakeCalls(), (Calls{{'a', false}}));
}

TEST(Arrival, CallbacksMayStopAndStart) {
  StartUsbChanged(nullptr, 0);
  SetUsbChangedCallBack(
      [](bool arrived) {
        Callback<'r'>(arrived);
        StopUsbChanged();
        StartUsbChanged(Callback<'a'>, 0);
      },
      0);
  Broadcast(false);
  Pump();
  EXPECT_EQ(TakeCalls(), (Calls{{'r', false}, {'a', true}}));
  Broadcast(true);
  Pump();
  EXPECT_EQ(TakeCalls(), (Calls{{'a', true}}));
}

TEST(Arrival, WithoutAWindowOnlyTheFirstCallComes) {
  platform::ArmFault("CreateWindowExW", 1);
  StartUsbChanged(Callback<'a'>, 0);
  platform::DisarmFault();
  Broadcast(true);
  Pump();
  EXPECT_EQ(TakeCalls(), (Calls{{'a', true}}));
  StartUsbChanged(Callback<'a'>, 0);  // tries again
  Broadcast(false);
  Pump();
  EXPECT_EQ(TakeCalls(), (Calls{{'a', true}, {'a', false}}));
}

}  // namespace
}  // namespace perilink
