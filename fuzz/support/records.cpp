#include "support/records.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>

#include "support/require.h"

namespace perilink::fuzz {
namespace {

void RequireEventsInRange(std::span<const KeyEvent> events, uint32_t most_delay) {
  for (const KeyEvent& event : events) {
    Require(event.kind <= 2, "an event's kind is 0, 1 or 2");
    Require(event.code <= 15, "an event's code has four bits");
    Require(event.delay <= most_delay, "an event's delay is in range");
  }
}

}  // namespace

void RequireInRange(const ProtocolData& record) {
  for (const uint8_t value :
       {record.switch7, record.switch9, record.switch10, record.switch11, record.switch12})
    Require(value <= 1, "a switch is 0 or 1");
  for (const ShortcutKey& it : record.shortcuts) {
    Require(it.count == 0 || (it.count >= 2 && it.count <= 6), "a shortcut has 0 or 2 to 6 events");
    RequireEventsInRange(it.events, 0);
  }
  for (const MacroKey& it : record.macros) {
    Require(it.name_length <= sizeof(it.name), "a macro's name fits");
    Require(std::all_of(it.name + it.name_length, std::end(it.name), [](uint8_t b) { return !b; }),
            "a macro's name ends with zeros");
    Require(it.count == 0 || (it.count >= 2 && it.count <= 70), "a macro has 0 or 2 to 70 events");
    RequireEventsInRange(it.events, 0xFFFF);
  }
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
