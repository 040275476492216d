#include "server_model.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "note.h"
#include "perilink_platform/world.h"
#include "transport/frame.h"

namespace perilink::testing {
namespace {

constexpr uint64_t kSpacingMicros = 8'000;
constexpr uint64_t kTimeoutMicros = 100'000;
constexpr uint64_t kClearTimeoutMicros = 5'000'000;
constexpr uint64_t kTickMicros = 1'000;  // of the library's clock
constexpr int kUnansweredWrites = 5;
constexpr uint8_t kUpdate = 0xFF;
constexpr uint8_t kLastStep = 82;
constexpr uint8_t kBatteryFlag = 0x40;
// What comes with each level of the smoothed battery.
constexpr CommandFrame kLevelFrame = {
    PERILINK_REPORT_ID, PERILINK_COMMAND_BATTERY_LEVEL, 0, 0, 0, 2, {}, 0x49};
// What comes with an image.
constexpr CommandFrame kImageFrame = {
    PERILINK_REPORT_ID, PERILINK_COMMAND_READ_MEMORY, 0, 0, 0, 0, {}, 0};

bool Same(const CommandFrame& a, const CommandFrame& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

bool HasTargetBit(const CommandFrame& frame) {
  return (frame.length & PERILINK_KEYBOARD_BIT) != 0;
}

// A write of an update: of ten bytes, and another one goes on with the next ten, or the last.
bool IsUpdate(const CommandQueue& queue, size_t at) {
  const QueueEntry& entry = queue.At(at);
  const CommandFrame& frame = entry.frame;
  const bool goes_on = at + 1 < queue.Size() && (frame.length & 0x7F) == 10 &&
                       FrameAddress(queue.At(at + 1).frame) == FrameAddress(frame) + 10;
  return frame.command == PERILINK_COMMAND_WRITE_MEMORY && (frame.length & 0x7F) <= 10 &&
         frame.checksum == FrameChecksum(frame) && HasTargetBit(frame) == KeyboardTargetFlag() &&
         entry.last_chunk == !goes_on;
}

}  // namespace

// ---- Hosts ------------------------------------------------------------------------------------

std::vector<CommandFrame> ServerModel::Queue(std::span<const CommandFrame> frames, uint8_t tag,
                                             const std::function<void()>& queue, bool may_fail) {
  {
    ServerState::Queues queues = ServerState::Instance().LockQueues();
    TakeSteps(queues);
  }
  CheckQueue();
  queue();
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  const size_t before = queue_.frames.size();
  const size_t added = queues.commands.Size() - before;
  if (added == 0 && (frames.empty() || may_fail)) return {};
  if (!frames.empty() && added != frames.size())
    Broken("more or less is queued than was asked for");
  if (before == 0) ready_micros_ = platform::NowMicros();
  const auto read = tag != 0 && tag != kUpdate ? std::make_shared<FullRead>(Now()) : nullptr;
  std::vector<CommandFrame> queued;
  for (size_t i = 0; i < added; ++i) {
    const QueueEntry& entry = queues.commands.At(before + i);
    const CommandFrame& frame = entry.frame;
    const bool right = frames.empty()
                           ? IsUpdate(queues.commands, before + i)
                           : Same(frame, frames[i]) && entry.last_chunk == (i + 1 == added);
    if (!right || entry.continuation != tag || entry.pending != 1)
      Broken("something else is queued than was asked for");
    queue_.frames.push_back({frame, entry.last_chunk != 0, tag, Now(), read});
    queued.push_back(frame);
  }
  return queued;
}

void ServerModel::OnStart(StartNumber start, Device& device) {
  start_ = start;
  device_ = &device;
  queue_ = {};
  step_ = nullptr;
  expected_.clear();
}

// ---- Frames -----------------------------------------------------------------------------------

void ServerModel::OnConnected(StartNumber start) {
  connected_ = start;
  Rearm();
  unanswered_ = 0;
  asked_ = asked_before_ = 0;
  echoes_ = answers_short_ = false;
  shorts_ = 0;
}

void ServerModel::Rearm() {
  queue_.awaited = false;
  ready_micros_ = platform::NowMicros();
}

std::optional<uint64_t> ServerModel::ready_micros() const {
  if (queue_.frames.empty() || connected_ != start_) return std::nullopt;
  return queue_.awaited ? due_micros_ : ready_micros_;
}

uint64_t ServerModel::patience_micros() const {
  if (queue_.frames.empty()) return 0;
  const bool clears = queue_.frames.front().frame.command == PERILINK_COMMAND_CLEAR_SETTING;
  return clears ? kClearTimeoutMicros : kTimeoutMicros;
}

void ServerModel::OnWritten(const CommandFrame& frame, bool written) {
  const uint64_t now = platform::NowMicros();
  if (connected_ != start_) Broken("a frame is written to a device that its host has left");
  if (queue_.frames.empty() || !Same(frame, queue_.frames.front().frame))
    Broken("a frame is written out of turn");
  if (queue_.awaited && now + kTickMicros < due_micros_)
    Broken("a frame is written again before its time");
  if (now - written_micros_ < kSpacingMicros) Broken("frames are written too close to each other");
  written_micros_ = now;
  if (!written) return Rearm();
  queue_.awaited = true;
  due_micros_ = now + patience_micros();
  if (++unanswered_ < kUnansweredWrites) return;
  Note("drop", queue_.frames.size());
  unanswered_ = 0;
  queue_ = {};
}

// ---- Reports ----------------------------------------------------------------------------------

void ServerModel::OnReport(const Sent& sent) {
  // What the host has left says nothing any more.
  if (connected_ != start_ || FrameChecksum(sent.report) != sent.report.checksum) return;
  unanswered_ = 0;
  has_report_ = true;
  if (sent.report.command == PERILINK_COMMAND_EVENT) return OnEvent(sent.report);
  OnAnswer(sent);
}

void ServerModel::OnEvent(const CommandFrame& report) {
  std::vector<uint8_t> data(report.data, std::end(report.data));
  if (battery_.enabled()) {
    if ((data[0] & kBatteryFlag) != 0) battery_.OnEvent();
    data[0] &= static_cast<uint8_t>(~kBatteryFlag);
    if (data[0] == 0) return;
  }
  expected_.push_back({report, std::move(data)});
}

void ServerModel::OnAnswer(const Sent& sent) {
  before_report_ = queue_;
  LookForTimeout();
  const bool reads = sent.report.command == PERILINK_COMMAND_READ_MEMORY;
  if (!queue_.awaited || queue_.frames.front().frame.command != sent.report.command) {
    if (reads) LookForEcho(FrameAddress(sent.report));
    return;
  }
  std::optional<bool> unproven = false;
  if (sent.report.command == PERILINK_COMMAND_WRITE_MEMORY && !IsEcho(sent)) return;
  if (reads) unproven = JudgeRead(sent);
  if (!unproven) return;
  queue_.answered.push_back({queue_.frames.front(), sent, *unproven});
  queue_.frames.pop_front();
  Rearm();
  if (queue_.answered.back().asked.last) CompleteRequest();
}

// An answer that is overdue is awaited no more, whenever the thread has come to look.
void ServerModel::LookForTimeout() {
  if (!queue_.awaited || ServerState::Instance().LockQueues().commands.Head().pending == 0) return;
  if (platform::NowMicros() + kTickMicros < due_micros_) Broken("an answer is given up too soon");
  queue_.awaited = false;
  ready_micros_ = due_micros_;
}

// Whatever is no exact echo makes the frame be written again.
bool ServerModel::IsEcho(const Sent& sent) {
  if (!Same(sent.report, queue_.frames.front().frame)) return Rearm(), false;
  const CommandFrame& write = sent.report;
  for (const Frame& frame : queue_.frames)
    if (frame.read) frame.read->Take(sent.moment, FrameAddress(write), write.length & 0x7Fu, true);
  return true;
}

void ServerModel::LookForEcho(uint16_t answer) {
  echoes_ = echoes_ || (answer != 0 && (answer == asked_ || answer == asked_before_));
}

std::optional<bool> ServerModel::JudgeRead(const Sent& sent) {
  const uint16_t asked = FrameAddress(queue_.frames.front().frame);
  const uint16_t answer = FrameAddress(sent.report);
  if (asked != asked_) {
    asked_before_ = std::exchange(asked_, asked);
    shorts_ = 0;
  }
  LookForEcho(answer);
  const bool doubtful = std::any_of(queue_.answered.begin(), queue_.answered.end(),
                                    [](const Answered& it) { return it.unproven; });
  if (echoes_ && doubtful) {  // all of it is asked again
    while (!queue_.answered.empty()) {
      queue_.frames.push_front(queue_.answered.back().asked);
      queue_.answered.pop_back();
    }
    return Rearm(), std::nullopt;
  }
  const int wanted = queue_.frames.front().frame.length & 0x7F;
  if (answer == asked && (sent.report.length & 0x7F) < wanted && !answers_short_) {
    answers_short_ = ++shorts_ > 2;
    if (!answers_short_) return Rearm(), std::nullopt;
  }
  if (answer == asked) {
    config_.OnReadAnswer(answer, sent.report.data);
    return false;
  }
  if (echoes_) return std::nullopt;
  return true;
}

void ServerModel::CompleteRequest() {
  const std::vector<Answered> request = std::exchange(queue_.answered, {});
  const Frame& last = request.back().asked;
  std::vector<uint8_t> data;
  size_t length = 0;
  for (const auto& [asked, answer, unproven] : request) {
    data.insert(data.end(), answer.report.data, std::end(answer.report.data));
    length += answer.report.length & (KeyboardTargetFlag() ? 0x7Fu : 0xFFu);
    // Of an answer that names its address, each byte is one that the device held there. A late one
    // is as old as its own request.
    const Moment since = std::min(asked.queued, answer.moment);
    if (last.read)
      last.read->Take(answer.moment, FrameAddress(asked.frame), asked.frame.length & 0x7Fu, false);
    if (asked.frame.command != PERILINK_COMMAND_READ_MEMORY || !echoes_) continue;
    for (size_t i = 0; i < (asked.frame.length & 0x7Fu); ++i)
      if (!device_->Held(since, FrameAddress(asked.frame) + i, answer.report.data[i]))
        Broken("a byte is read that the device never held");
  }
  if (last.read) {
    step_ = last.read;
    return;
  }
  if (length <= 10 && last.frame.command == PERILINK_COMMAND_BATTERY_LEVEL) {
    if (battery_.enabled()) return expected_.push_back({kLevelFrame, {}});
    length = 4;
  } else if (length <= 10 && last.frame.command == PERILINK_COMMAND_ON_LINE) {
    length = 4;
  }
  data.resize(length);
  CommandFrame frame = last.frame;
  frame.length = request.back().answer.report.length;
  expected_.push_back({frame, std::move(data)});
}

// ---- What the host hears ----------------------------------------------------------------------

void ServerModel::OnCallback(StartNumber start, const CommandFrame& frame,
                             std::span<const uint8_t> data) {
  Note("callback", frame.command, data.size());
  if (start != start_ || connected_ != start_) Broken("a host hears of a device that it has left");
  if (Same(frame, kLevelFrame)) {
    if (!expected_.empty() && Same(expected_.front().frame, kLevelFrame)) expected_.pop_front();
    return battery_.OnLevel(data.data());
  }
  if (data.size() == PERILINK_FLASH_IMAGE_SIZE && Same(frame, kImageFrame)) return OnImage(data);
  if (expected_.empty()) Broken("a host hears what no device has said");
  const Expected& expected = expected_.front();
  if (!Same(expected.frame, frame) ||
      !std::equal(data.begin(), data.end(), expected.data.begin(), expected.data.end()))
    Broken("a host hears something else than its device has said");
  expected_.pop_front();
}

void ServerModel::OnImage(std::span<const uint8_t> data) {
  if (!step_) Broken("an image comes of no read");
  ConfigModel::CheckImage(*device_, *step_, data.data());
  step_ = nullptr;
  std::vector<CommandFrame> waiting;
  for (const Frame& frame : queue_.frames)
    if (frame.tag == kUpdate) waiting.push_back(frame.frame);
  config_.OnImage(data.data(), waiting);
}

// A full read goes on: what the server has queued itself stands at the end.
void ServerModel::TakeSteps(ServerState::Queues& queues) {
  if (!step_) return;
  for (size_t i = queue_.frames.size(); i < queues.commands.Size(); ++i) {
    const QueueEntry& entry = queues.commands.At(i);
    if (entry.frame.command != PERILINK_COMMAND_READ_MEMORY || entry.continuation == 0 ||
        entry.continuation > kLastStep || HasTargetBit(entry.frame) != KeyboardTargetFlag())
      Broken("a full read queues something else");
    if (queue_.frames.empty()) ready_micros_ = platform::NowMicros();
    queue_.frames.push_back({entry.frame, entry.last_chunk != 0, entry.continuation, Now(), step_});
    if (entry.last_chunk != 0) step_ = nullptr;
  }
}

void ServerModel::CheckQueue() const {
  ServerState::Queues queues = ServerState::Instance().LockQueues();
  if (queues.commands.Size() != queue_.frames.size())
    Broken("requests have vanished, or come of nothing");
  if (queue_.frames.empty()) return;
  if (!Same(queues.commands.Head().frame, queue_.frames.front().frame))
    Broken("the queue is out of order");
}

void ServerModel::Check(bool allocation_failed) {
  if (allocation_failed) expected_.clear();
  if (!expected_.empty()) Broken("a host is not told what its device has said");
  {
    ServerState::Queues queues = ServerState::Instance().LockQueues();
    if (allocation_failed && queues.commands.Size() != queue_.frames.size()) {
      queue_ = before_report_;
      queue_.awaited = queues.commands.Head().pending == 0;
      step_ = nullptr;
    }
    TakeSteps(queues);
  }
  if (step_ && !allocation_failed) Broken("a full read does not go on");
  step_ = nullptr;
  CheckQueue();
  if (std::exchange(has_report_, false)) config_.Check();
}

}  // namespace perilink::testing
