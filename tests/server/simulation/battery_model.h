// What holds for the smoothed battery level, whatever the smoothing makes of it: when the device is
// polled and what for, what the host is told, and what is saved. Which level comes of which reading
// is for the optimiser's own tests.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_
#define PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "perilink/records.h"

namespace perilink::testing {

class BatteryModel {
 public:
  // ---- What hosts set: called with the export ------------------------------------------------

  void SetEnabled(uint8_t enabled);
  void SetDriverStatus(uint8_t status);
  void Exit() { exit_requested_ = true; }
  void Start() {
    exit_requested_ = false;
    left_ = true;
  }
  bool enabled() const { return host_.enabled; }

  // ---- What the server's thread does ---------------------------------------------------------

  void OnConnected();
  // A poll has two questions, and opens the device twice for each.
  void OnPollOpened();
  void OnPollWritten(const CommandFrame& frame);
  void OnPollAnswer(const CommandFrame& report);
  // An event with the battery's flag has come; so has the answer to a host's battery request.
  void OnBatteryEvent() { event_awaited_ = true; }
  void OnBatteryAnswer() { level_awaited_ = true; }
  // What comes of a step that is under way: the host gets a level, or one is saved.
  void OnLevel(const uint8_t* data);
  void OnSaved(const std::wstring& name, const std::wstring& text);
  void OnLoopEnd();

  // Between two steps: what had to be done is done. The thread has not slept since `free_since_ms`.
  void Check(uint64_t free_since_ms);
  // A failed allocation has cut a step short: nothing is awaited, anything may be told.
  void OnShortage();

 private:
  struct Poll {
    bool for_event = false;
    uint64_t words = 0;
    int opens = 0;
    int writes = 0;  // of the present question
    CommandFrame question{};
    std::array<std::optional<CommandFrame>, 2> answers;
  };
  // What hosts have said, now and as it was when the step under way began.
  struct Host {
    bool enabled = true;
    bool driver_gone = false;
    uint64_t words = 0;  // on the driver's status
  };
  struct Shown {
    uint8_t level;
    bool charging;
    bool operator==(const Shown&) const = default;
  };

  bool Off() const;
  bool Stopped() const;
  void BeginPoll();
  void FinishPoll();
  void ForgetReports();

  Host host_;
  Host host_before_;
  uint64_t enabled_since_ms_ = 0;
  bool exit_requested_ = false;
  // The next connection is asked for, and not taken: levels are saved, and reported to nobody.
  bool left_ = false;

  std::optional<Poll> poll_;
  uint64_t earliest_poll_ms_ = 0;
  uint64_t latest_poll_ms_ = UINT64_MAX;
  BatteryLevel reading_{};  // the last one polled
  bool reading_known_ = true;
  bool event_awaited_ = false;
  bool level_awaited_ = false;
  bool level_allowed_ = false;  // though it has not changed
  std::optional<Shown> shown_;
  std::optional<uint8_t> saved_;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_
