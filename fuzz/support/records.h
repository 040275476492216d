// What holds for every configuration record that comes out of an image.
#ifndef PERILINK_FUZZ_SUPPORT_RECORDS_H_
#define PERILINK_FUZZ_SUPPORT_RECORDS_H_

#include <span>

#include "perilink/records.h"

namespace perilink::fuzz {

// Requires every value to be one that the public headers name.
void RequireInRange(const ProtocolData& record);
void RequireMacroInRange(const MacroKey& macro);
void RequireEventsInRange(std::span<const KeyEvent> events, uint32_t most_delay);

// The record without events beyond the count and name bytes beyond the length, which devices can't
// hold and updates need not clear.
ProtocolData Canonical(ProtocolData record);

bool Same(const ProtocolData& a, const ProtocolData& b);

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_RECORDS_H_
