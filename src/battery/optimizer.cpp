#include "battery/optimizer.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "commands/request_frames.h"
#include "perilink/battery.h"
#include "perilink/finder.h"
#include "platform/guard.h"
#include "platform/runtime.h"
#include "platform/win32.h"
#include "transport/exchange.h"
#include "transport/frame.h"

namespace perilink {
namespace {

using std::memory_order_relaxed;

constexpr int kLargeDifference = 30;
constexpr uint8_t kNearFullMeasured = 95;
constexpr uint8_t kNearFullReported = 85;
constexpr uint8_t kFull = 100;
constexpr uint8_t kLow = 15;
// So many readings of a full battery in a row make the shown level full as well.
constexpr int kFullReadings = 9;

// The ages of a starting point, in seconds, between which it bounds the measured level.
constexpr uint64_t kFreshAge = 60;
constexpr uint64_t kStaleAge = 1800;
// How fast a level can rise and fall, in percent per second.
constexpr double kRisePerSecond = 0.028;
constexpr double kFallPerSecond = 0.014;

// A level report looks like the device's answer to the battery command. Hosts know it by this
// last byte, which is not the checksum of the others.
constexpr CommandFrame kLevelReportFrame = {
    .report_id = PERILINK_REPORT_ID,
    .command = PERILINK_COMMAND_BATTERY_LEVEL,
    .status = 0,
    .address_high = 0,
    .address_low = 0,
    .length = 2,
    .data = {},
    .checksum = 0x49,
};

// Where the smoothing starts, for a measured level and a starting point of some age. A negative
// age counts as ages ago.
uint8_t StartLevel(uint8_t measured, uint8_t last, int64_t elapsed_seconds) {
  const uint64_t age = static_cast<uint64_t>(elapsed_seconds);
  if (age > kStaleAge) return measured;
  if (age < kFreshAge) return last;
  const int rise = static_cast<int>(static_cast<double>(age) * kRisePerSecond);
  const int fall = static_cast<int>(static_cast<double>(age) * kFallPerSecond);
  const int highest = std::min<int>(last + rise, kFull);
  const int lowest = std::max(last - fall, 0);
  if (measured > highest) return static_cast<uint8_t>(highest);
  if (measured < lowest) return static_cast<uint8_t>(lowest);
  return last;
}

}  // namespace

BatteryOptimizer& BatteryOptimizer::Instance() {
  alignas(BatteryOptimizer) static std::byte memory[sizeof(BatteryOptimizer)];
  static BatteryOptimizer* const optimizer = new (memory) BatteryOptimizer;
  return *optimizer;
}

// ---- Settings ---------------------------------------------------------------------------------

void BatteryOptimizer::SetParam(uint8_t jump, uint32_t step_interval_ms,
                                uint32_t near_full_interval_ms) {
  jump_on_large_difference_.store(jump, memory_order_relaxed);
  step_interval_ms_.store(step_interval_ms, memory_order_relaxed);
  near_full_interval_ms_.store(near_full_interval_ms, memory_order_relaxed);
}

void BatteryOptimizer::SetSection(const uint32_t* voltages) {
  const std::lock_guard guard(lock_);
  std::transform(voltages, voltages + kVoltagePoints, voltages_.begin(),
                 [](uint32_t voltage) { return static_cast<int32_t>(voltage); });
  voltages_supplied_ = true;
}

void BatteryOptimizer::SetLastBattery(int32_t elapsed_seconds, uint8_t level) {
  const std::lock_guard guard(lock_);
  starting_point_ = {.supplied = true, .elapsed_seconds = elapsed_seconds, .level = level};
}

void BatteryOptimizer::SetDriverStatus(bool present) {
  const uint64_t now_ms = GetTickCount64();
  const std::lock_guard guard(lock_);
  ++timer_epoch_;
  poll_timer_ = {.armed = present, .start_ms = now_ms, .interval_ms = 0};
  if (!present) smoothing_timer_.armed = false;
}

// ---- Timers -----------------------------------------------------------------------------------

void BatteryOptimizer::BeginStep() {
  const std::lock_guard guard(lock_);
  step_epoch_ = timer_epoch_;
}

void BatteryOptimizer::Arm(IntervalTimer& timer, uint32_t interval_ms) {
  const uint64_t now_ms = GetTickCount64();
  const std::lock_guard guard(lock_);
  if (step_epoch_ != timer_epoch_) return;
  timer = {.armed = true, .start_ms = now_ms, .interval_ms = interval_ms};
}

void BatteryOptimizer::RestartSmoothing() {
  const uint64_t now_ms = GetTickCount64();
  const std::lock_guard guard(lock_);
  if (smoothing_timer_.armed) smoothing_timer_.start_ms = now_ms;
}

void BatteryOptimizer::DisarmSmoothing() {
  const std::lock_guard guard(lock_);
  smoothing_timer_.armed = false;
}

bool BatteryOptimizer::TakePoll() {
  const uint64_t now_ms = GetTickCount64();
  const std::lock_guard guard(lock_);
  step_epoch_ = timer_epoch_;
  if (!poll_timer_.Due(now_ms)) return false;
  poll_timer_ = {.armed = true, .start_ms = now_ms, .interval_ms = kPollIntervalMs};
  return true;
}

bool BatteryOptimizer::TakeSmoothing() {
  const uint64_t now_ms = GetTickCount64();
  const std::lock_guard guard(lock_);
  if (!smoothing_timer_.Due(now_ms)) return false;
  smoothing_timer_.armed = false;
  return true;
}

uint64_t BatteryOptimizer::NextDueMs() const {
  if (!Enabled()) return UINT64_MAX;
  const std::lock_guard guard(lock_);
  const uint64_t smoothing_ms = smoothing_active_ ? smoothing_timer_.DueMs() : UINT64_MAX;
  return std::min(poll_timer_.DueMs(), smoothing_ms);
}

// ---- The server's calls -----------------------------------------------------------------------

void BatteryOptimizer::Connect(const std::wstring& path) {
  const uint64_t now_ms = GetTickCount64();
  const std::lock_guard guard(lock_);
  device_path_ = path;
  poll_timer_ = {.armed = true, .start_ms = now_ms, .interval_ms = 0};
}

void BatteryOptimizer::Drive(CallbackSource callback) {
  if (!Enabled()) return;
  if (TakePoll()) PollStep();
  if (smoothing_active_) SmoothingStep(callback);
}

std::optional<uint8_t> BatteryOptimizer::TakeEvent(uint8_t flags, CallbackSource callback) {
  if (!Enabled()) return flags;
  if ((flags & PERILINK_EVENT_BATTERY) != 0) {
    BeginStep();
    PollForEvent(callback);
  }
  const auto others = static_cast<uint8_t>(flags & ~PERILINK_EVENT_BATTERY);
  return others != 0 ? std::optional(others) : std::nullopt;
}

void BatteryOptimizer::PollForEvent(CallbackSource callback) {
  const uint8_t charging_before = last_reading_.charging;
  PollStep();
  Arm(poll_timer_, kPollIntervalMs);
  if (!smoothing_active_) return;

  const bool forced = ForceLevel(last_reading_.level);
  if (forced || last_reading_.charging != charging_before) {
    LevelReport(callback, true);
    RestartSmoothing();
  }
  if (last_reading_.level >= kFull && reported_level_ < kFull) {
    Arm(poll_timer_, kFullIntervalMs);
    Arm(smoothing_timer_, kFullIntervalMs);
  }
}

// True when the reading overrules the smoothed level: the device itself says that it is low.
bool BatteryOptimizer::ForceLevel(uint8_t raw_level) {
  if (raw_level == 0) {
    reported_level_ = 0;
    return true;
  }
  if (raw_level > kLow || reported_level_ <= kLow) return false;
  reported_level_ = kLow;
  return true;
}

bool BatteryOptimizer::TakeBatteryAnswer(CallbackSource callback) {
  if (!Enabled()) return false;
  LevelReport(callback, true);
  return true;
}

// ---- Polling ----------------------------------------------------------------------------------

// Cuts a level of a record or of the device to 100 percent.
void BatteryOptimizer::SetReportedLevel(int level) {
  reported_level_ = static_cast<uint8_t>(std::clamp<int>(level, 0, kFull));
}

// Success refreshes the reading and starts smoothing; failure ends smoothing until a poll succeeds.
void BatteryOptimizer::PollStep() {
  CommandFrame on_line_reply{};
  if (!ReadDevice(on_line_reply)) {
    smoothing_active_ = false;
    DisarmSmoothing();
    return;
  }

  if (!first_reading_done_.load(memory_order_relaxed)) {
    std::copy_n(on_line_reply.data + 1, device_address_.size(), device_address_.begin());
    first_reading_done_.store(true, memory_order_relaxed);
    EstimateStart();
  }

  measured_level_ = MeasuredLevel();
  smoothing_active_ = true;
  if (jump_on_large_difference_.load(memory_order_relaxed) != 0 &&
      std::abs(measured_level_ - reported_level_) > kLargeDifference)
    SetReportedLevel(measured_level_);

  bool smoothing_armed = false;
  {
    const std::lock_guard guard(lock_);
    smoothing_armed = smoothing_timer_.armed;
  }
  if (!smoothing_armed) Arm(smoothing_timer_, 0);
}

// Sends both commands even if the first fails, and keeps the reading even if the device's address
// is not known: a host that reads the battery sees the newest one.
bool BatteryOptimizer::ReadDevice(CommandFrame& on_line_reply) {
  std::wstring path;
  try {
    const std::lock_guard guard(lock_);
    path = device_path_;
  } catch (const std::bad_alloc&) {
    return false;
  }
  const bool on_line = ExchangeFrame(path, BuildOnLineFrame(), on_line_reply);
  const bool read = UsbFinder_GetBatteryLevel(path, &last_reading_);
  return on_line && read;
}

uint8_t BatteryOptimizer::MeasuredLevel() const {
  if (last_reading_.voltage == 0) return last_reading_.level;
  const std::lock_guard guard(lock_);
  return VoltageToPercent(voltages_, last_reading_.voltage, last_reading_.charging);
}

void BatteryOptimizer::EstimateStart() {
  const StartingPoint start = FindStartingPoint();
  SetReportedLevel(StartLevel(MeasuredLevel(), start.level, start.elapsed_seconds));
}

BatteryOptimizer::StartingPoint BatteryOptimizer::FindStartingPoint() {
  StartingPoint host;
  {
    const std::lock_guard guard(lock_);
    host = starting_point_;
    save_allowed_ = !host.supplied || host.elapsed_seconds == kUnknownAge;
    if (save_allowed_ && !voltages_supplied_) voltages_ = kDefaultVoltages;
  }
  return save_allowed_ ? LoadStartingPoint(host) : host;
}

BatteryOptimizer::StartingPoint BatteryOptimizer::LoadStartingPoint(const StartingPoint& host) {
  const SavedRecord record = ReadSavedRecord(device_address_);
  const uint32_t now = static_cast<uint32_t>(CalendarTime());
  const StartingPoint loaded = {.supplied = host.supplied,
                                .elapsed_seconds = static_cast<int32_t>(now - record.time),
                                .level = record.level};
  const std::lock_guard guard(lock_);
  // A starting point that the host has set while the registry was read is kept.
  if (starting_point_ == host) starting_point_ = loaded;
  return loaded;
}

// ---- Smoothing --------------------------------------------------------------------------------

void BatteryOptimizer::SmoothingStep(CallbackSource callback) {
  if (!TakeSmoothing()) return;
  uint32_t next_interval_ms = step_interval_ms_.load(memory_order_relaxed);
  if (last_reading_.charging == 0) {
    StepDischarging();
  } else if (!StepCharging(next_interval_ms)) {
    Arm(poll_timer_, kFullIntervalMs);
    Arm(smoothing_timer_, kFullIntervalMs);
    return;
  }
  SetReportedLevel(reported_level_);
  LevelReport(callback, false);
  Arm(smoothing_timer_, next_interval_ms);
}

// False when a full battery must be seen again soon, before anything is reported.
bool BatteryOptimizer::StepCharging(uint32_t& next_interval_ms) {
  if (measured_level_ >= kNearFullMeasured && reported_level_ >= kNearFullReported) {
    next_interval_ms = near_full_interval_ms_.load(memory_order_relaxed);
    if (reported_level_ < kFull - 1) ++reported_level_;
  } else if (measured_level_ > reported_level_ + 10) {
    ++reported_level_;
  }

  if (last_reading_.level < kFull) {
    full_count_ = 0;
    return true;
  }
  if (++full_count_ > kFullReadings) {
    reported_level_ = kFull;
    full_count_ = 0;
    return true;
  }
  return reported_level_ >= kFull;
}

void BatteryOptimizer::StepDischarging() {
  full_count_ = 0;
  if (reported_level_ <= measured_level_) return;
  if (last_reading_.level == 0) {
    reported_level_ = 0;
    return;
  }
  --reported_level_;
  // The device says that its battery is low; the shown level must not say otherwise.
  if (last_reading_.level <= kLow) reported_level_ = std::min(reported_level_, kLow);
}

// ---- Reporting and saving ---------------------------------------------------------------------

void BatteryOptimizer::LevelReport(CallbackSource source, bool force) {
  const uint8_t level = reported_level_;
  const bool charging = last_reading_.charging != 0;
  if (level == last_reported_ && charging == last_reported_charging_ && !force) return;
  if (level != last_reported_ && save_allowed_ && Enabled()) SaveStep();
  last_reported_ = level;
  last_reported_charging_ = charging;
  const ServerReportCallback callback = source();
  if (callback == nullptr) return;
  const uint8_t data[4] = {level, last_reading_.charging,
                           static_cast<uint8_t>(last_reading_.voltage >> 8),
                           static_cast<uint8_t>(last_reading_.voltage)};
  callback(FrameBytes(kLevelReportFrame).data(), sizeof(CommandFrame), data, sizeof(data));
}

void BatteryOptimizer::SaveStep() const {
  WriteSavedRecord(device_address_, CalendarTime(), reported_level_);
}

void BatteryOptimizer::EndConnection() {
  if (save_allowed_ && Enabled()) SaveStep();
  first_reading_done_.store(false, memory_order_relaxed);
  const std::lock_guard guard(lock_);
  starting_point_.elapsed_seconds = kUnknownAge;
  starting_point_.supplied = false;
  voltages_supplied_ = false;
  poll_timer_.armed = false;
}

}  // namespace perilink

// ---- Exports ----------------------------------------------------------------------------------

using perilink::BatteryOptimizer;
using perilink::Guarded;

void UsbServer_SetBatteryOptimizeEnable(uint8_t enable) {
  BatteryOptimizer::Instance().SetEnabled(enable);
}

void UsbServer_SetBatteryOptimizeLastBattery(int32_t elapsed_seconds, uint8_t level) {
  Guarded([&] { BatteryOptimizer::Instance().SetLastBattery(elapsed_seconds, level); });
}

void UsbServer_SetBatteryOptimizeParam(uint8_t jump, uint32_t step_interval_ms,
                                       uint32_t near_full_interval_ms) {
  BatteryOptimizer::Instance().SetParam(jump, step_interval_ms, near_full_interval_ms);
}

void UsbServer_SetBatteryOptimizeSection(const uint32_t* voltages) {
  Guarded([&] { BatteryOptimizer::Instance().SetSection(voltages); });
}
