#include "support/records.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "support/require.h"

namespace perilink::fuzz {

void RequireEventsInRange(std::span<const KeyEvent> events, uint32_t most_delay) {
  for (const KeyEvent& event : events) {
    Require(event.kind <= 2, "an event's kind is 0, 1 or 2");
    Require(event.code <= 15, "an event's code has four bits");
    Require(event.delay <= most_delay, "an event's delay is in range");
  }
}

void RequireMacroInRange(const MacroKey& macro) {
  Require(macro.name_length <= sizeof(macro.name), "a macro's name fits");
  Require(std::all_of(macro.name + macro.name_length, std::end(macro.name),
                      [](uint8_t b) { return !b; }),
          "a macro's name ends with zeros");
  Require(macro.count == 0 || (macro.count >= 2 && macro.count <= 70),
          "a macro has 0 or 2 to 70 events");
  RequireEventsInRange(macro.events, 0xFFFF);
}

void RequireInRange(const ProtocolData& record) {
  for (const uint8_t value :
       {record.switch7, record.switch9, record.switch10, record.switch11, record.switch12})
    Require(value <= 1, "a switch is 0 or 1");
  for (const ShortcutKey& it : record.shortcuts) {
    Require(it.count == 0 || (it.count >= 2 && it.count <= 6), "a shortcut has 0 or 2 to 6 events");
    RequireEventsInRange(it.events, 0);
  }
  for (const MacroKey& it : record.macros)
    RequireMacroInRange(it);
}

ProtocolData Canonical(ProtocolData record) {
  for (ShortcutKey& it : record.shortcuts)
    std::fill(it.events + std::min<size_t>(it.count, std::size(it.events)), std::end(it.events),
              KeyEvent{});
  for (MacroKey& it : record.macros) {
    std::fill(it.name + std::min<size_t>(it.name_length, std::size(it.name)), std::end(it.name),
              uint8_t{0});
    std::fill(it.events + std::min<size_t>(it.count, std::size(it.events)), std::end(it.events),
              KeyEvent{});
  }
  return record;
}

bool Same(const ProtocolData& a, const ProtocolData& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

}  // namespace perilink::fuzz
