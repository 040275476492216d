#include "protocol/key_events.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "perilink/protocol_data.h"
#include "protocol/check_byte.h"

namespace perilink {
namespace {

constexpr size_t kShortcutEventSize = 3;
constexpr size_t kMacroEventSize = 5;

// What an event byte decodes to. Bits 7 and 6 give the kind, both set meaning the same as none;
// bits 3 to 0 the code.
struct EventHead {
  uint8_t kind;
  uint8_t code;
};
constexpr std::array<EventHead, 256> EventHeads() {
  constexpr uint8_t kKindByBits[4] = {2, 1, 0, 2};
  std::array<EventHead, 256> heads{};
  for (size_t i = 0; i < heads.size(); ++i) {
    heads[i] = {kKindByBits[i >> 6], static_cast<uint8_t>(i & 0x0F)};
  }
  return heads;
}
constexpr std::array<EventHead, 256> kEventHeads = EventHeads();

constexpr uint8_t KindBits(uint8_t kind) {
  if (kind == 0) return 0x80;
  return kind == 1 ? 0x40 : 0x00;
}

// From the three bytes that shortcuts and macros share.
void DecodeEvent(const uint8_t* source, uint32_t delay, KeyEvent& event) {
  std::memcpy(&event.kind, &kEventHeads[source[0]], sizeof(EventHead));
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
  uint8_t* target = slot.data() + 1;
  for (size_t i = 0; i < count; ++i, target += kShortcutEventSize) {
    const KeyEvent& event = shortcut.events[i];
    // The whole code, unlike a macro's: a code beyond four bits may change the kind.
    target[0] = KindBits(event.kind) | event.code;
    target[1] = event.keys[0];
    target[2] = event.keys[1];
  }
  *target = CheckByte(slot.data(), ShortcutLength(count) - 1);
}

void DecodeShortcut(ShortcutSlotView slot, ShortcutKey& shortcut) {
  const uint8_t count = slot[0];
  if (!IsShortcutCount(count) || !CheckHolds(slot.data(), ShortcutLength(count) - 1)) {
    EmptyShortcut(shortcut);
    return;
  }
  shortcut.count = count;
  for (size_t i = 0; i < count; ++i) {
    DecodeEvent(slot.data() + 1 + kShortcutEventSize * i, 0, shortcut.events[i]);
  }
}

void EncodeMacro(const MacroKey& macro, MacroSlot slot) {
  const uint8_t name_length = std::min(macro.name_length, kMaxMacroName);
  const uint8_t count = std::min(macro.count, kMaxMacroEvents);
  slot[0] = name_length;
  std::memcpy(slot.data() + 1, macro.name, name_length);
  slot[PERILINK_MACRO_COUNT_OFFSET] = count;
  uint8_t* target = slot.data() + PERILINK_MACRO_EVENTS_OFFSET;
  for (size_t i = 0; i < count; ++i, target += kMacroEventSize) {
    const KeyEvent& event = macro.events[i];
    const uint32_t delay = event.delay;
    target[0] = static_cast<uint8_t>(KindBits(event.kind) | (event.code & 0x0F));
    target[1] = event.keys[0];
    target[2] = event.keys[1];
    target[3] = static_cast<uint8_t>(delay >> 8);
    target[4] = static_cast<uint8_t>(delay);
  }
  *target = CheckByte(slot.data() + PERILINK_MACRO_COUNT_OFFSET, 1 + kMacroEventSize * count);
}

void DecodeMacro(MacroSlotView slot, MacroKey& macro) {
  const uint8_t name_length = slot[0];
  macro.name_length = 0;
  std::memset(macro.name, 0, sizeof(macro.name));
  if (name_length >= 1 && name_length <= kMaxMacroName) {
    macro.name_length = name_length;
    std::memcpy(macro.name, slot.data() + 1, name_length);
  }

  const uint8_t count = slot[PERILINK_MACRO_COUNT_OFFSET];
  if (!IsMacroCount(count) ||
      !CheckHolds(slot.data() + PERILINK_MACRO_COUNT_OFFSET, 1 + kMacroEventSize * count)) {
    macro.count = 0;
    std::memset(macro.events, 0, sizeof(macro.events));
    return;
  }
  macro.count = count;
  const auto decode = [&](size_t i) {
    const uint8_t* source = slot.data() + PERILINK_MACRO_EVENTS_OFFSET + kMacroEventSize * i;
    DecodeEvent(source, static_cast<uint16_t>(source[3] << 8 | source[4]), macro.events[i]);
  };
  // In fours: the events are most of a configuration, and the loop itself most of an event.
  size_t i = 0;
  for (; i + 3 < count; i += 4) {
    decode(i);
    decode(i + 1);
    decode(i + 2);
    decode(i + 3);
  }
  for (; i < count; ++i)
    decode(i);
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
