// A changed configuration goes to the device: its flash writes, cut into frames and queued in one.
#include <algorithm>
#include <memory>
#include <vector>

#include "perilink/protocol_data.h"
#include "platform/guard.h"
#include "protocol/compare.h"
#include "protocol/stored.h"
#include "server/state.h"
#include "transport/frame.h"

namespace perilink {
namespace {

void Cut(const FlashWrite& write, std::vector<QueueEntry>& entries) {
  std::span<const uint8_t> rest = write.bytes();
  for (uint16_t address = write.address; !rest.empty(); address += kFrameDataCapacity) {
    const std::span<const uint8_t> chunk = rest.first(std::min(rest.size(), kFrameDataCapacity));
    rest = rest.subspan(chunk.size());
    QueueEntry entry = SingleEntry(
        BuildFrame(kCommandWriteMemory, static_cast<uint8_t>(chunk.size()), chunk, address));
    entry.continuation = kUpdateTag;
    entry.last_chunk = rest.empty() ? 1 : 0;
    entries.push_back(entry);
  }
}

// The writes of one update stand together in the queue.
void QueueWrites(const std::vector<FlashWrite>& writes) {
  if (writes.empty()) return;
  std::vector<QueueEntry> entries;
  for (const FlashWrite& write : writes)
    Cut(write, entries);
  ServerState::Instance().Append(entries);
}

}  // namespace
}  // namespace perilink

using perilink::Guarded;

void ProtocolDataUpdate(ProtocolData* record) {
  Guarded([&] {
    perilink::StoredProtocolData& stored = perilink::StoredProtocolData::Instance();
    if (stored.parsed()) stored.Update(*record, perilink::QueueWrites);
  });
}

void CS_ProtocolDataCompareUpdate(ProtocolData* record, ProtocolData* previous) {
  Guarded([&] {
    std::unique_ptr<const ProtocolData> before;
    const auto writes = perilink::CompareProtocolData(*record, *previous, &before);
    try {
      perilink::QueueWrites(writes);
    } catch (...) {
      *previous = *before;
      throw;
    }
  });
}
