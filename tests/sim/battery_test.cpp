#include "sim/battery.h"

#include <gtest/gtest.h>

#include <set>

#include "perilink_platform/handle.h"
#include "raw_host.h"
#include "sim/mouse.h"

namespace perilink::sim {
namespace {

constexpr DWORD kHour = 3'600'000;

TEST(Battery, RunsDownAndUpOverTheWorldsClock) {
  Battery battery({.percent = 80,
                   .discharge_percent_per_hour = 10,
                   .charge_percent_per_hour = 40,
                   .charge_lift_millivolts = 50});
  EXPECT_EQ(battery.Read().millivolts, 4020);
  Sleep(2 * kHour);
  EXPECT_EQ(battery.Read().level, 60);
  EXPECT_EQ(battery.Read().millivolts, 3940);
  battery.SetCharging(true);
  Sleep(kHour / 2);
  EXPECT_EQ(battery.Read().level, 80);
  EXPECT_EQ(battery.Read().charging, 1);
  EXPECT_EQ(battery.Read().millivolts, 4020 + 50);
  Sleep(3 * kHour);
  EXPECT_EQ(battery.Read().level, 100);
  battery.SetCharging(false);
  Sleep(20 * kHour);
  EXPECT_EQ(battery.Read().level, 0);
  EXPECT_EQ(battery.Read().millivolts, 3050);
}

TEST(Battery, JitterStaysWithinItsBounds) {
  Battery battery({.percent = 50, .jitter_percent = 3});
  std::set<int> levels;
  for (int i = 0; i < 200; ++i)
    levels.insert(battery.Read().level);
  EXPECT_EQ(levels, (std::set<int>{47, 48, 49, 50, 51, 52, 53}));
}

TEST(Battery, AChargerSendsABatteryEventAndFixedReadingsAreAnsweredAsTheyAre) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  mouse.SetCharging(true);
  ASSERT_EQ(host.arrived.size(), 1u);
  EXPECT_EQ(host.arrived[0].report[1], command::kEvent);
  EXPECT_EQ(host.arrived[0].report[6], 0x40);

  mouse.battery().Fix({7, 2, 0x0E10});
  const Bytes reply = host.Ask(command::kBattery);
  ASSERT_EQ(reply.size(), 17u);
  EXPECT_EQ(Bytes(reply.begin() + 6, reply.begin() + 10), (Bytes{7, 2, 0x0E, 0x10}));
}

}  // namespace
}  // namespace perilink::sim
