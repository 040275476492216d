// The battery of a virtual device: a discharge curve over its world's clock, or fixed readings.
#ifndef PERILINK_SIM_BATTERY_H_
#define PERILINK_SIM_BATTERY_H_

#include <cstdint>
#include <optional>
#include <random>

#include "sim/world.h"

namespace perilink::sim {

// What the device answers when it is asked for its battery.
struct BatteryReading {
  uint8_t level = 0;     // percent
  uint8_t charging = 0;  // non-zero while it charges
  uint16_t millivolts = 0;
};

struct BatteryOptions {
  double percent = 80;
  bool charging = false;
  bool reports_voltage = true;            // false: devices without a voltage meter report 0 mV
  double discharge_percent_per_hour = 0;  // 0: the charge stands still
  double charge_percent_per_hour = 0;
  uint16_t charge_lift_millivolts = 0;  // by how much the voltage stands higher while charging
  uint8_t jitter_percent = 0;           // readings jump by up to so much, up or down
  uint64_t jitter_seed = 1;
};

// All functions lock the world and may be called from any thread.
class Battery {
 public:
  Battery(const BatteryOptions& options, World& world);

  BatteryReading Read();

  // Restart the curve from here.
  void SetPercent(double percent);
  void SetCharging(bool charging);
  void SetRates(double discharge_percent_per_hour, double charge_percent_per_hour);
  // The charge now, in percent, without the meter's jitter.
  double Percent() const;

  // From now on every reading is this one; FollowCurve ends it.
  void Fix(const BatteryReading& reading);
  void FollowCurve();

  // The voltage of a resting battery at a charge of 0 to 100 percent.
  static uint16_t RestingMillivolts(double percent);

 private:
  void Settle();

  BatteryOptions options_;
  World& world_;
  uint64_t since_micros_;
  std::optional<BatteryReading> fixed_;
  std::mt19937_64 jitter_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_BATTERY_H_
