#include "sim/battery.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <mutex>

namespace perilink::sim {
namespace {

constexpr double kMicrosPerHour = 3.6e9;

// Millivolts at 0, 5, 10, … 100 percent.
constexpr uint16_t kCurve[] = {3050, 3420, 3480, 3540, 3600, 3660, 3720, 3760, 3800, 3840, 3880,
                               3920, 3940, 3960, 3980, 4000, 4020, 4040, 4060, 4080, 4110};
constexpr double kCurveStep = 5;

}  // namespace

Battery::Battery(const BatteryOptions& options, World& world)
    : options_(options),
      world_(world),
      since_micros_(world.NowMicros()),
      jitter_(options.jitter_seed) {}

BatteryReading Battery::Read() {
  const std::lock_guard guard(world_);
  if (fixed_) return *fixed_;
  double percent = Percent();
  if (options_.jitter_percent > 0) {
    const auto spread = static_cast<int>(2u * options_.jitter_percent + 1u);
    const int jump = static_cast<int>(jitter_() % static_cast<unsigned>(spread));
    percent = std::clamp(percent + jump - options_.jitter_percent, 0.0, 100.0);
  }
  BatteryReading reading;
  reading.level = static_cast<uint8_t>(percent);
  reading.charging = options_.charging ? 1 : 0;
  if (options_.reports_voltage) {
    reading.millivolts = RestingMillivolts(percent);
    if (options_.charging) {
      reading.millivolts =
          static_cast<uint16_t>(reading.millivolts + options_.charge_lift_millivolts);
    }
  }
  return reading;
}

void Battery::SetPercent(double percent) {
  const std::lock_guard guard(world_);
  Settle();
  options_.percent = std::clamp(percent, 0.0, 100.0);
}

void Battery::SetCharging(bool charging) {
  const std::lock_guard guard(world_);
  Settle();
  options_.charging = charging;
}

void Battery::SetRates(double discharge_percent_per_hour, double charge_percent_per_hour) {
  const std::lock_guard guard(world_);
  Settle();
  options_.discharge_percent_per_hour = discharge_percent_per_hour;
  options_.charge_percent_per_hour = charge_percent_per_hour;
}

double Battery::Percent() const {
  const std::lock_guard guard(world_);
  const double hours = static_cast<double>(world_.NowMicros() - since_micros_) / kMicrosPerHour;
  const double change = options_.charging ? options_.charge_percent_per_hour * hours
                                          : -options_.discharge_percent_per_hour * hours;
  return std::clamp(options_.percent + change, 0.0, 100.0);
}

void Battery::Fix(const BatteryReading& reading) {
  const std::lock_guard guard(world_);
  fixed_ = reading;
}

void Battery::FollowCurve() {
  const std::lock_guard guard(world_);
  fixed_.reset();
}

uint16_t Battery::RestingMillivolts(double percent) {
  const double position = std::clamp(percent, 0.0, 100.0) / kCurveStep;
  const size_t below = std::min<size_t>(static_cast<size_t>(position), std::size(kCurve) - 2);
  const double share = position - static_cast<double>(below);
  return static_cast<uint16_t>(
      std::lround(kCurve[below] + share * (kCurve[below + 1] - kCurve[below])));
}

void Battery::Settle() {
  options_.percent = Percent();
  since_micros_ = world_.NowMicros();
}

}  // namespace perilink::sim
