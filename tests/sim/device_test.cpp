#include "sim/device.h"

#include <gtest/gtest.h>

#include "raw_host.h"
#include "sim/keyboard.h"
#include "sim/mouse.h"

namespace perilink::sim {
namespace {

TEST(Device, ShowsACommandInterfaceAmongOthersWithWindowsPaths) {
  Mouse mouse;
  Keyboard keyboard;
  EXPECT_TRUE(mouse.Paths().empty());
  mouse.Plug();
  mouse.Plug();
  keyboard.Plug();
  const std::vector<std::wstring> present = platform::Bus().PresentInterfaces();
  ASSERT_EQ(present.size(), 12u);
  EXPECT_EQ(present[5],
            L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col05#7&1a2b3c4d&0&0004"
            L"#{4d1e55b2-f16f-11cf-88cb-001111000030}");
  EXPECT_EQ(mouse.CommandPath(), present[5]);
  EXPECT_EQ(keyboard.CommandPath(), present[11]);
  EXPECT_EQ(mouse.CommandKey(), "vid_1234&pid_abcd&mi_01&col05");
  EXPECT_EQ(mouse.Paths(), std::vector<std::wstring>(present.begin(), present.begin() + 6));

  RawHost other(present[1]);
  EXPECT_NE(other.Write(MakeFrame(command::kVersion, 0)), 0u);  // it has no output report
  EXPECT_EQ(mouse.Requests().size(), 0u);
}

TEST(Device, LogsWhatTheHostWritesAndWhenAndCountsOpens) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  mouse.faults().FailWrite(At(2), 1460);
  const uint64_t start = platform::NowMicros();
  host.Write(MakeFrame(command::kVersion, 0));
  Sleep(8);
  EXPECT_EQ(host.Write(MakeFrame(command::kRssi, 0)), 1460u);
  host.WriteFeature(MakeFrame(command::kOnLine, 0));
  const std::vector<Request> log = mouse.Requests();
  ASSERT_EQ(log.size(), 3u);
  EXPECT_EQ(log[0].at_micros, start);
  EXPECT_GE(log[1].at_micros, start + 8000);
  EXPECT_EQ(log[1].error, 1460u);
  EXPECT_TRUE(!log[1].feature && log[2].feature);
  EXPECT_EQ(log[0].bytes.size(), 17u);
  EXPECT_EQ(log[0].bytes[16], 0x3B);
  EXPECT_EQ(mouse.CountRequests(command::kRssi), 1u);
  {
    RawHost second(mouse.CommandPath());
    EXPECT_EQ(mouse.OpenNow(), 2u);
  }
  EXPECT_EQ(mouse.Opens(), 2u);
  EXPECT_EQ(mouse.OpenNow(), 1u);
}

TEST(Device, UnpluggingLosesRepliesUnderWayAndReplugComesAfterTheDelay) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  mouse.firmware().state().config = 5;
  host.Write(MakeFrame(command::kVersion, 0));
  mouse.ReplugAfter(500'000);
  EXPECT_TRUE(host.removed);
  EXPECT_NE(host.Write(MakeFrame(command::kVersion, 0)), 0u);
  Sleep(499);
  EXPECT_EQ(mouse.mode(), Mode::kUnplugged);
  EXPECT_NE(RawHost(mouse.CommandPath()).open_error, 0u);
  Sleep(2);
  EXPECT_EQ(mouse.mode(), Mode::kNormal);
  EXPECT_EQ(host.arrived.size(), 0u);
  RawHost again(mouse.CommandPath());
  EXPECT_EQ(again.Ask(command::kReadConfig)[6], 0);  // lost with the power
}

TEST(Device, DestroyingItTakesItFromTheBusWithWhatItHadPlanned) {
  {
    Mouse mouse;
    mouse.Plug();
    RawHost host(mouse.CommandPath());
    host.Write(MakeFrame(command::kVersion, 0));
  }
  Sleep(100);
  EXPECT_TRUE(platform::Bus().PresentInterfaces().empty());
}

}  // namespace
}  // namespace perilink::sim
