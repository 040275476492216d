// Shortcuts and macros, as the device's slots hold them. The slots' layout is in protocol.h.
#ifndef PERILINK_SRC_PROTOCOL_KEY_EVENTS_H_
#define PERILINK_SRC_PROTOCOL_KEY_EVENTS_H_

#include <cstddef>
#include <cstdint>
#include <span>

#include "perilink/protocol.h"

namespace perilink {

using ShortcutSlot = std::span<uint8_t, PERILINK_SHORTCUT_SLOT_SIZE>;
using ShortcutSlotView = std::span<const uint8_t, PERILINK_SHORTCUT_SLOT_SIZE>;
using MacroSlot = std::span<uint8_t, PERILINK_MACRO_SLOT_SIZE>;
using MacroSlotView = std::span<const uint8_t, PERILINK_MACRO_SLOT_SIZE>;

constexpr bool IsShortcutCount(uint8_t count) {
  return count >= PERILINK_SHORTCUT_MIN_EVENTS && count <= PERILINK_SHORTCUT_MAX_EVENTS;
}
constexpr bool IsMacroCount(uint8_t count) {
  return count >= PERILINK_MACRO_MIN_EVENTS && count <= PERILINK_MACRO_MAX_EVENTS;
}

static_assert(Perilink_ShortcutSize(PERILINK_SHORTCUT_MAX_EVENTS) <= PERILINK_SHORTCUT_SLOT_SIZE);
static_assert(Perilink_MacroSize(PERILINK_MACRO_MAX_EVENTS) <= PERILINK_MACRO_SLOT_SIZE);

// Sets the count and all events to 0. The record's unused bytes stay.
void EmptyShortcut(ShortcutKey& shortcut);

// Writes the count and, when it is in range, the events and their check byte; empties `shortcut`
// when it is not. Bytes of the slot beyond stay.
void EncodeShortcut(ShortcutKey& shortcut, ShortcutSlot slot);
void DecodeShortcut(ShortcutSlotView slot, ShortcutKey& shortcut);

// Writes name length, name, count, events and check byte. A count or a name length beyond the
// record is taken as the most that the record holds. Bytes of the slot beyond stay.
void EncodeMacro(const MacroKey& macro, MacroSlot slot);
void DecodeMacro(MacroSlotView slot, MacroKey& macro);

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_KEY_EVENTS_H_
