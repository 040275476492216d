#include "server/queue.h"

#include <algorithm>

namespace perilink {

uint32_t ReplyChunks::Assemble(std::span<uint8_t, kReplyDataSize> data, uint8_t length_mask) const {
  constexpr size_t kChunk = sizeof(CommandFrame::data);
  std::fill(data.begin(), data.end(), uint8_t{0});
  uint64_t total = 0;
  for (size_t i = 0; i < entries_.size(); ++i) {
    const CommandFrame& answer = entries_[i].frame;
    if (i < kReplyFrameLimit) std::copy_n(answer.data, kChunk, &data[i * kChunk]);
    total += answer.length & length_mask;
  }
  return static_cast<uint32_t>(std::min<uint64_t>(total, kReplyDataSize));
}

}  // namespace perilink
