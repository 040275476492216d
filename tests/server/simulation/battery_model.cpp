#include "battery_model.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <utility>

#include "note.h"
#include "perilink_platform/runtime.h"
#include "perilink_platform/world.h"
#include "server/state.h"
#include "transport/frame.h"

namespace perilink::testing {
namespace {

constexpr uint64_t kPollMs = 5000;
constexpr uint64_t kFullMs = 100;  // of a battery that says that it is full
// A loop that awaits something looks at its timers so often at least, and a moment later.
constexpr uint64_t kLatestMs = 100 + 5;

uint64_t NowMs() {
  return platform::NowMicros() / 1000;
}

}  // namespace

// ---- Hosts ------------------------------------------------------------------------------------

void BatteryModel::SetEnabled(uint8_t enabled) {
  host_.enabled = enabled != 0;
  enabled_since_ms_ = NowMs();
}

void BatteryModel::SetDriverStatus(uint8_t status) {
  host_.driver_gone = status == 0;
  ++host_.words;
  earliest_poll_ms_ = NowMs();
  latest_poll_ms_ = status != 0 ? NowMs() : UINT64_MAX;
}

// Since the step under way began. One that began before goes on to its end.
bool BatteryModel::Off() const {
  return !host_.enabled && !host_before_.enabled;
}
bool BatteryModel::Stopped() const {
  return host_.driver_gone && host_before_.driver_gone;
}

// ---- Polls ------------------------------------------------------------------------------------

void BatteryModel::OnConnected() {
  FinishPoll();
  if (std::exchange(left_, false)) {  // what was reported since, nobody has heard
    ForgetReports();
    shown_.reset();
  }
  host_.driver_gone = false;
  earliest_poll_ms_ = latest_poll_ms_ = NowMs();
}

void BatteryModel::BeginPoll() {
  poll_ = Poll{};
  poll_->words = host_.words;
  poll_->for_event = std::exchange(event_awaited_, false);
  if (!poll_->for_event && (Off() || Stopped() || NowMs() < earliest_poll_ms_))
    Broken("the battery is polled before its time");
  earliest_poll_ms_ = NowMs();
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
  const uint8_t charging_before = reading_.charging;
  if (battery) {
    const uint8_t* data = battery->data;
    reading_ = {data[0], data[1], static_cast<uint16_t>(data[2] << 8 | data[3])};
  }
  const bool known_before = std::exchange(reading_known_, reading_known_ || battery);
  // What the host has said of the timers meanwhile holds.
  if (poll.words == host_.words) {
    host_.driver_gone = false;
    earliest_poll_ms_ += reading_.level < 100 ? kPollMs : kFullMs;
    latest_poll_ms_ = NowMs() + kPollMs;
  }
  if (!poll.for_event || !on_line || !battery) return;
  level_allowed_ = true;
  level_awaited_ = reading_.level == 0 || (known_before && reading_.charging != charging_before);
}

// ---- Levels -----------------------------------------------------------------------------------

void BatteryModel::OnLevel(const uint8_t* data) {
  if (left_) Broken("a level is reported of a device that its host has left");
  FinishPoll();
  const Shown shown = {data[0], data[1] != 0};
  const bool asked_for = std::exchange(level_awaited_, false) || level_allowed_;
  level_allowed_ = false;
  if (!asked_for && (Off() || Stopped() || shown_ == shown))
    Broken("a level is reported that nothing asks for");
  const BatteryLevel told = {data[0], data[1], static_cast<uint16_t>(data[2] << 8 | data[3])};
  if (told.level > 100 ||
      (reading_known_ && (told.charging != reading_.charging || told.voltage != reading_.voltage)))
    Broken("a level is reported that no reading gives");
  if (const auto saved = std::exchange(saved_, std::nullopt); saved && *saved != shown.level)
    Broken("another level is saved");
  shown_ = shown;
}

void BatteryModel::OnSaved(const std::wstring& name, const std::wstring& text) {
  FinishPoll();
  if (name != L"BatteryValue_1a2b00" && name != L"BatteryValue_1a2b01" &&
      name != L"BatteryValue_000000")
    Broken("a level is saved for another device");
  unsigned time = 0;
  unsigned level = 0;
  if (std::swscanf(text.c_str(), L"0%u-%u", &time, &level) != 2 || level > 100 ||
      static_cast<uint64_t>(platform::CalendarTime()) - time > 1)
    Broken("no percentage is saved, or with another time");
  if (Off()) Broken("a level is saved though nobody smooths it");
  if (saved_ && !left_ && !exit_requested_) Broken("a level is saved twice");
  saved_ = static_cast<uint8_t>(level);
}

void BatteryModel::OnLoopEnd() {
  FinishPoll();
  poll_.reset();
  ForgetReports();
  event_awaited_ = false;
  latest_poll_ms_ = UINT64_MAX;
}

void BatteryModel::ForgetReports() {
  saved_.reset();
  level_awaited_ = level_allowed_ = false;
}

// ---- Checks -----------------------------------------------------------------------------------

void BatteryModel::Check(uint64_t free_since_ms) {
  FinishPoll();
  if (event_awaited_) Broken("an event has led to no poll");
  if (level_awaited_ && !left_) Broken("a level that must be reported is not");
  if (saved_ && !left_ && !exit_requested_) Broken("a level is saved that is not reported");
  ForgetReports();
  host_before_ = host_;
  // A device that could not be opened is opened again.
  left_ = left_ || ServerState::Instance().ReopenRequested();
  if (host_.enabled && latest_poll_ms_ != UINT64_MAX &&
      NowMs() > std::max({latest_poll_ms_, enabled_since_ms_, free_since_ms}) + kLatestMs)
    Broken("the battery is not polled");
}

void BatteryModel::OnShortage() {
  OnLoopEnd();
  shown_.reset();
  reading_known_ = false;
  earliest_poll_ms_ = 0;
  level_allowed_ = true;
}

}  // namespace perilink::testing
