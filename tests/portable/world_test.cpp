// The virtual world: what costs time, who runs when, and what stops it.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "perilink_platform/win32.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

HANDLE Start(LPTHREAD_START_ROUTINE start, void* parameter) {
  return CreateThread(nullptr, 0, start, parameter, 0, nullptr);
}

TEST(World, OnlyClockReadsAndZeroWaitsCostTime) {
  const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const auto cost = [](auto&& call) {
    const uint64_t before = NowMicros();
    call();
    return NowMicros() - before;
  };
  EXPECT_GT(cost([] { GetTickCount64(); }), 0u);
  EXPECT_GT(cost([] { Sleep(0); }), 0u);
  EXPECT_GT(cost([&] { WaitForSingleObject(event, 0); }), 0u);
  EXPECT_EQ(cost([&] { SetEvent(event); }), 0u);
  EXPECT_EQ(cost([&] { WaitForSingleObject(event, INFINITE); }), 0u);
  EXPECT_EQ(cost([] { Sleep(250); }), 250'000u);
  // A wait that ends at the same instant as the event that it waits for has seen it.
  ResetEvent(event);
  ScheduleIn(100'000, [event] { SetEvent(event); });
  EXPECT_EQ(WaitForSingleObject(event, 100), WAIT_OBJECT_0);
  CloseHandle(event);
}

// Letters of three threads, as they come.
std::string InterleavingOf(uint64_t seed) {
  StartVirtual(seed);
  static std::string letters;
  letters.clear();
  std::vector<HANDLE> threads;
  for (const uintptr_t letter : {uintptr_t{'a'}, uintptr_t{'b'}, uintptr_t{'c'}}) {
    const auto write = [](void* it) -> DWORD {
      for (int i = 0; i < 12; ++i) {
        letters += static_cast<char>(reinterpret_cast<uintptr_t>(it));
        Sleep(i % 3 == 0 ? 1 : 0);
      }
      return 0;
    };
    threads.push_back(Start(write, reinterpret_cast<void*>(letter)));
  }
  for (const HANDLE thread : threads)
    WaitForSingleObject(thread, INFINITE);
  return letters + std::to_string(NowMicros());
}

TEST(World, TheSeedDecidesTheOrder) {
  const std::string first = InterleavingOf(1);
  EXPECT_EQ(std::count(first.begin(), first.end(), 'b'), 12);
  EXPECT_EQ(first, InterleavingOf(1));
  EXPECT_NE(first, InterleavingOf(2));
}

TEST(WorldDeathTest, StopsWhenNothingCanWake) {
  // Threads don't survive the fork of a death test: the one that waits must be made in it.
  const auto die = [] {
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const auto wait = [](void* object) { return WaitForSingleObject(object, INFINITE); };
    wait(Start(wait, event));
  };
  EXPECT_DEATH(die(),
               "nothing can ever wake.*\n.*thread 1 .*waits for the end of thread 0x.*\n"
               ".*thread 2 .*waits for event 0x.* since 1000000.000 ms");
}

TEST(WorldDeathTest, StopsWhenDeviceCodeWaits) {
  const HANDLE set = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  const DeviceGuard guard;
  EXPECT_EQ(WaitForSingleObject(set, 0), WAIT_OBJECT_0);
  EXPECT_DEATH(WaitForSingleObject(set, 1), "device code must not wait, but waits for event");
  EXPECT_DEATH(Sleep(1), "device code must not wait, but waits for the end of a sleep");
}

}  // namespace
}  // namespace perilink::platform
