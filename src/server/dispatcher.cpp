#include "server/dispatcher.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "platform/guard.h"
#include "protocol/stored.h"

namespace perilink {
namespace {

// Answers to these two declare a length of their own; the host always gets four bytes.
constexpr uint32_t kStatusAnswerLength = 4;

bool AnswersHead(const CommandFrame& report, const QueueEntry& head) {
  return head.pending != 1 && head.frame.command == report.command;
}

ReadRange RangeOf(const CommandFrame& frame) {
  return {.address = FrameAddress(frame), .length = FrameDataLength(frame)};
}

}  // namespace

Meaning Dispatcher::DispatchReport(const ValidFrame& report) noexcept {
  if (report->command == PERILINK_COMMAND_EVENT) {
    Guarded([&] { HandleEvent(*report); });
    return Meaning::kNoAnswer;
  }
  Answer answer;
  const Taken taken = Guarded(Taken::kNothing, [&] { return TakeAnswer(*report, answer); });
  if (taken == Taken::kWhole) Guarded([&] { ReportAnswer(answer); });
  return taken == Taken::kNothing ? Meaning::kNoAnswer : Meaning::kAnswer;
}

void Dispatcher::HandleEvent(const CommandFrame& report) {
  constexpr uint32_t kEventLength = sizeof(report.data);
  std::copy_n(report.data, kEventLength, reply_data_.begin());
  const std::optional<uint8_t> flags =
      optimizer_.TakeEvent(reply_data_[0], &ServerState::CallbackForReport);
  if (!flags) return;
  reply_data_[0] = *flags;
  CallHost(ServerState::CallbackForReport(), report, kEventLength);
}

Dispatcher::Taken Dispatcher::TakeAnswer(const CommandFrame& report, Answer& answer) {
  ServerState::Queues queues = state_.LockQueues();
  if (queues.commands.Empty() || !AnswersHead(report, queues.commands.Head())) {
    if (report.command == PERILINK_COMMAND_READ_MEMORY) echo_.Hear(RangeOf(report));
    return Taken::kNothing;
  }
  QueueEntry& head = queues.commands.Head();

  // A device acknowledges a write by echoing it exactly. Anything else and it is written again.
  if (report.command == PERILINK_COMMAND_WRITE_MEMORY) {
    if (std::memcmp(&report, &head.frame, sizeof(report)) != 0) {
      head.pending = 1;
      return Taken::kNothing;
    }
    flash_reads_.OnWritten(report);
  }

  bool unproven = false;
  if (report.command == PERILINK_COMMAND_READ_MEMORY) {
    const AddressMatch match = echo_.Judge(RangeOf(head.frame), RangeOf(report));
    if (echo_.known()) {
      if (const auto requests = queues.replies.UnprovenRequests(); !requests.empty()) {
        // One of the answers so far was another read's, but which one can't be told.
        head.pending = 1;
        queues.commands.PutBack(requests);
        queues.replies.Clear();
        return Taken::kPart;
      }
    }
    if (match == AddressMatch::kShort) head.pending = 1;
    if (match == AddressMatch::kForeign || match == AddressMatch::kShort) return Taken::kNothing;
    unproven = match == AddressMatch::kUnproven;
    if (!unproven && report.report_id == PERILINK_REPORT_ID)
      StoredProtocolData::Instance().StoreReply(FrameAddress(report), report.data);
  }

  // First what may run out of memory: the head is then still awaited, and asked for again.
  queues.replies.Append(queues.commands.HeadFrame(), report, unproven);
  answer.frame = head.frame;
  answer.frame.length = report.length;
  answer.step = {head.continuation, queues.commands.HeadFrame().reader, queues.connection};
  answer.callback = state_.Callback();
  const bool complete = head.last_chunk != 0;
  queues.commands.PopHead();
  if (!complete) return Taken::kPart;

  const uint8_t length_mask = KeyboardTargetFlag() ? uint8_t{PERILINK_LENGTH_MASK} : uint8_t{0xFF};
  answer.length = queues.replies.Assemble(reply_data_, length_mask);
  queues.replies.Clear();
  return Taken::kWhole;
}

void Dispatcher::ReportAnswer(Answer& answer) {
  if (answer.step.tag != kNoContinuation && answer.step.tag <= kLastFlashReadTag) {
    flash_reads_.Continue(answer.step, reply_data_, answer.callback);
    return;
  }
  if (answer.length <= sizeof(CommandFrame::data)) {
    if (answer.frame.command == PERILINK_COMMAND_BATTERY_LEVEL) {
      if (optimizer_.TakeBatteryAnswer(&ServerState::CallbackForReport)) return;
      answer.length = kStatusAnswerLength;
    } else if (answer.frame.command == PERILINK_COMMAND_ON_LINE) {
      answer.length = kStatusAnswerLength;
    }
  }
  CallHost(answer.callback, answer.frame, answer.length);
}

void Dispatcher::CallHost(ServerReportCallback callback, const CommandFrame& frame,
                          uint32_t data_length) {
  if (callback == nullptr) return;
  callback(FrameBytes(frame).data(), sizeof(CommandFrame), reply_data_.data(), data_length);
}

}  // namespace perilink
