#include "platform/overlapped_read.h"

#include <gtest/gtest.h>

#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

const Report kReport = Closed({0x08, 0x0A, 1, 2, 3});

HANDLE OpenForReading(const ScriptedDevice& device) {
  return CreateFileW(device.Path().c_str(), GENERIC_READ | GENERIC_WRITE,
                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                     FILE_FLAG_OVERLAPPED, nullptr);
}

bool Holds(OverlappedRead& read, const Report& report) {
  return std::equal(report.begin(), report.end(), read.buffer().begin()) &&
         read.buffer()[report.size()] == 0;
}

TEST(OverlappedRead, OneReadAfterTheOther) {
  ScriptedDevice device;
  const UniqueFile file(OpenForReading(device));
  OverlappedRead read;
  read.Post(file.Get(), kReport.size());
  EXPECT_FALSE(read.Wait(10));
  device.Deliver(kReport, 5);
  EXPECT_TRUE(read.Wait(10));
  EXPECT_TRUE(Holds(read, kReport));
  // A new post clears the buffer and resets the event.
  read.Post(file.Get(), kReport.size());
  EXPECT_FALSE(read.Wait(0));
  EXPECT_TRUE(Holds(read, Report(kReport.size())));
  // A report that waits already completes the post at once.
  device.Deliver(kReport);
  device.Deliver(kReport);
  EXPECT_TRUE(read.Wait(0));
  read.Post(file.Get(), kReport.size());
  EXPECT_TRUE(read.Wait(0));
  EXPECT_TRUE(Holds(read, kReport));
}

TEST(OverlappedRead, PostsThatFailNeverSignal) {
  ScriptedDevice device;
  const UniqueFile file(OpenForReading(device));
  platform::ArmFault("CreateEventW", 1);
  OverlappedRead without_event;
  platform::DisarmFault();
  EXPECT_FALSE(without_event.has_event());
  without_event.Post(file.Get(), 17);
  OverlappedRead read;
  read.Post(INVALID_HANDLE_VALUE, 17);
  EXPECT_FALSE(read.Wait(10));
  read.Post(file.Get(), 3);  // less than an input report
  EXPECT_FALSE(read.Wait(10));
  read.Post(file.Get(), 100'000);  // cut to the capacity
  device.Deliver(kReport);
  EXPECT_TRUE(read.Wait(0));
  EXPECT_FALSE(without_event.Wait(10));
}

// The memory of a pending read survives a refused cancellation, a refused wait, and a file that is
// closed under it; then it goes away for good.
TEST(OverlappedRead, DrainsOnEveryWayOut) {
  for (const char* function : {"", "CancelIo", "WaitForSingleObject", "ReadFile"}) {
    SCOPED_TRACE(function);
    ScriptedDevice device;
    UniqueFile file(OpenForReading(device));
    {
      OverlappedRead read;
      read.Post(file.Get(), kReport.size());
      if (*function != '\0') platform::ArmFault(function, 1);
      read.Cancel();
      read.Post(file.Get(), kReport.size());
      platform::DisarmFault();
      file.Reset();
    }
    device.Deliver(kReport);
    Sleep(10);
    EXPECT_EQ(platform::OpenHandleCount(), 0u);
  }
}

}  // namespace
}  // namespace perilink::testing
