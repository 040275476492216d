#include "server/loop.h"

#include <algorithm>
#include <span>

#include "battery/optimizer.h"
#include "platform/guard.h"
#include "platform/runtime.h"
#include "transport/discovery.h"
#include "transport/exchange.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr int64_t kWriteSpacingMs = 8;
constexpr uint32_t kReplyTimeoutMs = 100;
constexpr uint32_t kClearSettingTimeoutMs = 5000;
// Writes without a valid report between them that make the device count as deaf.
constexpr uint32_t kUnansweredWriteLimit = 5;

// A spin, not a sleep: a sleep's granularity would halve the rate of a configuration read.
void SpaceWrites() {
  const int64_t start = RuntimeClockMs();
  while (RuntimeClockMs() - start < kWriteSpacingMs) {
  }
}

bool WriteFrame(HANDLE handle, const CommandFrame& frame) {
  DWORD written = 0;
  return WriteFile(handle, FrameBytes(frame).data(), sizeof(frame), &written, nullptr) != FALSE;
}

}  // namespace

void ServerLoop::Run() noexcept {
  do {
    RunOnePass();
  } while (!state_.ExitRequested());
  End();
}

void ServerLoop::RunOnePass() noexcept {
  Guarded([this] { Reopen(); });
  Guarded([this] { Write(); });
  Guarded([this] { Read(); });
  Guarded([this] { IdleIfNothingToDo(); });
  Guarded([this] { DriveBattery(); });
}

void ServerLoop::End() noexcept {
  Guarded([] { BatteryOptimizer::Instance().EndConnection(); });
  ReleaseHandles();
  read_.reset();
}

void ServerLoop::Reopen() {
  if (!state_.TakeReopenRequest()) return;
  DevicePaths paths;
  try {
    paths = state_.Paths();
    BatteryOptimizer::Instance().SetDevicePath(paths.input);
  } catch (...) {
    state_.RequestReopen();
    throw;
  }
  ForgetAwaitedReply();
  ReleaseHandles();
  state_.write_handle().Set(OpenHidWriteHandle(paths.output));
  state_.read_handle().Set(OpenHidReadHandle(paths.input));
  read_.emplace();
  read_->Post(state_.read_handle().Get(), sizeof(CommandFrame));
  if (!read_->has_event()) {
    ReleaseHandles();
    state_.RequestReopen();
  }

  write_count_ = 0;
  BatteryOptimizer::Instance().ArmPoll(0);
}

// An answer from the connection before never comes. A start export has emptied the queue, but a
// frame queued since may have gone out on the old handle: it is written again on the new one.
void ServerLoop::ForgetAwaitedReply() {
  if (!awaiting_reply_) return;
  awaiting_reply_ = false;
  ServerState::Queues queues = state_.LockQueues();
  if (!queues.commands.Empty()) queues.commands.Head().pending = 1;
}

void ServerLoop::Write() {
  if (!state_.write_handle().Valid()) return;
  ServerState::Queues queues = state_.LockQueues();
  if (!queues.commands.Empty() && queues.commands.Head().pending == 1 && !WriteHead(queues)) return;
  CheckReplyTimeout(queues);
}

bool ServerLoop::WriteHead(ServerState::Queues& queues) {
  QueueEntry& head = queues.commands.Head();
  SpaceWrites();
  if (!WriteFrame(state_.write_handle().Get(), head.frame)) {
    CheckPresence();
    return true;
  }
  head.pending = 0;
  ++write_count_;
  if (write_count_ >= kUnansweredWriteLimit) {
    write_count_ = 0;
    queues.replies.Clear();
    queues.commands.Clear();
    awaiting_reply_ = false;
    return false;
  }
  awaiting_reply_ = true;
  sent_at_ms_ = GetTickCount64();
  reply_timeout_ms_ =
      head.frame.command == kCommandClearSetting ? kClearSettingTimeoutMs : kReplyTimeoutMs;
  return true;
}

void ServerLoop::CheckReplyTimeout(ServerState::Queues& queues) {
  if (!awaiting_reply_) return;
  const uint64_t now_ms = GetTickCount64();
  if (now_ms <= sent_at_ms_ || now_ms - sent_at_ms_ < reply_timeout_ms_) return;
  awaiting_reply_ = false;
  if (!queues.commands.Empty()) queues.commands.Head().pending = 1;
  CheckPresence();
}

void ServerLoop::Read() {
  if (!state_.read_handle().Valid() || !read_->Wait(0)) return;
  CommandFrame report;
  const std::span<uint8_t> bytes = FrameBytes(report);
  std::copy_n(read_->buffer().begin(), bytes.size(), bytes.begin());
  if (FrameChecksum(report) == report.checksum) {
    // Guarded here as well, or the same report would be dispatched again on the next pass.
    Guarded([&] { dispatcher_.DispatchReport(report, awaiting_reply_); });
    write_count_ = 0;
  }
  read_->Post(state_.read_handle().Get(), sizeof(CommandFrame));
}

void ServerLoop::IdleIfNothingToDo() {
  if (state_.write_handle().Valid() && !state_.NothingQueued()) return;
  Sleep(state_.SleepTime());
  CheckPresence();
}

void ServerLoop::DriveBattery() {
  BatteryOptimizer& optimizer = BatteryOptimizer::Instance();
  if (!optimizer.Enabled()) return;
  if (optimizer.PollDue()) {
    optimizer.ArmPoll(BatteryOptimizer::kPollIntervalMs);
    optimizer.PollStep();
  }
  if (optimizer.SmoothingActive()) optimizer.SmoothingStep(state_.Callback());
}

void ServerLoop::CheckPresence() {
  if (FindHidPathsByKey(state_.InputPath()).empty()) ReleaseHandles();
}

void ServerLoop::ReleaseHandles() {
  state_.write_handle().Release();
  // Before its handle goes, while the system can still be asked to let go of the buffer.
  if (read_.has_value()) read_->Cancel();
  state_.read_handle().Release();
}

void RunServerLoop() noexcept {
  Guarded([] { ServerLoop(ServerState::Instance()).Run(); });
}

}  // namespace perilink
