// Events, waits, threads and the clock, as every Windows has them.
#include <gtest/gtest.h>

#include "platform/handles.h"

namespace perilink {
namespace {

TEST(Events, ManualResetStaysSignalledAutoResetDoesNot) {
  for (const BOOL manual : {TRUE, FALSE}) {
    const UniqueEvent event(CreateEventW(nullptr, manual, TRUE, nullptr));
    EXPECT_EQ(WaitForSingleObject(event.Get(), INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), DWORD{manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT});
    EXPECT_TRUE(ResetEvent(event.Get()));
    EXPECT_EQ(WaitForSingleObject(event.Get(), 1), DWORD{WAIT_TIMEOUT});
    EXPECT_TRUE(SetEvent(event.Get()));
    EXPECT_EQ(WaitForSingleObject(event.Get(), 1), WAIT_OBJECT_0);
  }
}

TEST(Events, ClosedHandlesAreRefused) {
  const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ASSERT_TRUE(CloseHandle(event));
  for (const HANDLE handle : {event, HANDLE{}}) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(SetEvent(handle));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_FALSE(ResetEvent(handle));
    EXPECT_FALSE(CloseHandle(handle));
  }
}

struct Gate {
  UniqueEvent event{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  UniqueEvent released{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
};

DWORD WINAPI PassOnce(LPVOID parameter) {
  Gate& gate = *static_cast<Gate*>(parameter);
  WaitForSingleObject(gate.event.Get(), INFINITE);
  SetEvent(gate.released.Get());
  return 0;
}

TEST(Events, AnAutoResetEventReleasesOneWaiter) {
  Gate state;
  const UniqueEvent first(CreateThread(nullptr, 0, PassOnce, &state, 0, nullptr));
  const UniqueEvent second(CreateThread(nullptr, 0, PassOnce, &state, 0, nullptr));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(WaitForSingleObject(state.released.Get(), 30), DWORD{WAIT_TIMEOUT});
    SetEvent(state.event.Get());
    EXPECT_EQ(WaitForSingleObject(state.released.Get(), INFINITE), WAIT_OBJECT_0);
  }
  EXPECT_EQ(WaitForSingleObject(first.Get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(second.Get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(second.Get(), INFINITE), WAIT_OBJECT_0);  // stays ended
}

TEST(Clock, WaitsAndSleepsLastAsLongAsTheySay) {
  const UniqueEvent event = CreateManualResetEvent();
  const ULONGLONG start = GetTickCount64();
  EXPECT_EQ(WaitForSingleObject(event.Get(), 60), DWORD{WAIT_TIMEOUT});
  Sleep(60);
  // The tick count moves in steps of up to 16 ms on Windows.
  EXPECT_GE(GetTickCount64() - start, 100u);
}

TEST(Clock, PollingEnds) {
  const UniqueEvent event = CreateManualResetEvent();
  ULONGLONG start = GetTickCount64();
  while (GetTickCount64() - start < 40) {
  }
  start = GetTickCount64();
  while (GetTickCount64() - start < 40)
    Sleep(0);
  SYSTEMTIME time{};
  GetLocalTime(&time);
  EXPECT_GE(time.wYear, 2025);
  EXPECT_LE(time.wDayOfWeek, 6);
}

}  // namespace
}  // namespace perilink
