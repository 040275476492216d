// Events, waits, threads and the clock, as every Windows has them.
#include <gtest/gtest.h>

#include "platform/handles.h"

namespace perilink {
namespace {

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
  for (const HANDLE ended : {first.Get(), second.Get(), second.Get()})
    EXPECT_EQ(WaitForSingleObject(ended, INFINITE), WAIT_OBJECT_0);
}

TEST(Clock, WaitsAndSleepsLastAsLongAsTheySay) {
  const UniqueEvent event = CreateManualResetEvent();
  const ULONGLONG start = GetTickCount64();
  EXPECT_EQ(WaitForSingleObject(event.Get(), 60), DWORD{WAIT_TIMEOUT});
  Sleep(60);
  // The tick count moves in steps of up to 16 ms on Windows.
  EXPECT_GE(GetTickCount64() - start, 100u);
}

}  // namespace
}  // namespace perilink
