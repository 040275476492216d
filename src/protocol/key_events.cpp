#include "protocol/key_events.h"

#include <algorithm>
#include <cstring>

#include "perilink/protocol_data.h"

namespace perilink {
namespace {

constexpr uint8_t KindBits(uint8_t kind) {
  if (kind == 0) return PERILINK_KEY_EVENT_KIND_0;
  return kind == 1 ? PERILINK_KEY_EVENT_KIND_1 : PERILINK_KEY_EVENT_KIND_2;
}

constexpr uint8_t KindOf(uint8_t head) {
  const uint8_t bits = head & PERILINK_KEY_EVENT_KINDS;
  if (bits == PERILINK_KEY_EVENT_KIND_0) return 0;
  return bits == PERILINK_KEY_EVENT_KIND_1 ? 1 : 2;
}

// The bytes of a macro slot that its check byte covers.
constexpr size_t CheckedMacroSize(uint8_t count) {
  return Perilink_MacroSize(count) - 1 - PERILINK_MACRO_COUNT_OFFSET;
}

// From the three bytes that shortcuts and macros share.
void DecodeEvent(const uint8_t* source, uint32_t delay, KeyEvent& event) {
  event.kind = KindOf(source[0]);
  event.code = source[0] & PERILINK_KEY_EVENT_CODE;
  std::memcpy(event.keys, source + 1, sizeof(event.keys));
  event.delay = delay;
}

}  // namespace

void EmptyShortcut(ShortcutKey& shortcut) {
  shortcut.count = 0;
  std::memset(shortcut.events, 0, sizeof(shortcut.events));
}

void EncodeShortcut(ShortcutKey& shortcut, ShortcutSlot slot) {
  const uint8_t count = shortcut.count;
  slot[0] = count;
  if (!IsShortcutCount(count)) {
    EmptyShortcut(shortcut);
    return;
  }
  uint8_t* target = slot.data() + PERILINK_SHORTCUT_EVENTS_OFFSET;
  for (size_t i = 0; i < count; ++i, target += PERILINK_SHORTCUT_EVENT_SIZE) {
    const KeyEvent& event = shortcut.events[i];
    // The whole code, unlike a macro's: a code beyond four bits may change the kind.
    target[0] = KindBits(event.kind) | event.code;
    target[1] = event.keys[0];
    target[2] = event.keys[1];
  }
  *target = Perilink_CheckByte(slot.data(), Perilink_ShortcutSize(count) - 1);
}

void DecodeShortcut(ShortcutSlotView slot, ShortcutKey& shortcut) {
  const uint8_t count = slot[0];
  if (!IsShortcutCount(count) ||
      !Perilink_CheckHolds(slot.data(), Perilink_ShortcutSize(count) - 1)) {
    EmptyShortcut(shortcut);
    return;
  }
  shortcut.count = count;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* source =
        slot.data() + PERILINK_SHORTCUT_EVENTS_OFFSET + PERILINK_SHORTCUT_EVENT_SIZE * i;
    DecodeEvent(source, 0, shortcut.events[i]);
  }
}

void EncodeMacro(const MacroKey& macro, MacroSlot slot) {
  const uint8_t name_length = std::min<uint8_t>(macro.name_length, PERILINK_MACRO_NAME_SIZE);
  const uint8_t count = std::min<uint8_t>(macro.count, PERILINK_MACRO_MAX_EVENTS);
  slot[0] = name_length;
  std::memcpy(slot.data() + PERILINK_MACRO_NAME_OFFSET, macro.name, name_length);
  slot[PERILINK_MACRO_COUNT_OFFSET] = count;
  uint8_t* target = slot.data() + PERILINK_MACRO_EVENTS_OFFSET;
  for (size_t i = 0; i < count; ++i, target += PERILINK_MACRO_EVENT_SIZE) {
    const KeyEvent& event = macro.events[i];
    const uint32_t delay = event.delay;
    target[0] = static_cast<uint8_t>(KindBits(event.kind) | (event.code & PERILINK_KEY_EVENT_CODE));
    target[1] = event.keys[0];
    target[2] = event.keys[1];
    target[3] = static_cast<uint8_t>(delay >> 8);
    target[4] = static_cast<uint8_t>(delay);
  }
  *target = Perilink_CheckByte(slot.data() + PERILINK_MACRO_COUNT_OFFSET, CheckedMacroSize(count));
}

void DecodeMacro(MacroSlotView slot, MacroKey& macro) {
  const uint8_t name_length = slot[0];
  macro.name_length = 0;
  std::memset(macro.name, 0, sizeof(macro.name));
  if (name_length >= 1 && name_length <= PERILINK_MACRO_NAME_SIZE) {
    macro.name_length = name_length;
    std::memcpy(macro.name, slot.data() + PERILINK_MACRO_NAME_OFFSET, name_length);
  }

  const uint8_t count = slot[PERILINK_MACRO_COUNT_OFFSET];
  if (!IsMacroCount(count) ||
      !Perilink_CheckHolds(slot.data() + PERILINK_MACRO_COUNT_OFFSET, CheckedMacroSize(count))) {
    macro.count = 0;
    std::memset(macro.events, 0, sizeof(macro.events));
    return;
  }
  macro.count = count;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* source =
        slot.data() + PERILINK_MACRO_EVENTS_OFFSET + PERILINK_MACRO_EVENT_SIZE * i;
    DecodeEvent(source, static_cast<uint16_t>(source[3] << 8 | source[4]), macro.events[i]);
  }
}

}  // namespace perilink

extern "C" {

void ShortcutKeyToBuffer(ShortcutKey* shortcut, uint8_t* target) {
  perilink::EncodeShortcut(*shortcut, perilink::ShortcutSlot(target, PERILINK_SHORTCUT_SLOT_SIZE));
}

void BufferToShortcutKey(const uint8_t* source, ShortcutKey* shortcut) {
  perilink::DecodeShortcut(perilink::ShortcutSlotView(source, PERILINK_SHORTCUT_SLOT_SIZE),
                           *shortcut);
}

void MacroKeyToBuffer(const MacroKey* macro, uint8_t* target) {
  perilink::EncodeMacro(*macro, perilink::MacroSlot(target, PERILINK_MACRO_SLOT_SIZE));
}

void BufferToMacroKey(const uint8_t* source, MacroKey* macro) {
  perilink::DecodeMacro(perilink::MacroSlotView(source, PERILINK_MACRO_SLOT_SIZE), *macro);
}

}  // extern "C"
