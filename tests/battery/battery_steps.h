// The optimiser's steps, one by one.
#ifndef PERILINK_TESTS_BATTERY_BATTERY_STEPS_H_
#define PERILINK_TESTS_BATTERY_BATTERY_STEPS_H_

#include "battery/optimizer.h"

namespace perilink {

struct BatterySteps {
  BatteryOptimizer& optimizer = BatteryOptimizer::Instance();

  int Poll() {
    optimizer.BeginStep();
    optimizer.PollStep();
    return Level();
  }
  void Smooth(BatteryOptimizer::CallbackSource callback) {
    optimizer.BeginStep();
    optimizer.SmoothingStep(callback);
  }
  void Report(uint8_t level, BatteryOptimizer::CallbackSource callback, bool force) {
    SetLevel(level);
    optimizer.LevelReport(callback, force);
  }
  void SetLevel(int level) { optimizer.SetReportedLevel(level); }
  int Level() const { return optimizer.reported_level_; }
  bool Active() const { return optimizer.smoothing_active_; }
  bool Armed() const { return optimizer.smoothing_timer_.armed; }
  bool SaveAllowed() const { return optimizer.save_allowed_; }

  // All that a step leaves for the next one, but what hosts set.
  struct State {
    BatteryLevel reading{};
    DeviceAddress address{};
    bool first_reading_done = false;
    bool save_allowed = true;
    bool active = false;
    bool last_charging = false;
    uint8_t measured = 0;
    uint8_t reported = 0;
    uint8_t last_reported = 0xFF;
    int full_count = 0;
    IntervalTimer poll;
    IntervalTimer smoothing;
    VoltageTable voltages = kDefaultVoltages;
    bool voltages_supplied = false;
    bool start_supplied = false;
    int64_t start_age = -1;
    uint8_t start_level = 0;
  };
  State Copy() const {
    const BatteryOptimizer& it = optimizer;
    return {.reading = it.last_reading_,
            .address = it.device_address_,
            .first_reading_done = it.first_reading_done_,
            .save_allowed = it.save_allowed_,
            .active = it.smoothing_active_,
            .last_charging = it.last_reported_charging_,
            .measured = it.measured_level_,
            .reported = it.reported_level_,
            .last_reported = it.last_reported_,
            .full_count = it.full_count_,
            .poll = it.poll_timer_,
            .smoothing = it.smoothing_timer_,
            .voltages = it.voltages_,
            .voltages_supplied = it.voltages_supplied_,
            .start_supplied = it.starting_point_.supplied,
            .start_age = it.starting_point_.elapsed_seconds,
            .start_level = it.starting_point_.level};
  }
};

}  // namespace perilink

#endif  // PERILINK_TESTS_BATTERY_BATTERY_STEPS_H_
