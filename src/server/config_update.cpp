// A changed configuration goes to the device: its flash writes, cut into frames and queued in one.
#include <algorithm>
#include <cstring>
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
    QueueEntry entry = SingleEntry(BuildFrame(PERILINK_COMMAND_WRITE_MEMORY,
                                              static_cast<uint8_t>(chunk.size()), chunk, address));
    entry.continuation = kUpdateTag;
    entry.last_chunk = rest.empty() ? 1 : 0;
    entries.push_back(entry);
  }
}

// Compares, and gives what is to be written to `append`; the writes of one update stand together
// in the queue. When they can't be queued, `previous` is what it was.
template <typename Append>
void Update(ProtocolData& record, ProtocolData& previous, Append append) {
  std::unique_ptr<const ProtocolData> before;
  const std::vector<FlashWrite> writes = CompareProtocolData(record, previous, &before);
  if (writes.empty()) return;
  try {
    std::vector<QueueEntry> entries;
    for (const FlashWrite& write : writes)
      Cut(write, entries);
    append(entries);
  } catch (...) {
    previous = *before;
    throw;
  }
}

// Under both locks, so that the record and the queue change as one: an update on another thread, an
// answer and the end of a full read come before it or after it. Two equal records need no queue.
void UpdateStored(ProtocolData& record, ServerState& state, StoredProtocolData& stored) {
  const bool equal = stored.With([&record](ProtocolData& previous) {
    const bool same = std::memcmp(&record, &previous, sizeof(record)) == 0;
    if (same) CompareProtocolData(record, previous);  // puts both in order
    return same;
  });
  if (equal) return;
  ServerState::Queues queues = state.LockQueues();
  stored.With([&](ProtocolData& previous) {
    Update(record, previous, [&](const auto& entries) { queues.commands.Append(entries); });
  });
}

}  // namespace
}  // namespace perilink

using perilink::Guarded;

void ProtocolDataUpdate(ProtocolData* record) {
  Guarded([&] {
    perilink::StoredProtocolData& stored = perilink::StoredProtocolData::Instance();
    if (stored.parsed()) perilink::UpdateStored(*record, perilink::ServerState::Instance(), stored);
  });
}

void CS_ProtocolDataCompareUpdate(ProtocolData* record, ProtocolData* previous) {
  Guarded([&] {
    perilink::Update(*record, *previous, [](const auto& entries) {
      perilink::ServerState::Instance().Append(entries);
    });
  });
}
