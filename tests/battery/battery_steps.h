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
  uint32_t PollMs() const { return optimizer.poll_timer_.interval_ms; }
  uint32_t SmoothingMs() const { return optimizer.smoothing_timer_.interval_ms; }
  bool SaveAllowed() const { return optimizer.save_allowed_; }
};

}  // namespace perilink

#endif  // PERILINK_TESTS_BATTERY_BATTERY_STEPS_H_
