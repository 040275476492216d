// All that the background server shares between its thread and the host's threads, in one place.
//
// QueueMutex guards the two queues, which can be reached only through it. It is held through
// appends, the loop's write step and the matching of an answer, and never while a callback, the
// battery optimiser or a continuation of the flash read runs. Everything else is either one value,
// read and written whole, or a text behind a lock that is held for a copy alone.
#ifndef PERILINK_SRC_SERVER_STATE_H_
#define PERILINK_SRC_SERVER_STATE_H_

#include <atomic>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>

#include "perilink/records.h"
#include "platform/handles.h"
#include "server/queue.h"

namespace perilink {

// A handle of the server. The loop opens and releases it; should a host run a second loop beside
// the server thread's, each handle is still closed once.
class ServerHandle {
 public:
  HANDLE Get() const { return handle_.load(std::memory_order_relaxed); }
  bool Valid() const { return IsValidHandle(Get()); }
  void Set(HANDLE handle) { handle_.store(handle, std::memory_order_relaxed); }
  // Cancels what is pending on the handle and closes it, if it is valid.
  void Release();

 private:
  std::atomic<HANDLE> handle_{INVALID_HANDLE_VALUE};
};

struct DevicePaths {
  std::wstring input;   // the interface that is read
  std::wstring output;  // the interface that is written
};

class ServerState {
 public:
  static constexpr uint32_t kDefaultSleepTimeMs = 100;

  // The process's server. It is never destroyed: its thread may outlive main().
  static ServerState& Instance();

  ServerState(const ServerState&) = delete;
  ServerState& operator=(const ServerState&) = delete;

  // ---- Queues -------------------------------------------------------------------------------

  // Holds QueueMutex while it lives, or until Unlock.
  class Queues {
   public:
    explicit Queues(ServerState& state)
        : commands(state.commands_), replies(state.replies_), lock_(state.queue_mutex_) {}
    void Unlock() { lock_.unlock(); }

    CommandQueue& commands;
    ReplyChunks& replies;

   private:
    std::unique_lock<std::mutex> lock_;
  };

  Queues LockQueues() { return Queues(*this); }

  // Appends all of them or, when memory runs out, none. They stand together in the queue.
  void Append(std::span<const QueueEntry> entries) { LockQueues().commands.Append(entries); }

  // Asked without the lock: the loop only chooses between polling and sleeping by it.
  bool NothingQueued() const { return commands_.Empty(); }

  // ---- What the host asks of the loop -------------------------------------------------------

  // A start export: drops all that is queued or half answered, stores callback and paths, asks for
  // a reopen, takes back a request to exit and clears the keyboard target.
  void RequestStart(DevicePaths paths, ServerReportCallback callback);

  void RequestReopen() { reopen_requested_.store(true, std::memory_order_release); }
  bool TakeReopenRequest() { return reopen_requested_.exchange(false, std::memory_order_acq_rel); }

  void RequestExit() { exit_requested_.store(true, std::memory_order_relaxed); }
  bool ExitRequested() const { return exit_requested_.load(std::memory_order_relaxed); }

  void SetSleepTime(uint32_t sleep_ms) { sleep_ms_.store(sleep_ms, std::memory_order_relaxed); }
  uint32_t SleepTime() const { return sleep_ms_.load(std::memory_order_relaxed); }

  ServerReportCallback Callback() const { return callback_.load(std::memory_order_acquire); }

  // Copies of what the last start export stored; empty before the first.
  DevicePaths Paths() const;
  std::wstring InputPath() const;
  std::wstring OutputPath() const;

  // ---- The loop's ---------------------------------------------------------------------------

  ServerHandle& write_handle() { return write_handle_; }
  ServerHandle& read_handle() { return read_handle_; }

 private:
  ServerState() = default;

  std::mutex queue_mutex_;  // QueueMutex
  CommandQueue commands_;
  ReplyChunks replies_;

  mutable std::mutex paths_mutex_;  // taken inside queue_mutex_, or alone
  DevicePaths paths_;

  std::atomic<ServerReportCallback> callback_{nullptr};
  std::atomic<bool> reopen_requested_{false};
  std::atomic<bool> exit_requested_{false};
  std::atomic<uint32_t> sleep_ms_{kDefaultSleepTimeMs};

  ServerHandle write_handle_;
  ServerHandle read_handle_;
};

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_STATE_H_
