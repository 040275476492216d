// The loop of the background server. The thread of a start export runs it, or a host's own thread,
// or a test.
#ifndef PERILINK_SRC_SERVER_LOOP_H_
#define PERILINK_SRC_SERVER_LOOP_H_

#include <cstdint>
#include <optional>

#include "platform/alarm.h"
#include "server/dispatcher.h"
#include "server/state.h"
#include "transport/link.h"

namespace perilink {

// When the loop looks whether its device is still listed while it has nothing else to do: on every
// pass for a second after a hint that the device has gone, otherwise once a second.
class PresencePolicy {
 public:
  void Hint(uint64_t now_ms) { hinted_until_ms_ = now_ms + kPeriodMs; }
  void OnCheck(uint64_t now_ms) { checked_ms_ = now_ms; }
  bool Due(uint64_t now_ms) const {
    return now_ms < hinted_until_ms_ || now_ms - checked_ms_ >= kPeriodMs;
  }

 private:
  static constexpr uint64_t kPeriodMs = 1000;

  uint64_t hinted_until_ms_ = 0;
  uint64_t checked_ms_ = 0;
};

// One run of the loop, with all that belongs to it. Stays on the thread that made it.
//
// It is not connected, idle, has a frame at the head of its queue that waits for its turn, or has
// written it and awaits the answer. Idle it sleeps as long as the host wants it to; with a frame at
// hand it waits for a report, for the next deadline or to be woken.
class ServerLoop {
 public:
  explicit ServerLoop(ServerState& state);
  ~ServerLoop();
  ServerLoop(const ServerLoop&) = delete;
  ServerLoop& operator=(const ServerLoop&) = delete;

  // Passes until an exit is requested, then the end steps.
  void Run() noexcept;

  // One pass: reopen if asked to, write the head if its turn has come or find its answer overdue,
  // take a report, sleep if there is nothing to do, drive the battery optimiser. A step that runs
  // out of memory is cut short, and the next pass finds everything in order.
  void RunOnePass() noexcept;

  // Saves the battery level, ends the optimiser's connection and releases the device.
  void End() noexcept;

 private:
  void Reopen();
  void ForgetAwaitedReply();

  void Write();
  // Whether the head may be written: 8 ms after the loop has found it, which spaces the frames.
  bool HeadsTurn(ServerState::Queues& queues);
  // False when the write failed.
  bool WriteHead(ServerState::Queues& queues);
  // True when the answer is overdue: the head is to be written again.
  bool ReplyIsOverdue(ServerState::Queues& queues);

  void Read();
  Arrival NextReport();
  Deadline NextDeadline() const;

  bool NothingToDo() const { return !link_.handles().CanWrite() || state_.NothingQueued(); }
  void IdleIfNothingToDo();
  void DriveBattery();

  // Releases the handles when the interface that is read is no longer there.
  void CheckPresence();

  ServerState& state_;
  Dispatcher dispatcher_;
  Alarm alarm_;
  Link link_{sizeof(CommandFrame)};
  PresencePolicy presence_;

  std::optional<int64_t> turn_micros_;  // when the head may be written; none: it has not been found
  bool awaiting_reply_ = false;
  uint64_t sent_at_ms_ = 0;
  uint32_t reply_timeout_ms_ = 0;
  uint32_t write_count_ = 0;  // since the last valid report
};

// A whole run on the calling thread. While another thread runs the loop, the call waits for the end
// of that run and does nothing itself.
void RunServerLoop() noexcept;

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_LOOP_H_
