#include "server/dispatcher.h"

#include <algorithm>
#include <cstring>

#include "protocol/stored.h"
#include "server/flash_read.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr uint8_t kBatteryFlag = 0x40;
constexpr uint8_t kLowLevel = 15;
constexpr uint8_t kFullLevel = 100;
// Answers to these two declare a length of their own; the host always gets four bytes.
constexpr uint32_t kStatusAnswerLength = 4;

uint16_t Address(const CommandFrame& frame) {
  return static_cast<uint16_t>(frame.address_high << 8 | frame.address_low);
}

bool AnswersHead(const CommandFrame& report, const QueueEntry& head) {
  return head.pending != 1 && head.frame.command == report.command;
}

}  // namespace

void Dispatcher::DispatchReport(const CommandFrame& report, bool& awaiting_reply) {
  if (report.command == kCommandEvent) {
    HandleEvent(report);
    return;
  }
  Answer answer;
  if (TakeAnswer(report, awaiting_reply, answer)) ReportAnswer(answer);
}

void Dispatcher::HandleEvent(const CommandFrame& report) {
  constexpr uint32_t kEventLength = sizeof(report.data);
  std::copy_n(report.data, kEventLength, reply_data_.begin());
  if (!optimizer_.Enabled()) {
    CallHost(report, kEventLength);
    return;
  }
  uint8_t& flags = reply_data_[0];
  if ((flags & kBatteryFlag) != 0) {
    PollAfterBatteryEvent();
    flags = static_cast<uint8_t>(flags & ~kBatteryFlag);
  }
  if (flags != 0) CallHost(report, kEventLength);
}

void Dispatcher::PollAfterBatteryEvent() {
  const uint8_t charging_before = optimizer_.LastReading().charging;
  optimizer_.PollStep();
  optimizer_.ArmPoll(BatteryOptimizer::kPollIntervalMs);
  if (!optimizer_.SmoothingActive()) return;

  const BatteryLevel reading = optimizer_.LastReading();
  const bool forced = ForceLevel(reading.level);
  if (forced || reading.charging != charging_before) {
    optimizer_.LevelReport(optimizer_.ReportedLevel(), state_.Callback(), true);
    optimizer_.RestartSmoothing();
  }
  if (reading.level >= kFullLevel && optimizer_.ReportedLevel() < kFullLevel) {
    optimizer_.ArmPoll(BatteryOptimizer::kFullIntervalMs);
    optimizer_.ArmSmoothing(BatteryOptimizer::kFullIntervalMs);
  }
}

bool Dispatcher::ForceLevel(uint8_t raw_level) {
  if (raw_level == 0) {
    optimizer_.SetReportedLevel(0);
    return true;
  }
  if (raw_level <= kLowLevel && optimizer_.ReportedLevel() > kLowLevel) {
    optimizer_.SetReportedLevel(kLowLevel);
    return true;
  }
  return false;
}

bool Dispatcher::TakeAnswer(const CommandFrame& report, bool& awaiting_reply, Answer& answer) {
  ServerState::Queues queues = state_.LockQueues();
  if (queues.commands.Empty() || !AnswersHead(report, queues.commands.Head())) return false;
  QueueEntry& head = queues.commands.Head();

  // A device acknowledges a write by echoing it exactly. Anything else and it is written again.
  if (report.command == kCommandWriteMemory &&
      std::memcmp(&report, &head.frame, sizeof(report)) != 0) {
    head.pending = 1;
    return false;
  }
  if (report.command == kCommandReadMemory && report.report_id == kReportId)
    StoredProtocolData::Instance().StoreReply(Address(report), report.data);

  QueueEntry answered = head;
  answered.frame = report;
  // First what may run out of memory: the head is then still awaited, and asked for again.
  queues.replies.Append(answered);
  awaiting_reply = false;
  answer.frame = head.frame;
  answer.frame.length = report.length;
  answer.continuation = head.continuation;
  queues.commands.PopHead();
  if (answered.last_chunk == 0) return false;

  const uint8_t length_mask = KeyboardTargetFlag() ? uint8_t{0x7F} : uint8_t{0xFF};
  answer.length = queues.replies.Assemble(reply_data_, length_mask);
  queues.replies.Clear();
  return true;
}

void Dispatcher::ReportAnswer(Answer answer) {
  if (answer.continuation != kNoContinuation && answer.continuation <= kLastFlashReadTag) {
    ContinueFlashRead(answer.continuation, reply_data_);
    return;
  }
  if (answer.length <= sizeof(CommandFrame::data)) {
    if (answer.frame.command == kCommandBatteryLevel) {
      if (optimizer_.Enabled()) {
        optimizer_.LevelReport(optimizer_.ReportedLevel(), state_.Callback(), true);
        return;
      }
      answer.length = kStatusAnswerLength;
    } else if (answer.frame.command == kCommandOnLine) {
      answer.length = kStatusAnswerLength;
    }
  }
  CallHost(answer.frame, answer.length);
}

void Dispatcher::CallHost(const CommandFrame& frame, uint32_t data_length) {
  const ServerReportCallback callback = state_.Callback();
  if (callback == nullptr) return;
  callback(FrameBytes(frame).data(), sizeof(CommandFrame), reply_data_.data(), data_length);
}

}  // namespace perilink
