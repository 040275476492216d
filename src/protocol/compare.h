// Turns the changes of a configuration record into flash writes.
#ifndef PERILINK_SRC_PROTOCOL_COMPARE_H_
#define PERILINK_SRC_PROTOCOL_COMPARE_H_

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "perilink/protocol.h"

namespace perilink {

// One field's new bytes, check byte included, and where they go.
struct FlashWrite {
  uint16_t address;
  uint16_t length;
  std::array<uint8_t, Perilink_MacroSize(PERILINK_MACRO_MAX_EVENTS)> data;

  std::span<const uint8_t> bytes() const { return {data.data(), length}; }
};

// Compares `record` with `previous`, which describes what the device holds, and returns the writes
// that make the device hold `record`, in the order in which they must be sent: settings, DPI
// levels, indicator, bar, key functions, shortcuts, macros. `previous` takes the new values.
//
// Shortcuts with a count out of range are emptied in whichever record holds them, even when no
// write comes of it. A macro that doesn't fit into its slot (count over 70, name over 30) is passed
// over: `previous` keeps what it has. The two may be one record: nothing to write.
//
// `before`, unless null, gets a copy of `previous` as it was, made only when the records differ. A
// caller that can't queue the writes puts it back.
//
// Throws std::bad_alloc only before it has changed either record.
std::vector<FlashWrite> CompareProtocolData(ProtocolData& record, ProtocolData& previous,
                                            std::unique_ptr<const ProtocolData>* before = nullptr);

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_COMPARE_H_
