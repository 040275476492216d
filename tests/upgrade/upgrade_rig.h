// Runs upgrades of virtual devices and tells what the host saw: events and log lines.
#ifndef PERILINK_TESTS_UPGRADE_UPGRADE_RIG_H_
#define PERILINK_TESTS_UPGRADE_UPGRADE_RIG_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "perilink/finder.h"
#include "perilink/upgrade.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "platform/win32.h"
#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "support/interop_values.h"
#include "upgrade/turn.h"

namespace perilink::testing {

using Event = std::array<int, 4>;  // kind, code, arg1, arg2
using Events = std::vector<Event>;
using Lines = std::vector<std::string>;
inline const Event kSucceeded = {2, 1, 0, 0};

inline Events events;
inline uint64_t last_event_ms = 0;
inline std::function<void(const Event&)> on_event;

inline int PERILINK_CALL RecordEvent(const uint8_t* message, uint32_t length) {
  EXPECT_EQ(length, 8u);
  EXPECT_EQ(message[0], 7);
  EXPECT_EQ(message[5] | message[6] | message[7], 0);
  events.push_back({message[1], message[2], message[3], message[4]});
  last_event_ms = platform::NowMicros() / 1000;
  if (on_event) on_event(events.back());
  return 0;
}

inline void WaitUntilUpgradeEnds() {
  while (!TakeUpgradeTurn())
    Sleep(10);
  GiveUpgradeTurn();
}

inline bool RunUpgrade(const sim::Bytes& file, uint32_t timeout = 2000) {
  events.clear();
  const bool started = UsbUpgrade_Start(file.data(), RecordEvent, timeout);
  WaitUntilUpgradeEnds();
  return started;
}

// The percentages of `units` more units of progress. They differ from the last one sent.
inline Events Progress(int first_unit, int last_unit, int total, int last_percent = 0) {
  Events expected;
  for (int unit = first_unit; unit <= last_unit; ++unit) {
    const int percent = unit * 100 / total;
    if (percent != std::exchange(last_percent, percent))
      expected.push_back({1, std::min(percent, 100), 0, 0});
  }
  return expected;
}

template <typename Item>
std::vector<Item> operator+(std::vector<Item> left,
                            const std::type_identity_t<std::vector<Item>>& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Events WithoutProgress() {
  Events rest;
  std::ranges::copy_if(events, std::back_inserter(rest), [](const Event& e) { return e[0] != 1; });
  return rest;
}

inline Lines RawLog() {
  uint32_t count = 0;
  char** lines = UsbUpgradeC_GetLogs(&count);
  return TakeTexts(lines, count);
}

// The log with each timestamp as "T" and each usable handle's number as "H".
inline Lines Log() {
  static const std::regex time(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \d{3})");
  static const std::regex handle(R"((hDevice(Write|Read) ?=)[1-9]\d*)");
  Lines log = RawLog();
  for (std::string& line : log)
    line = std::regex_replace(std::regex_replace(line, time, "T"), handle, "$1H");
  return log;
}

// The log from the upgrade thread's first line on.
inline Lines ThreadLog() {
  const Lines log = Log();
  return {std::ranges::find(log, "Start Upgrade Thread "), log.end()};
}

// 100 bytes of firmware travel in a start packet and four data packets; with the normal device
// present an upgrade has 205 units of progress.
inline constexpr uint16_t kNewVersion = 0x0234;
inline sim::Bytes NewFirmware() {
  return sim::MakeVirtualFirmware(kNewVersion, 100);
}
inline sim::Bytes FileFor(const sim::Device& device, bool feature = false) {
  return sim::UpgradeFileBuilder(sim::ImageFor(device, NewFirmware(), 0x00010000, feature)).Build();
}

// Everything is given back when a test ends.
class UpgradeTest : public ::testing::Test {
 protected:
  void TearDown() override {
    WaitUntilUpgradeEnds();
    on_event = nullptr;
    EXPECT_EQ(platform::OpenHandleCount(), handles_);
    EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
  }

 private:
  const uint64_t handles_ = platform::OpenHandleCount();
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_UPGRADE_UPGRADE_RIG_H_
