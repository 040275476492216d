// The server's two queues. Neither locks: ServerState hands them out under its lock.
#ifndef PERILINK_SRC_SERVER_QUEUE_H_
#define PERILINK_SRC_SERVER_QUEUE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "perilink/records.h"

namespace perilink {

inline constexpr size_t kReplyDataSize = 8192;
// Whole frames of data that fit into the buffer that the host's callback sees.
inline constexpr size_t kReplyFrameLimit = kReplyDataSize / sizeof(CommandFrame::data);

// Continuation tags: 0 for an ordinary command, 1 to 82 for the steps of the full flash read.
inline constexpr uint8_t kNoContinuation = 0;
inline constexpr uint8_t kLastFlashReadTag = 82;
// Marks the writes of a configuration update; like every tag past 82 it reports as an ordinary
// command does.
inline constexpr uint8_t kUpdateTag = 0xFF;

// An entry that is the only frame of its request, still to be written.
inline QueueEntry SingleEntry(const CommandFrame& frame) {
  return QueueEntry{.last_chunk = 1, .pending = 1, .continuation = kNoContinuation, .frame = frame};
}

// Frames waiting to be written, first in, first out. Appending and removing cost the same however
// long the queue is.
class CommandQueue {
 public:
  // The one question that may be asked without the lock.
  bool Empty() const { return size_.load(std::memory_order_relaxed) == 0; }

  size_t Size() const { return entries_.size(); }
  QueueEntry& Head() { return entries_.front(); }
  const QueueEntry& At(size_t index) const { return entries_[index]; }

  // All or nothing: when memory runs out the queue is as it was.
  void Append(std::span<const QueueEntry> entries) {
    entries_.insert(entries_.end(), entries.begin(), entries.end());
    UpdateSize();
  }
  void PopHead() {
    entries_.pop_front();
    UpdateSize();
  }
  void Clear() {
    entries_.clear();
    UpdateSize();
  }

 private:
  void UpdateSize() { size_.store(entries_.size(), std::memory_order_relaxed); }

  std::deque<QueueEntry> entries_;
  std::atomic<size_t> size_{0};
};

// The answered frames of a request whose answer is not complete yet.
class ReplyChunks {
 public:
  void Append(const QueueEntry& answered) { entries_.push_back(answered); }
  void Clear() { entries_.clear(); }
  bool Empty() const { return entries_.empty(); }

  // Lays the answers' data side by side into the zeroed buffer and returns the sum of their length
  // bytes under `length_mask`, at most kReplyDataSize. Frames that the buffer has no room for are
  // dropped.
  uint32_t Assemble(std::span<uint8_t, kReplyDataSize> data, uint8_t length_mask) const;

 private:
  std::vector<QueueEntry> entries_;
};

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_QUEUE_H_
