// The battery optimiser: turns the jumping battery level of a device into one that moves a percent
// at a time, and remembers it from one connection to the next.
//
// The server thread drives it; hosts configure it from any thread. Functions say which.
#ifndef PERILINK_SRC_BATTERY_OPTIMIZER_H_
#define PERILINK_SRC_BATTERY_OPTIMIZER_H_

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "battery/saved_record.h"
#include "battery/voltage_table.h"
#include "perilink/records.h"

namespace perilink {

// Runs out when the clock is later than its start and at least the interval after it, so that an
// interval of 0 still needs a later millisecond.
struct IntervalTimer {
  bool armed = false;
  uint64_t start_ms = 0;
  uint32_t interval_ms = 0;

  bool Due(uint64_t now_ms) const {
    return armed && now_ms > start_ms && now_ms - start_ms >= interval_ms;
  }
};

class BatteryOptimizer {
 public:
  static constexpr uint32_t kPollIntervalMs = 5000;
  static constexpr uint32_t kFullIntervalMs = 100;

  // The process's optimiser. It is never destroyed: the server thread may outlive main().
  static BatteryOptimizer& Instance();

  BatteryOptimizer() = default;
  BatteryOptimizer(const BatteryOptimizer&) = delete;
  BatteryOptimizer& operator=(const BatteryOptimizer&) = delete;

  // ---- Settings: any thread -----------------------------------------------------------------

  void SetEnabled(uint8_t enabled) { enabled_.store(enabled, std::memory_order_relaxed); }
  bool Enabled() const { return enabled_.load(std::memory_order_relaxed) != 0; }
  void SetParam(uint8_t jump, uint32_t step_interval_ms, uint32_t near_full_interval_ms);
  // `voltages`: kVoltagePoints values in millivolts, for 0, 5, 10, ..., 100 percent.
  void SetSection(const uint32_t* voltages);
  void SetLastBattery(int32_t elapsed_seconds, uint8_t level);
  // The next successful poll runs the start estimate again.
  void Restart() { first_reading_done_.store(false, std::memory_order_relaxed); }

  // ---- Timers: any thread. Arming starts them now. ------------------------------------------

  void ArmPoll(uint32_t interval_ms);
  void DisarmPoll();
  bool PollDue() const;

  void ArmSmoothing(uint32_t interval_ms);
  void RestartSmoothing();  // the same interval again from now; nothing when it is not armed
  void DisarmSmoothing();
  bool SmoothingArmed() const;

  // ---- Steps and state: the server thread ---------------------------------------------------

  // The path on which the poll step talks to the device.
  void SetDevicePath(const std::wstring& path);

  // Asks the device for its address and its battery, up to some hundred milliseconds. Success
  // refreshes the reading and starts smoothing; failure ends smoothing until a poll succeeds.
  void PollStep();

  // Moves the reported level by one step and reports it, when the smoothing timer has run out.
  // Call it on every pass while enabled and smoothing is active. `callback` may be null.
  void SmoothingStep(ServerReportCallback callback);

  // Tells the host `level` if it or the charging state has changed since the last report, or if
  // `force` is set. A changed level is saved first. `callback` may be null.
  void LevelReport(uint8_t level, ServerReportCallback callback, bool force);

  // Writes the device's saved record.
  void SaveStep(int64_t calendar_seconds, uint8_t level) const;

  // The connection is over: saves the reported level if that is allowed and the optimiser is
  // enabled, and forgets what belongs to the connection.
  void EndConnection();

  bool SmoothingActive() const { return smoothing_active_; }
  bool SaveAllowed() const { return save_allowed_; }
  BatteryLevel LastReading() const { return last_reading_; }
  uint8_t ReportedLevel() const { return reported_level_; }
  void SetReportedLevel(uint8_t level) { reported_level_ = level; }

 private:
  static constexpr int64_t kUnknownAge = -1;

  // The level that the smoothing of a connection starts from, and its age.
  struct StartingPoint {
    bool supplied = false;  // by the host, in this connection
    int64_t elapsed_seconds = kUnknownAge;
    uint8_t level = 0;

    bool operator==(const StartingPoint&) const = default;
  };

  void Arm(IntervalTimer& timer, uint32_t interval_ms);
  bool TakeSmoothing();  // disarms the smoothing timer if it has run out

  bool ReadDevice(CommandFrame& on_line_reply);
  uint8_t MeasuredLevel() const;
  void EstimateStart();
  StartingPoint FindStartingPoint();
  StartingPoint LoadStartingPoint(const StartingPoint& host);
  bool StepCharging(uint32_t& next_interval_ms);
  void StepDischarging();

  std::atomic<uint8_t> enabled_{1};
  std::atomic<uint8_t> jump_on_large_difference_{0};
  std::atomic<uint32_t> step_interval_ms_{10000};
  std::atomic<uint32_t> near_full_interval_ms_{300000};
  std::atomic<bool> first_reading_done_{false};

  // Values of several fields, and texts, that hosts may touch while the server thread runs. The
  // lock is held for a copy, never while a device, the registry or the host is called.
  mutable std::mutex lock_;
  VoltageTable voltages_ = kDefaultVoltages;
  bool voltages_supplied_ = false;
  StartingPoint starting_point_;
  IntervalTimer poll_timer_;
  IntervalTimer smoothing_timer_;
  std::wstring device_path_;

  // The server thread's own.
  BatteryLevel last_reading_{};
  DeviceAddress device_address_{};
  uint8_t measured_level_ = 0;
  uint8_t reported_level_ = 0;
  bool smoothing_active_ = false;
  bool save_allowed_ = true;
  int full_count_ = 0;
  uint8_t last_reported_ = 0xFF;
  bool last_reported_charging_ = false;
};

}  // namespace perilink

#endif  // PERILINK_SRC_BATTERY_OPTIMIZER_H_
