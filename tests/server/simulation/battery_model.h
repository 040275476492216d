// What holds for the battery whatever the smoothing makes of it: it is polled in time, an event
// leads to a poll, and what the host is told belongs to the last reading. Which level comes of
// which reading, and what is saved, is for the optimiser's own tests.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_
#define PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_

#include <algorithm>
#include <cstdint>

#include "note.h"
#include "perilink/records.h"
#include "perilink_platform/world.h"
#include "transport/frame.h"

namespace perilink::testing {

class BatteryModel {
 public:
  // ---- What hosts set: called with the export ------------------------------------------------

  void SetEnabled(bool enabled) {
    enabled_ = enabled;
    enabled_since_ms_ = NowMs();
  }
  void SetDriverStatus(bool present) { latest_poll_ms_ = present ? NowMs() : UINT64_MAX; }
  bool enabled() const { return enabled_; }

  // ---- What the server's thread does ---------------------------------------------------------

  void OnConnected() { latest_poll_ms_ = NowMs(); }
  // An event with the battery's flag has come.
  void OnEvent() { event_awaited_ = true; }
  // A poll has two questions, and opens the device twice for each.
  void OnPollOpened() {
    event_awaited_ = false;
    if (latest_poll_ms_ != UINT64_MAX) latest_poll_ms_ = NowMs() + kPollMs;
  }
  void OnPollWritten(const CommandFrame& frame) { asked_ = frame.command; }
  void OnPollReport(const CommandFrame& report) {
    if (FrameChecksum(report) != report.checksum || report.command != asked_ ||
        asked_ != PERILINK_COMMAND_BATTERY_LEVEL)
      return;
    reading_ = {report.data[0], report.data[1],
                static_cast<uint16_t>(report.data[2] << 8 | report.data[3])};
    reading_known_ = true;
  }
  void OnLevel(const uint8_t* data) {
    if (!enabled_ && !enabled_before_) Broken("a level is reported though nobody smooths it");
    const auto voltage = static_cast<uint16_t>(data[2] << 8 | data[3]);
    if (data[0] > 100 ||
        (reading_known_ && (data[1] != reading_.charging || voltage != reading_.voltage)))
      Broken("a level is reported that no reading gives");
  }
  void OnLoopEnd() {
    event_awaited_ = false;
    latest_poll_ms_ = UINT64_MAX;
  }
  // Between two steps: what had to be done is done. The thread has not slept since `free_since_ms`.
  void Check(uint64_t free_since_ms) {
    if (event_awaited_) Broken("an event has led to no poll");
    enabled_before_ = enabled_;
    if (enabled_ && latest_poll_ms_ != UINT64_MAX &&
        NowMs() > std::max({latest_poll_ms_, enabled_since_ms_, free_since_ms}) + kLatestMs)
      Broken("the battery is not polled");
  }
  // A failed allocation has cut a step short.
  void OnShortage() {
    OnPollOpened();
    reading_known_ = false;
  }

 private:
  static constexpr uint64_t kPollMs = 5000;
  // A loop that awaits something looks at its timers so often at least, and a moment later.
  static constexpr uint64_t kLatestMs = 100 + 5;

  static uint64_t NowMs() { return platform::NowMicros() / 1000; }

  bool enabled_ = true;
  bool enabled_before_ = true;  // when the step under way began
  uint64_t enabled_since_ms_ = 0;
  uint64_t latest_poll_ms_ = UINT64_MAX;
  bool event_awaited_ = false;
  uint8_t asked_ = 0;
  BatteryLevel reading_{};
  bool reading_known_ = true;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_
