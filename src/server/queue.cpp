#include "server/queue.h"

#include <algorithm>

#include "transport/frame.h"

namespace perilink {

void CommandQueue::Append(std::span<const QueueEntry> entries,
                          const std::shared_ptr<FlashRead>& reader) {
  const size_t before = frames_.size();
  if (reader == nullptr && entries.size() > kQueueLimit - std::min(before, kQueueLimit))
    throw QueueFull();
  try {
    for (const QueueEntry& entry : entries)
      frames_.push_back({entry, reader});
  } catch (...) {
    frames_.resize(before);
    throw;
  }
  UpdateSize();
}

void CommandQueue::PutBack(std::span<const QueuedFrame> frames) {
  frames_.insert(frames_.begin(), frames.begin(), frames.end());
  UpdateSize();
}

void ReplyChunks::Append(const QueuedFrame& request, const CommandFrame& answer, bool unproven) {
  if (chunks_.size() == kReplyFrameLimit) {
    dropped_length_ += answer.length;
    dropped_masked_ += FrameDataLength(answer);
    return;
  }
  chunks_.push_back({request, answer});
  unproven_ = unproven_ || unproven;
}

void ReplyChunks::Clear() {
  chunks_.clear();
  unproven_ = false;
  dropped_length_ = 0;
  dropped_masked_ = 0;
}

std::vector<QueuedFrame> ReplyChunks::UnprovenRequests() const {
  std::vector<QueuedFrame> requests;
  if (!unproven_) return requests;
  requests.reserve(chunks_.size());
  for (const Chunk& chunk : chunks_) {
    requests.push_back(chunk.request);
    requests.back().entry.pending = 1;
  }
  return requests;
}

uint32_t ReplyChunks::Assemble(std::span<uint8_t, kReplyDataSize> data, uint8_t length_mask) const {
  constexpr size_t kChunk = sizeof(CommandFrame::data);
  std::fill(data.begin(), data.end(), uint8_t{0});
  uint64_t total = (length_mask & PERILINK_KEYBOARD_BIT) != 0 ? dropped_length_ : dropped_masked_;
  for (size_t i = 0; i < chunks_.size(); ++i) {
    const CommandFrame& answer = chunks_[i].answer;
    std::copy_n(answer.data, kChunk, &data[i * kChunk]);
    total += answer.length & length_mask;
  }
  return static_cast<uint32_t>(std::min<uint64_t>(total, kReplyDataSize));
}

}  // namespace perilink
