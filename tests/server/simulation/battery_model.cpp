#include "battery_model.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "note.h"
#include "perilink_platform/runtime.h"
#include "perilink_platform/world.h"
#include "seam.h"
#include "server/state.h"
#include "transport/frame.h"

namespace perilink::testing {
namespace {

constexpr uint32_t kPollMs = 5000;
constexpr uint32_t kFullMs = 100;
// A loop that awaits something looks at its timers so often at least, and a moment later.
constexpr uint64_t kLatestMs = 100 + 5;
// Of a timer that has just been armed: when exactly is seen later.
constexpr uint64_t kJustNow = UINT64_MAX - 1'000'000'000;

uint64_t NowMs() {
  return platform::NowMicros() / 1000;
}

bool Same(const IntervalTimer& a, const IntervalTimer& b) {
  return a.armed == b.armed &&
         (!a.armed || (a.start_ms == b.start_ms && a.interval_ms == b.interval_ms));
}

std::wstring ValueName(const DeviceAddress& address) {
  wchar_t name[32];
  std::swprintf(name, std::size(name), L"BatteryValue_%02x%02x%02x", address[0], address[1],
                address[2]);
  return name;
}

}  // namespace

// ---- Hosts ------------------------------------------------------------------------------------

void BatteryModel::SetEnabled(uint8_t enabled) {
  enabled_ = enabled;
  enabled_since_ms_ = NowMs();
}

void BatteryModel::SetParam(uint8_t jump, uint32_t step_ms, uint32_t near_full_ms) {
  jump_ = jump;
  step_ms_ = step_ms;
  near_full_ms_ = near_full_ms;
}

void BatteryModel::SetSection(const uint32_t* voltages) {
  std::copy_n(voltages, state_.voltages.size(), state_.voltages.begin());
  state_.voltages_supplied = true;
}

void BatteryModel::SetLastBattery(int32_t elapsed_seconds, uint8_t level) {
  state_.start_supplied = true;
  state_.start_age = elapsed_seconds;
  state_.start_level = level;
}

void BatteryModel::SetDriverStatus(uint8_t status) {
  ++epoch_;
  const uint64_t start_ms = BatterySteps().Copy().poll.start_ms;
  if (NowMs() - start_ms > 1) Broken("the driver's status has not reached the timers");
  state_.poll = {.armed = status != 0, .start_ms = start_ms, .interval_ms = 0};
  if (status == 0) state_.smoothing.armed = false;
}

// ---- Timers -----------------------------------------------------------------------------------

// Not if a host has said something of the timers since the step began.
void BatteryModel::Arm(IntervalTimer& timer, uint32_t interval_ms) {
  if (step_epoch_ == epoch_)
    timer = {.armed = true, .start_ms = kJustNow, .interval_ms = interval_ms};
}

bool BatteryModel::MayBeDue(const IntervalTimer& timer) const {
  IntervalTimer earliest = timer;
  if (timer.start_ms == kJustNow) earliest.start_ms = checked_ms_;
  return earliest.Due(NowMs());
}

void BatteryModel::Follow(IntervalTimer& timer, const IntervalTimer& real) const {
  if (timer.start_ms == kJustNow && real.armed && real.interval_ms == timer.interval_ms &&
      real.start_ms >= checked_ms_ && real.start_ms <= NowMs())
    timer.start_ms = real.start_ms;
}

bool BatteryModel::Overdue(const IntervalTimer& timer, uint64_t free_since_ms) const {
  return timer.armed &&
         NowMs() > std::max({timer.DueMs(), enabled_since_ms_, free_since_ms}) + kLatestMs;
}

// ---- Polls ------------------------------------------------------------------------------------

void BatteryModel::OnConnected() {
  Settle();
  left_ = false;
  state_.poll = {.armed = true, .start_ms = kJustNow, .interval_ms = 0};
}

void BatteryModel::BeginPoll() {
  step_epoch_ = epoch_;
  poll_.emplace();
  poll_->charging_before = state_.reading.charging;
  poll_->for_event = std::exchange(event_awaited_, false);
  if (poll_->for_event) return;
  if (!enabled() || !MayBeDue(state_.poll)) Broken("the battery is polled before its time");
  Arm(state_.poll, kPollMs);
}

void BatteryModel::OnPollOpened() {
  FinishPoll();
  if (!poll_) BeginPoll();
  if (poll_->opens++ % 2 != 0) return;
  poll_->question =
      BuildFrame(poll_->opens == 1 ? PERILINK_COMMAND_ON_LINE : PERILINK_COMMAND_BATTERY_LEVEL, 0);
  poll_->writes = 0;
}

void BatteryModel::OnPollWritten(const CommandFrame& frame) {
  if (!poll_ || std::memcmp(&frame, &poll_->question, sizeof(frame)) != 0)
    Broken("a poll asks something else");
  if (++poll_->writes > 3) Broken("a poll asks too often");
}

void BatteryModel::OnPollAnswer(const CommandFrame& report) {
  if (FrameChecksum(report) != report.checksum || report.command != poll_->question.command) return;
  auto& answer = poll_->answers[poll_->opens > 2];
  if (answer) Broken("a poll goes on after its answer");
  answer = report;
}

void BatteryModel::FinishPoll() {
  if (!poll_ || poll_->opens != 4) return;
  const Poll poll = *std::exchange(poll_, std::nullopt);
  const auto& [on_line, battery] = poll.answers;
  if (battery) {
    const uint8_t* data = battery->data;
    state_.reading = {data[0], data[1], static_cast<uint16_t>(data[2] << 8 | data[3])};
  }
  state_.active = on_line && battery;
  polled_in_pass_ = !poll.for_event;
  if (state_.active) {
    if (!std::exchange(state_.first_reading_done, true)) {
      std::copy_n(on_line->data + 1, state_.address.size(), state_.address.begin());
      Estimate();
    }
    state_.measured = Measured();
    if (jump_ != 0 && std::abs(state_.measured - state_.reported) > 30)
      state_.reported = std::min<uint8_t>(state_.measured, 100);
    if (!state_.smoothing.armed) Arm(state_.smoothing, 0);
  } else {
    state_.smoothing.armed = false;
  }
  if (poll.for_event) FinishEventPoll(poll.charging_before);
}

void BatteryModel::FinishEventPoll(uint8_t charging_before) {
  Arm(state_.poll, kPollMs);
  if (!state_.active) return;
  const uint8_t raw = state_.reading.level;
  const bool forced = raw == 0 || (raw <= 15 && state_.reported > 15);
  if (forced) state_.reported = raw == 0 ? 0 : 15;
  level_awaited_ = forced || state_.reading.charging != charging_before;
  restarts_smoothing_ = level_awaited_;
  if (raw < 100 || state_.reported >= 100) return;
  Arm(state_.poll, kFullMs);
  Arm(state_.smoothing, kFullMs);
}

// ---- Levels -----------------------------------------------------------------------------------

uint8_t BatteryModel::Measured() const {
  const int volts = state_.reading.voltage;
  if (volts == 0) return state_.reading.level;
  if (volts >= state_.voltages.back()) return state_.reading.charging == 1 ? 99 : 100;
  size_t above = 0;
  while (volts >= state_.voltages[above])
    ++above;
  if (above == 0) return 1;
  const int below = state_.voltages[above - 1];
  const int percent =
      5 * static_cast<int>(above - 1) + (volts - below) / ((state_.voltages[above] - below) / 5);
  return static_cast<uint8_t>(percent == 0 || percent == 15 ? percent + 1 : percent);
}

uint8_t BatteryModel::StartLevel(uint8_t last, int64_t age) const {
  const int measured = Measured();
  int level = last;
  if (age < 0 || age > 1800) {
    level = measured;
  } else if (age >= 60) {
    const int highest = std::min(last + static_cast<int>(static_cast<double>(age) * 0.028), 100);
    const int lowest = std::max(last - static_cast<int>(static_cast<double>(age) * 0.014), 0);
    if (measured > highest) level = highest;
    if (measured < lowest) level = lowest;
  }
  return static_cast<uint8_t>(std::min(level, 100));
}

void BatteryModel::Estimate() {
  state_.save_allowed = !state_.start_supplied || state_.start_age == -1;
  if (state_.save_allowed) {
    if (!state_.voltages_supplied) state_.voltages = kDefaultVoltages;
    uint32_t time = 0;
    state_.start_level = 100;
    const auto saved = TheSeam().registry.find(ValueName(state_.address));
    if (saved != TheSeam().registry.end() && !TheSeam().registry_fails) {
      unsigned level = 0;
      std::swscanf(saved->second.c_str(), L"%u-%u", &time, &level);
      state_.start_level = static_cast<uint8_t>(level);
    }
    // The second may have ended since.
    const int64_t seen_age = BatterySteps().Copy().start_age;
    const auto age = static_cast<int32_t>(static_cast<uint32_t>(platform::CalendarTime()) - time);
    state_.start_age = seen_age >= 0 && seen_age == age - 1 ? seen_age : age;
  }
  state_.reported = StartLevel(state_.start_level, state_.start_age);
}

// What has polled, the end of a pass included, goes on when a host disables it meanwhile.
bool BatteryModel::MayStep() const {
  return (enabled() || polled_in_pass_) && state_.active && MayBeDue(state_.smoothing);
}

// True when there is something to report.
bool BatteryModel::Step() {
  if (!polled_in_pass_) step_epoch_ = epoch_;
  state_.smoothing.armed = false;
  uint32_t next_ms = step_ms_;
  if (state_.reading.charging != 0) {
    if (!StepCharging(next_ms)) return false;
  } else {
    state_.full_count = 0;
    if (state_.reported > state_.measured) {
      --state_.reported;
      if (state_.reading.level == 0) state_.reported = 0;
      if (state_.reading.level <= 15) state_.reported = std::min<uint8_t>(state_.reported, 15);
    }
  }
  state_.reported = std::min<uint8_t>(state_.reported, 100);
  Arm(state_.smoothing, next_ms);
  return TakeLevelChange(false);
}

// False while a full battery must be seen more often.
bool BatteryModel::StepCharging(uint32_t& next_ms) {
  uint8_t& reported = state_.reported;
  if (state_.measured >= 95 && reported >= 85) {
    next_ms = near_full_ms_;
    if (reported < 99) ++reported;
  } else if (state_.measured > reported + 10) {
    ++reported;
  }
  if (state_.reading.level < 100) {
    state_.full_count = 0;
  } else if (++state_.full_count > 9) {
    reported = 100;
    state_.full_count = 0;
  } else if (reported < 100) {
    Arm(state_.poll, kFullMs);
    Arm(state_.smoothing, kFullMs);
    return false;
  }
  return true;
}

bool BatteryModel::TakeLevelChange(bool force) {
  const bool charging = state_.reading.charging != 0;
  const bool changed = state_.reported != state_.last_reported;
  if (!changed && charging == state_.last_charging && !force) return false;
  CheckSaved(changed && state_.save_allowed && enabled());
  state_.last_reported = state_.reported;
  state_.last_charging = charging;
  return true;
}

void BatteryModel::ReportAwaited() {
  level_awaited_ = false;
  TakeLevelChange(true);
  if (std::exchange(restarts_smoothing_, false) && state_.smoothing.armed)
    state_.smoothing.start_ms = kJustNow;
}

// Of the steps that have told nobody anything, those that are over when a level is saved. In the
// midst of one the level is another than the last one reported.
void BatteryModel::TakeUnheard() {
  if (level_awaited_ && (saved_ || state_.reported == state_.last_reported)) ReportAwaited();
  const BatterySteps::State real = BatterySteps().Copy();
  if (!level_awaited_ && real.reported == real.last_reported && MayStep()) Settle();
}

void BatteryModel::OnLevel(const uint8_t* data) {
  if (left_) Broken("a level is reported of a device that its host has left");
  FinishPoll();
  if (level_awaited_) {
    ReportAwaited();
  } else if (!MayStep() || !Step()) {
    Broken("a level is reported that nothing asks for");
  }
  const BatteryLevel& reading = state_.reading;
  const uint8_t expected[] = {state_.reported, reading.charging,
                              static_cast<uint8_t>(reading.voltage >> 8),
                              static_cast<uint8_t>(reading.voltage)};
  if (std::memcmp(data, expected, sizeof(expected)) != 0) Broken("another level is reported");
}

// ---- Saving -----------------------------------------------------------------------------------

void BatteryModel::OnSaved(const std::wstring& name, const std::wstring& text) {
  FinishPoll();
  if (name != ValueName(state_.address)) Broken("a level is saved for another device");
  unsigned time = 0;
  unsigned level = 0;
  if (std::swscanf(text.c_str(), L"0%u-%u", &time, &level) != 2 ||
      static_cast<uint64_t>(platform::CalendarTime()) - time > 1)
    Broken("a level is saved with another time");
  if (left_) TakeUnheard();
  if (saved_) Broken("a level is saved twice");
  saved_ = static_cast<uint8_t>(level);
}

void BatteryModel::CheckSaved(bool expected) {
  const auto saved = std::exchange(saved_, std::nullopt);
  if (std::exchange(save_in_doubt_, false)) return;
  if (saved.has_value() != (expected && !TheSeam().registry_fails))
    Broken("a level is saved that must not be, or the other way round");
  if (saved && *saved != state_.reported) Broken("another level is saved");
}

void BatteryModel::EndConnection() {
  ended_ = true;
  const bool just_enabled = enabled_since_ms_ + 2 >= NowMs();
  if (saved_ || !just_enabled) CheckSaved(state_.save_allowed && enabled());
  state_.first_reading_done = false;
  state_.start_age = -1;
  state_.start_supplied = false;
  state_.voltages_supplied = false;
  state_.poll.armed = false;
}

// The end of a connection shows in what it leaves, and at the latest when the loop is over.
void BatteryModel::LookForEnd() {
  const BatterySteps::State real = BatterySteps().Copy();
  if (saved_ || state_.first_reading_done != real.first_reading_done ||
      state_.poll.armed != real.poll.armed || state_.start_age != real.start_age ||
      state_.start_supplied != real.start_supplied ||
      state_.voltages_supplied != real.voltages_supplied)
    EndConnection();
}

void BatteryModel::OnLoopEnd() {
  Settle();
  if (!ended_) LookForEnd();
  if (!ended_) EndConnection();
}

// ---- Checks -----------------------------------------------------------------------------------

// Takes the model to where the optimiser is, by a step that has told nobody anything if need be.
void BatteryModel::Settle() {
  FinishPoll();
  if (level_awaited_ && left_) ReportAwaited();
  const BatterySteps::State real = BatterySteps().Copy();
  Follow(state_.poll, real.poll);
  Follow(state_.smoothing, real.smoothing);
  if (Same(state_.smoothing, real.smoothing)) return;
  if (!MayStep() || (Step() && !left_))
    Broken("the smoothing took a step that it must not take, or did not report it");
  Follow(state_.poll, real.poll);
  Follow(state_.smoothing, real.smoothing);
}

void BatteryModel::Check(uint64_t free_since_ms) {
  Settle();
  if (exit_requested_ && !ended_) LookForEnd();
  if (event_awaited_) Broken("an event has led to no poll");
  if (level_awaited_) Broken("a level that must be reported is not");
  if (saved_) Broken("a level is saved that is not reported");
  const BatterySteps::State real = BatterySteps().Copy();
  if (!Same(state_.smoothing, real.smoothing)) Broken("the smoothing's timer is wrong");
  if (!Same(state_.poll, real.poll)) Broken("the poll's timer is wrong");
  if (state_.reported != real.reported || state_.measured != real.measured ||
      state_.active != real.active || state_.full_count != real.full_count ||
      state_.last_reported != real.last_reported || state_.address != real.address ||
      state_.first_reading_done != real.first_reading_done)
    Broken("the smoothing is somewhere else");
  checked_ms_ = NowMs();
  polled_in_pass_ = false;
  // A device that could not be opened is opened again.
  left_ = left_ || ServerState::Instance().ReopenRequested();
  if (!enabled()) return;
  if (Overdue(state_.poll, free_since_ms)) Broken("the battery is not polled");
  if (state_.active && Overdue(state_.smoothing, free_since_ms)) Broken("no smoothing");
}

void BatteryModel::Adopt() {
  state_ = BatterySteps().Copy();
  poll_.reset();
  saved_.reset();
  event_awaited_ = level_awaited_ = restarts_smoothing_ = false;
  save_in_doubt_ = true;
}

}  // namespace perilink::testing
