// The server's two queues. Neither locks: ServerState hands them out under its lock.
#ifndef PERILINK_SRC_SERVER_QUEUE_H_
#define PERILINK_SRC_SERVER_QUEUE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <span>
#include <vector>

#include "perilink/records.h"
#include "perilink/server.h"

namespace perilink {

class FlashRead;

inline constexpr size_t kReplyDataSize = 8192;
// Whole frames of data that fit into the buffer that the host's callback sees.
inline constexpr size_t kReplyFrameLimit = kReplyDataSize / sizeof(CommandFrame::data);

// Continuation tags: 0 for an ordinary command, 1 to 82 for the steps of the full flash read.
inline constexpr uint8_t kNoContinuation = 0;
inline constexpr uint8_t kLastFlashReadTag = 82;
// Marks the writes of a configuration update; like every tag past 82 it reports as an ordinary
// command does.
inline constexpr uint8_t kUpdateTag = 0xFF;

// What hosts can queue; at nine milliseconds a frame it takes ten minutes to write.
inline constexpr size_t kQueueLimit = PERILINK_QUEUE_LIMIT;
struct QueueFull : std::exception {};

// An entry that is the only frame of its request, still to be written.
inline QueueEntry SingleEntry(const CommandFrame& frame) {
  return QueueEntry{.last_chunk = 1, .pending = 1, .continuation = kNoContinuation, .frame = frame};
}

// What the queue holds: the entry, and the full read that goes on with its answer, null for none.
struct QueuedFrame {
  QueueEntry entry;
  std::shared_ptr<FlashRead> reader;
};

// Frames waiting to be written, first in, first out. Appending and removing cost the same however
// long the queue is.
class CommandQueue {
 public:
  // The one question that may be asked without the lock.
  bool Empty() const { return size_.load(std::memory_order_relaxed) == 0; }

  size_t Size() const { return frames_.size(); }
  QueueEntry& Head() { return frames_.front().entry; }
  const QueuedFrame& HeadFrame() const { return frames_.front(); }
  const QueueEntry& At(size_t index) const { return frames_[index].entry; }

  // Each takes all or throws and leaves the queue as it was: std::bad_alloc when memory runs out,
  // QueueFull beyond the limit. A full read goes on beyond it: it asks for a few frames at a time.
  void Append(std::span<const QueueEntry> entries,
              const std::shared_ptr<FlashRead>& reader = nullptr);
  // Before the head, in their order.
  void PutBack(std::span<const QueuedFrame> frames);

  void PopHead() {
    frames_.pop_front();
    UpdateSize();
  }
  void Clear() {
    frames_.clear();
    UpdateSize();
  }

 private:
  void UpdateSize() { size_.store(frames_.size(), std::memory_order_relaxed); }

  std::deque<QueuedFrame> frames_;
  std::atomic<size_t> size_{0};
};

// The answered frames of a request whose answer is not complete yet. Those that the callback's
// buffer has no room for are counted, not kept.
class ReplyChunks {
 public:
  // `unproven`: the answer may belong to another read; see AddressEcho. Keeps nothing when memory
  // runs out.
  void Append(const QueuedFrame& request, const CommandFrame& answer, bool unproven);
  void Clear();
  bool Empty() const { return chunks_.empty(); }

  // The requests so far, to be asked again, if an answer among them is unproven; otherwise none.
  std::vector<QueuedFrame> UnprovenRequests() const;

  // Lays the answers' data side by side into the zeroed buffer and returns the sum of their length
  // bytes under `length_mask`, at most kReplyDataSize.
  uint32_t Assemble(std::span<uint8_t, kReplyDataSize> data, uint8_t length_mask) const;

 private:
  struct Chunk {
    QueuedFrame request;
    CommandFrame answer;
  };

  std::vector<Chunk> chunks_;
  bool unproven_ = false;
  uint64_t dropped_length_ = 0;  // sum of the length bytes of those that are not kept
  uint64_t dropped_masked_ = 0;  // the same without the keyboard's bit
};

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_QUEUE_H_
