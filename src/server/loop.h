// The loop of the background server. Whoever runs it, the thread of a start export, a host's own
// thread or a test, runs this.
#ifndef PERILINK_SRC_SERVER_LOOP_H_
#define PERILINK_SRC_SERVER_LOOP_H_

#include <cstdint>
#include <optional>

#include "platform/overlapped_read.h"
#include "server/dispatcher.h"
#include "server/state.h"

namespace perilink {

// One run of the loop, with all that belongs to it. Stays on the thread that made it.
class ServerLoop {
 public:
  explicit ServerLoop(ServerState& state) : state_(state), dispatcher_(state) { read_.emplace(); }
  ServerLoop(const ServerLoop&) = delete;
  ServerLoop& operator=(const ServerLoop&) = delete;

  // Passes until an exit is requested, then the end steps.
  void Run() noexcept;

  // One pass: reopen if asked to, write the head or find its answer overdue, take a report, sleep
  // if there is nothing to do, drive the battery optimiser. A step that runs out of memory is cut
  // short, and the next pass finds everything in order.
  void RunOnePass() noexcept;

  // Saves the battery level, ends the optimiser's connection and releases the device.
  void End() noexcept;

 private:
  void Reopen();
  void ForgetAwaitedReply();
  void Write();
  // False when it dropped everything queued: nothing is left to time out.
  bool WriteHead(ServerState::Queues& queues);
  void CheckReplyTimeout(ServerState::Queues& queues);
  void Read();
  void IdleIfNothingToDo();
  void DriveBattery();

  // Releases the handles when the interface that is read is no longer there.
  void CheckPresence();
  void ReleaseHandles();

  ServerState& state_;
  Dispatcher dispatcher_;

  bool awaiting_reply_ = false;
  uint64_t sent_at_ms_ = 0;
  uint32_t reply_timeout_ms_ = 0;
  uint32_t write_count_ = 0;            // since the last valid report
  std::optional<OverlappedRead> read_;  // made anew, event and all, at each reopen
};

// A whole run on the calling thread.
void RunServerLoop() noexcept;

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_LOOP_H_
