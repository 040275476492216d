// What holds for the battery whatever the smoothing makes of it: it is polled in time, an event
// leads to a poll, and what the host is told belongs to the last reading. Which level comes of
// which reading, and what is saved, is for the optimiser's own tests.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_
#define PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_

#include <cstdint>

#include "perilink/records.h"

namespace perilink::testing {

class BatteryModel {
 public:
  // ---- What hosts set: called with the export ------------------------------------------------

  void SetEnabled(bool enabled);
  void SetDriverStatus(bool present);
  bool enabled() const { return enabled_; }

  // ---- What the server's thread does ---------------------------------------------------------

  void OnConnected();
  // An event with the battery's flag has come.
  void OnEvent() { event_awaited_ = true; }
  // A poll has two questions, and opens the device twice for each.
  void OnPollOpened();
  void OnPollWritten(const CommandFrame& frame) { asked_ = frame.command; }
  void OnPollReport(const CommandFrame& report);
  void OnLevel(const uint8_t* data);
  void OnLoopEnd();
  // Between two steps: what had to be done is done. The thread has not slept since `free_since_ms`.
  void Check(uint64_t free_since_ms);
  // A failed allocation has cut a step short.
  void OnShortage();

 private:
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
