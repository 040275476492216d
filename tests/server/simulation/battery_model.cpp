#include "battery_model.h"

#include <algorithm>

#include "note.h"
#include "perilink_platform/world.h"
#include "transport/frame.h"

namespace perilink::testing {
namespace {

constexpr uint64_t kPollMs = 5000;
// A loop that awaits something looks at its timers so often at least, and a moment later.
constexpr uint64_t kLatestMs = 100 + 5;

uint64_t NowMs() {
  return platform::NowMicros() / 1000;
}

}  // namespace

void BatteryModel::SetEnabled(bool enabled) {
  enabled_ = enabled;
  enabled_since_ms_ = NowMs();
}

void BatteryModel::SetDriverStatus(bool present) {
  latest_poll_ms_ = present ? NowMs() : UINT64_MAX;
}

void BatteryModel::OnConnected() {
  latest_poll_ms_ = NowMs();
}

void BatteryModel::OnPollOpened() {
  event_awaited_ = false;
  if (latest_poll_ms_ != UINT64_MAX) latest_poll_ms_ = NowMs() + kPollMs;
}

void BatteryModel::OnPollReport(const CommandFrame& report) {
  if (FrameChecksum(report) != report.checksum || report.command != asked_ ||
      asked_ != PERILINK_COMMAND_BATTERY_LEVEL)
    return;
  reading_ = {report.data[0], report.data[1],
              static_cast<uint16_t>(report.data[2] << 8 | report.data[3])};
  reading_known_ = true;
}

void BatteryModel::OnLevel(const uint8_t* data) {
  if (!enabled_ && !enabled_before_) Broken("a level is reported though nobody smooths it");
  const auto voltage = static_cast<uint16_t>(data[2] << 8 | data[3]);
  if (data[0] > 100 ||
      (reading_known_ && (data[1] != reading_.charging || voltage != reading_.voltage)))
    Broken("a level is reported that no reading gives");
}

void BatteryModel::OnLoopEnd() {
  event_awaited_ = false;
  latest_poll_ms_ = UINT64_MAX;
}

void BatteryModel::Check(uint64_t free_since_ms) {
  if (event_awaited_) Broken("an event has led to no poll");
  enabled_before_ = enabled_;
  if (enabled_ && latest_poll_ms_ != UINT64_MAX &&
      NowMs() > std::max({latest_poll_ms_, enabled_since_ms_, free_since_ms}) + kLatestMs)
    Broken("the battery is not polled");
}

void BatteryModel::OnShortage() {
  OnPollOpened();
  reading_known_ = false;
}

}  // namespace perilink::testing
