// The smoothing of the battery level, once more: what polls, events and the passing of time lead
// to.
//
// The model follows the optimiser step by step. It sees the polls and their answers, the levels
// that the host gets and those that are saved. A step that tells nobody anything shows in the
// timers alone.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_
#define PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "battery/battery_steps.h"
#include "perilink/records.h"

namespace perilink::testing {

class BatteryModel {
 public:
  // ---- What hosts set: called with the export ------------------------------------------------

  void SetEnabled(uint8_t enabled);
  void SetParam(uint8_t jump, uint32_t step_ms, uint32_t near_full_ms);
  void SetSection(const uint32_t* voltages);
  void SetLastBattery(int32_t elapsed_seconds, uint8_t level);
  void SetDriverStatus(uint8_t status);
  void Restart() { state_.first_reading_done = false; }
  void Exit() { exit_requested_ = true; }
  void Start() {
    exit_requested_ = false;
    left_ = true;
  }
  bool enabled() const { return enabled_ != 0; }

  // ---- What the server's thread does ---------------------------------------------------------

  void OnLoopBegin() { ended_ = false; }
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

  // Between two steps: what had to be done is done, and the optimiser is where it must be. The
  // thread has not slept since `free_since_ms`.
  void Check(uint64_t free_since_ms);
  // A failed allocation has cut a step short: the optimiser is right.
  void Adopt();

 private:
  struct Poll {
    bool for_event = false;
    uint8_t charging_before = 0;
    int opens = 0;
    int writes = 0;  // of the present question
    CommandFrame question{};
    std::array<std::optional<CommandFrame>, 2> answers;
  };

  void BeginPoll();
  void FinishPoll();
  void FinishEventPoll(uint8_t charging_before);
  void Estimate();
  void Settle();
  void EndConnection();
  void LookForEnd();
  uint8_t StartLevel(uint8_t last, int64_t age) const;
  uint8_t Measured() const;
  bool MayStep() const;
  bool Step();
  void ReportAwaited();
  void TakeUnheard();
  bool StepCharging(uint32_t& next_ms);
  bool TakeLevelChange(bool force);
  void CheckSaved(bool expected);
  void Arm(IntervalTimer& timer, uint32_t interval_ms);
  bool MayBeDue(const IntervalTimer& timer) const;
  void Follow(IntervalTimer& timer, const IntervalTimer& real) const;
  bool Overdue(const IntervalTimer& timer, uint64_t free_since_ms) const;

  // What hosts have set.
  uint8_t enabled_ = 1;
  uint64_t enabled_since_ms_ = 0;
  uint8_t jump_ = 0;
  uint32_t step_ms_ = 10'000;
  uint32_t near_full_ms_ = 300'000;
  bool exit_requested_ = false;
  uint64_t epoch_ = 0;  // counts their words on the timers

  BatterySteps::State state_;
  uint64_t step_epoch_ = 0;
  bool polled_in_pass_ = false;
  bool ended_ = false;  // the connection: the loop is at its end
  // The next connection is asked for, and not taken: levels are saved, and reported to nobody.
  bool left_ = false;
  uint64_t checked_ms_ = 0;
  std::optional<Poll> poll_;
  bool event_awaited_ = false;
  bool level_awaited_ = false;
  bool restarts_smoothing_ = false;  // with the level that is awaited
  std::optional<uint8_t> saved_;
  bool save_in_doubt_ = false;  // memory was short
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_BATTERY_MODEL_H_
