// The battery optimiser: turns the jumping battery level of a device into one that moves a percent
// at a time, and keeps it from one connection to the next. Nothing outside decides what a level, a
// battery event or a connection means.
//
// The server thread drives it; hosts configure it from any thread. Functions say which.
#ifndef PERILINK_SRC_BATTERY_OPTIMIZER_H_
#define PERILINK_SRC_BATTERY_OPTIMIZER_H_

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
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

  bool Due(uint64_t now_ms) const { return armed && now_ms >= DueMs(); }
  uint64_t DueMs() const { return armed ? start_ms + std::max(interval_ms, 1u) : UINT64_MAX; }
};

class BatteryOptimizer {
 public:
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
  // True: the host's driver is there, and the battery is polled at once. False: it has gone. Then
  // nothing more is polled or reported until the device is opened again, the device sends a battery
  // event, or the driver is back; a step under way ends with its report.
  void SetDriverStatus(bool present);

  // ---- What the server tells it: the server thread --------------------------------------------

  // Gives the host's callback of the moment, null for none. It is asked when a report is made: a
  // poll takes time, in which the host may start with another callback.
  using CallbackSource = ServerReportCallback (*)();

  // The device has been opened; polls talk to it on `path`. The first one is due at once. Throws
  // std::bad_alloc and has then done nothing.
  void Connect(const std::wstring& path);

  // Does what is due: a poll, which asks the device for its address and its battery and can take
  // some hundred milliseconds, and a step of the smoothing. The server calls it in every pass.
  void Drive(CallbackSource callback);
  // When Drive has something to do next, on the clock of GetTickCount64; UINT64_MAX for never.
  uint64_t NextDueMs() const;

  // An event of the device's with these flags. The battery's flag is answered by a poll, and by a
  // level report when the reading asks for one. Gives back the flags to report to the host, or
  // none if there is nothing to report.
  std::optional<uint8_t> TakeEvent(uint8_t flags, CallbackSource callback);

  // The device has answered the host's question for its battery: the host gets the smoothed level
  // instead. False when the optimiser is off, and the device's own answer counts.
  bool TakeBatteryAnswer(CallbackSource callback);

  // The connection is over: saves the reported level if saving is allowed and the optimiser is
  // enabled, then clears the connection's state.
  void EndConnection();

 private:
  friend struct BatterySteps;  // tests take the steps one by one

  static constexpr uint32_t kPollIntervalMs = 5000;
  static constexpr uint32_t kFullIntervalMs = 100;
  static constexpr int64_t kUnknownAge = -1;

  // The level that the smoothing of a connection starts from, and its age.
  struct StartingPoint {
    bool supplied = false;  // by the host, in this connection
    int64_t elapsed_seconds = kUnknownAge;
    uint8_t level = 0;

    bool operator==(const StartingPoint&) const = default;
  };

  // A step arms a timer only if the host has neither set nor stopped it since the step began: the
  // host's call is the later one and holds.
  void BeginStep();
  void Arm(IntervalTimer& timer, uint32_t interval_ms);
  void RestartSmoothing();  // the same interval again from now; nothing when it is not armed
  void DisarmSmoothing();
  bool TakePoll();       // begins a step; true if the poll is due, and the next one is armed
  bool TakeSmoothing();  // disarms the smoothing timer if it has run out

  void PollStep();
  void SmoothingStep(CallbackSource callback);
  void PollForEvent(CallbackSource callback);
  bool ForceLevel(uint8_t raw_level);
  // Tells the host the reported level if it or the charging state has changed since the last
  // report, or if `force` is set. A changed level is saved first.
  void LevelReport(CallbackSource callback, bool force);
  void SaveStep() const;
  void SetReportedLevel(int level);

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

  // Guards the settings that hosts may change while the server thread runs. It is held for a copy,
  // never while a device, the registry or the host is called.
  mutable std::mutex lock_;
  VoltageTable voltages_ = kDefaultVoltages;
  bool voltages_supplied_ = false;
  StartingPoint starting_point_;
  uint32_t timer_epoch_ = 0;  // counts what the host does to the timers
  IntervalTimer poll_timer_;
  IntervalTimer smoothing_timer_;
  std::wstring device_path_;

  // The server thread's own.
  uint32_t step_epoch_ = 0;  // timer_epoch_ as it was when the step began
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
