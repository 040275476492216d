#include "server/loop.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "battery/optimizer.h"
#include "platform/guard.h"
#include "platform/runtime.h"
#include "transport/discovery.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr int64_t kMicrosPerMs = 1000;
constexpr int64_t kWriteSpacingMicros = 8 * kMicrosPerMs;
constexpr uint32_t kReplyTimeoutMs = 100;
constexpr uint32_t kClearSettingTimeoutMs = 5000;
// A host changes the optimiser's settings without waking the loop. They take effect within this
// time, as they do after an idle sleep.
constexpr int64_t kLongestWaitMicros = 100 * kMicrosPerMs;
// Writes without a valid report between them that make the device count as deaf.
constexpr uint32_t kUnansweredWriteLimit = 5;

}  // namespace

ServerLoop::ServerLoop(ServerState& state) : state_(state), dispatcher_(state) {
  state_.SetAlarm(&alarm_);
}

ServerLoop::~ServerLoop() {
  Guarded([this] { state_.SetAlarm(nullptr); });
}

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
  link_.Close();
}

void ServerLoop::Reopen() {
  if (!state_.TakeReopenRequest()) return;
  try {
    const DevicePaths paths = state_.Paths();
    ForgetAwaitedReply();
    if (link_.Open(&paths.output, &paths.input)) {
      link_.Listen();
    } else {
      link_.Close();
      state_.RequestReopen();
    }
    dispatcher_.OnReopen();
    BatteryOptimizer::Instance().Connect(paths.input);
  } catch (...) {
    state_.RequestReopen();
    throw;
  }
  write_count_ = 0;
}

// The new connection brings no answer to a frame that was written on the old one: the frame is
// written again.
void ServerLoop::ForgetAwaitedReply() {
  turn_micros_.reset();
  if (!std::exchange(awaiting_reply_, false)) return;
  ServerState::Queues queues = state_.LockQueues();
  if (!queues.commands.Empty()) queues.commands.Head().pending = 1;
}

// ---- Writing ----------------------------------------------------------------------------------

void ServerLoop::Write() {
  if (!link_.handles().CanWrite()) return;
  bool in_doubt = false;
  {
    ServerState::Queues queues = state_.LockQueues();
    // The queue may already hold frames for the next device.
    if (state_.ReopenRequested()) return;
    in_doubt = ReplyIsOverdue(queues);
    if (HeadsTurn(queues) && !WriteHead(queues)) {
      in_doubt = true;
      HeadsTurn(queues);  // it waits for the next one
    }
  }
  if (!in_doubt) return;
  presence_.Hint(GetTickCount64());
  CheckPresence();
}

bool ServerLoop::HeadsTurn(ServerState::Queues& queues) {
  if (queues.commands.Empty() || queues.commands.Head().pending != 1) {
    turn_micros_.reset();
    return false;
  }
  const int64_t now_micros = MonotonicMicros();
  if (!turn_micros_) turn_micros_ = now_micros + kWriteSpacingMicros;
  return now_micros >= *turn_micros_;
}

bool ServerLoop::WriteHead(ServerState::Queues& queues) {
  turn_micros_.reset();
  QueueEntry& head = queues.commands.Head();
  if (!link_.Write(head.frame)) return false;
  head.pending = 0;
  awaiting_reply_ = true;
  sent_at_ms_ = GetTickCount64();
  reply_timeout_ms_ = head.frame.command == PERILINK_COMMAND_CLEAR_SETTING ? kClearSettingTimeoutMs
                                                                           : kReplyTimeoutMs;
  if (++write_count_ >= kUnansweredWriteLimit) {
    write_count_ = 0;
    queues.replies.Clear();
    queues.commands.Clear();
    awaiting_reply_ = false;
  }
  return true;
}

bool ServerLoop::ReplyIsOverdue(ServerState::Queues& queues) {
  if (!awaiting_reply_) return false;
  if (GetTickCount64() - sent_at_ms_ < reply_timeout_ms_) return false;
  awaiting_reply_ = false;
  if (!queues.commands.Empty()) queues.commands.Head().pending = 1;
  return true;
}

// ---- Reading ----------------------------------------------------------------------------------

void ServerLoop::Read() {
  if (!link_.handles().CanRead() && NothingToDo()) return;
  const Arrival arrival = NextReport();
  const bool refused = arrival == Arrival::kNothing && !link_.listening();
  if (arrival == Arrival::kFailure || refused) presence_.Hint(GetTickCount64());
  if (arrival != Arrival::kReport) return;
  const std::optional<ValidFrame> report = link_.frame();
  // Once a reopen is asked for, the report comes from a device that the host has left.
  if (report && !state_.ReopenRequested()) {
    if (dispatcher_.DispatchReport(*report) == Meaning::kAnswer) awaiting_reply_ = false;
    write_count_ = 0;
  }
  link_.Listen();
}

Arrival ServerLoop::NextReport() {
  return NothingToDo() ? link_.Next(0) : link_.Next(alarm_, NextDeadline());
}

Deadline ServerLoop::NextDeadline() const {
  const int64_t now_micros = MonotonicMicros();
  const uint64_t now_ms = GetTickCount64();
  // A head that is neither about to be written nor awaited has just been queued, or its host marked
  // it as written.
  const bool knows_head = turn_micros_ || awaiting_reply_;
  int64_t first_micros = now_micros + (knows_head ? kLongestWaitMicros : kMicrosPerMs);
  const auto at_tick = [&](uint64_t due_ms) {
    if (due_ms == UINT64_MAX) return;
    const int64_t left_ms = due_ms > now_ms ? static_cast<int64_t>(due_ms - now_ms) : 0;
    first_micros = std::min(first_micros, now_micros + left_ms * kMicrosPerMs);
  };
  at_tick(BatteryOptimizer::Instance().NextDueMs());
  if (awaiting_reply_) at_tick(sent_at_ms_ + reply_timeout_ms_);
  if (turn_micros_ && *turn_micros_ < first_micros)
    return {.at_micros = *turn_micros_, .precise = true};
  return {.at_micros = first_micros};
}

// ---- Between the reports ----------------------------------------------------------------------

void ServerLoop::IdleIfNothingToDo() {
  if (!NothingToDo()) return;
  Sleep(state_.SleepTime());
  if (presence_.Due(GetTickCount64())) CheckPresence();
}

void ServerLoop::DriveBattery() {
  BatteryOptimizer::Instance().Drive(&ServerState::CallbackForReport);
}

void ServerLoop::CheckPresence() {
  if (!link_.handles().CanWrite() && !link_.handles().CanRead()) return;
  presence_.OnCheck(GetTickCount64());
  if (FindPresence(state_.InputPath()) == Presence::kAbsent) link_.Close();
}

// ---- One loop at a time -----------------------------------------------------------------------

namespace {

// Counts the beginnings and the ends of runs: it is odd while one lasts.
class LoopTurn {
 public:
  // False when another thread has it; `run` then says which of its runs that is.
  bool Take(uint64_t& run) {
    run = count_;
    while (run % 2 == 0) {
      if (count_.compare_exchange_weak(run, run + 1)) return true;
    }
    return false;
  }
  void Give() { ++count_; }
  bool Lasts(uint64_t run) const { return count_ == run; }

 private:
  std::atomic<uint64_t> count_{0};
};

constinit LoopTurn turn;

}  // namespace

void RunServerLoop() noexcept {
  uint64_t run = 0;
  if (turn.Take(run)) {
    Guarded([] {
      ServerState& state = ServerState::Instance();
      // After an exit without a start there is nothing to run: a host that waits for the end of the
      // loop returns at once.
      if (!state.ExitRequested() || state.ReopenRequested()) ServerLoop(state).Run();
    });
    turn.Give();
    return;
  }
  // The caller waits for the end, or would run a second loop beside the server's thread.
  constexpr DWORD kLookMs = 10;
  while (turn.Lasts(run))
    Sleep(kLookMs);
}

}  // namespace perilink
