#include <gtest/gtest.h>

#include "perilink_platform/world.h"
#include "platform/alarm.h"
#include "platform/ansi_text.h"
#include "platform/handles.h"
#include "platform/overlapped_read.h"
#include "platform/runtime.h"
#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

TEST(Handles, CloseOnceAndKeepTheLastError) {
  UniqueEvent event = CreateManualResetEvent();
  EXPECT_EQ(platform::OpenHandleCount(), 1u);
  UniqueEvent other(std::move(event));
  SetLastError(1234);
  other = UniqueEvent();
  EXPECT_EQ(GetLastError(), 1234u);
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
  EXPECT_EQ(UniqueFile().Get(), INVALID_HANDLE_VALUE);
}

TEST(Text, GoesThroughTheCodePage) {
  const std::pair<std::string, std::wstring> texts[] = {
      {"", L""}, {"x", L"x"}, {"Größe 鼠", L"Größe 鼠"}};
  for (const auto& [narrow, wide] : texts) {
    EXPECT_EQ(NarrowToWide(narrow), wide);
    EXPECT_EQ(WideToNarrow(wide), narrow);
  }
  EXPECT_EQ(NarrowToWide(static_cast<const char*>(nullptr)), L"");
  EXPECT_EQ(NarrowToWide("a\xFFz"), L"a\xFFFDz");
  EXPECT_EQ(NarrowToWide(std::string_view("a\0z", 3)), std::wstring(L"a\0z", 3));
}

TEST(Alarm, WaitsForTheMomentOrTheNextMillisecond) {
  Alarm alarm;
  for (const bool precise : {true, false}) {
    const int64_t start = MonotonicMicros();
    for (const int wait : {2300, 0}) {  // the moment has come already: at once
      EXPECT_EQ(alarm.Wait(nullptr, {start + wait, precise}), Alarm::Cause::kTime);
      EXPECT_NEAR(static_cast<double>(MonotonicMicros() - start), precise ? 2300 : 3000, 50);
    }
  }
}

const Report kReport = Closed({0x08, 0x0A, 1, 2, 3});

HANDLE OpenForReading(const ScriptedDevice& device) {
  return CreateFileW(device.Path().c_str(), GENERIC_READ | GENERIC_WRITE,
                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                     FILE_FLAG_OVERLAPPED, nullptr);
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
