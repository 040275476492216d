// Starts and stops of USB notices on several threads at once.
#include <gtest/gtest.h>

#include <barrier>
#include <thread>
#include <vector>

#include "arrival/arrival.h"
#include "perilink/usb_changed.h"
#include "platform/win32.h"

namespace perilink {
namespace {

// However many start at the same moment, they make one window: a single stop ends it.
TEST(ArrivalStress, ThreadsThatStartTogetherShareAWindow) {
  constexpr int kThreads = 3;
  constexpr int kRounds = 300;
  for (int round = 0; round < kRounds; ++round) {
    std::barrier together(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        together.arrive_and_wait();
        StartUsbChanged(nullptr, 0);
        together.arrive_and_wait();
        StopUsbChanged();
        together.arrive_and_wait();
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
          DispatchMessageW(&message);
        together.arrive_and_wait();
        EXPECT_EQ(FindWindowW(kNoticeClass, nullptr), nullptr);
        together.arrive_and_wait();
      });
    }
    for (std::thread& thread : threads)
      thread.join();
  }
}

}  // namespace
}  // namespace perilink
