// All that the background server shares between its thread and the host's threads, in one place.
//
// QueueMutex guards the two queues, which can be reached only through it. It is held through
// appends, the loop's write and the matching of an answer, and never while the loop waits or a
// callback, the battery optimiser or a step of the full read runs. Everything else is either one
// value, read and written whole, or a text behind a lock that is held for a copy alone.
#ifndef PERILINK_SRC_SERVER_STATE_H_
#define PERILINK_SRC_SERVER_STATE_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "perilink/records.h"
#include "platform/alarm.h"
#include "server/queue.h"

namespace perilink {

struct DevicePaths {
  std::wstring input;   // the interface that is read
  std::wstring output;  // the interface that is written
};

// Counts the calls of start exports. What belongs to one connection says which, and is dropped when
// the count has moved on.
using ConnectionNumber = uint64_t;

class ServerState {
 public:
  static constexpr uint32_t kDefaultSleepTimeMs = 100;

  // The process's server. It is never destroyed: its thread may outlive main().
  static ServerState& Instance();

  ServerState(const ServerState&) = delete;
  ServerState& operator=(const ServerState&) = delete;

  // ---- Queues -------------------------------------------------------------------------------

  // Holds QueueMutex while it lives.
  class Queues {
   public:
    explicit Queues(ServerState& state)
        : lock_(state.queue_mutex_),
          commands(state.commands_),
          replies(state.replies_),
          connection(state.connection_) {}

   private:
    const std::lock_guard<std::mutex> lock_;

   public:
    CommandQueue& commands;
    ReplyChunks& replies;
    const ConnectionNumber connection;
  };

  Queues LockQueues() { return Queues(*this); }

  // Appends all of them or, when memory runs out, none. They stand together in the queue.
  void Append(std::span<const QueueEntry> entries) { LockQueues().commands.Append(entries); }

  // Asked without the lock: the loop only chooses between waiting and sleeping by it.
  bool NothingQueued() const { return commands_.Empty(); }

  // ---- What the host asks of the loop -------------------------------------------------------

  // A start export: drops all that is queued or half answered, stores callback and paths, asks for
  // a reopen, takes back a request to exit and clears the keyboard target.
  void RequestStart(DevicePaths paths, ServerReportCallback callback);

  // Until the loop has taken the request, what is queued is for the next connection, and what
  // arrives comes from the last one. Steady while QueueMutex is held.
  void RequestReopen() { reopen_requested_.store(true, std::memory_order_release); }
  bool ReopenRequested() const { return reopen_requested_.load(std::memory_order_acquire); }
  bool TakeReopenRequest() { return reopen_requested_.exchange(false, std::memory_order_acq_rel); }

  void RequestExit();
  bool ExitRequested() const { return exit_requested_.load(std::memory_order_relaxed); }

  void SetSleepTime(uint32_t sleep_ms) { sleep_ms_.store(sleep_ms, std::memory_order_relaxed); }
  uint32_t SleepTime() const { return sleep_ms_.load(std::memory_order_relaxed); }

  ServerReportCallback Callback() const { return callback_.load(std::memory_order_acquire); }
  // The callback for what the connected device reports now: null once a start has asked for another
  // connection, whose host must not get it.
  static ServerReportCallback CallbackForReport();

  // Copies of what the last start export stored; empty before the first.
  DevicePaths Paths() const;
  std::wstring InputPath() const;
  std::wstring OutputPath() const;

  // The alarm that starts and exits wake: the running loop's, or null.
  void SetAlarm(const Alarm* alarm);

 private:
  ServerState() = default;
  void WakeLoop();

  std::mutex queue_mutex_;  // QueueMutex
  CommandQueue commands_;
  ReplyChunks replies_;
  ConnectionNumber connection_ = 0;

  mutable std::mutex paths_mutex_;  // taken inside queue_mutex_, or alone
  DevicePaths paths_;

  std::mutex alarm_mutex_;  // taken alone
  const Alarm* alarm_ = nullptr;

  std::atomic<ServerReportCallback> callback_{nullptr};
  std::atomic<bool> reopen_requested_{false};
  std::atomic<bool> exit_requested_{false};
  std::atomic<uint32_t> sleep_ms_{kDefaultSleepTimeMs};
};

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_STATE_H_
