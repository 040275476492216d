#include "protocol/compare.h"

#include <algorithm>
#include <cstring>

#include "protocol/fields.h"
#include "protocol/key_events.h"

namespace perilink {
namespace {

// Every part of a record that is written by itself, so that the list of writes never grows after
// the first change.
constexpr size_t MostWrites() {
  size_t count = 2 * PERILINK_SLOTS;
  for (const ConfigGroup& group : kConfigGroups)
    count += group.count * size_t{group.field_count};
  return count;
}

FlashWrite& AddWrite(std::vector<FlashWrite>& writes, size_t address, size_t length) {
  FlashWrite& write = writes.emplace_back();
  write.address = static_cast<uint16_t>(address);
  write.length = static_cast<uint16_t>(length);
  return write;
}

void CompareField(const ConfigField& field, size_t entry, const uint8_t* record, uint8_t* previous,
                  std::vector<FlashWrite>& writes) {
  const uint8_t* value = record + field.record_offset;
  uint8_t* old_value = previous + field.record_offset;
  if (std::memcmp(value, old_value, field.width) == 0) return;
  std::memcpy(old_value, value, field.width);

  FlashWrite& write = AddWrite(writes, FlashAddress(field, entry), size_t{field.width} + 1);
  std::memcpy(write.data.data(), value, field.width);
  if (field.rule == FieldRule::kNormalizedSwitch) write.data[0] = *value != 0 ? 1 : 0;
  write.data[field.width] = Perilink_CheckByte(write.data.data(), field.width);
}

void CompareFields(const ProtocolData& record, ProtocolData& previous,
                   std::vector<FlashWrite>& writes) {
  for (const ConfigGroup& group : kConfigGroups) {
    ForEachField(group, [&](const ConfigField& field, size_t entry, size_t entry_offset) {
      CompareField(field, entry, RecordBytes(record) + entry_offset,
                   RecordBytes(previous) + entry_offset, writes);
    });
  }
}

// A slot as erased flash, so that what an encoder leaves alone compares equal.
template <size_t kSize>
std::array<uint8_t, kSize> ErasedSlot() {
  std::array<uint8_t, kSize> slot;
  slot.fill(PERILINK_ERASED);
  return slot;
}

void CompareShortcut(size_t index, ShortcutKey& shortcut, ShortcutKey& previous,
                     std::vector<FlashWrite>& writes) {
  auto slot = ErasedSlot<PERILINK_SHORTCUT_SLOT_SIZE>();
  auto old_slot = slot;
  EncodeShortcut(shortcut, slot);
  EncodeShortcut(previous, old_slot);
  if (slot == old_slot) return;

  // An emptied shortcut has count 0 by now: its write is the count alone, and one erased byte.
  const size_t length = Perilink_ShortcutSize(shortcut.count);
  FlashWrite& write = AddWrite(writes, Perilink_ShortcutSlotAddress(index), length);
  std::copy_n(slot.begin(), length, write.data.begin());
  previous.count = shortcut.count;
  std::copy_n(shortcut.events, shortcut.count, previous.events);
}

bool FitsSlot(const MacroKey& macro) {
  return macro.count <= PERILINK_MACRO_MAX_EVENTS && macro.name_length <= PERILINK_MACRO_NAME_SIZE;
}

void CompareMacro(size_t index, const MacroKey& macro, MacroKey& previous,
                  std::vector<FlashWrite>& writes) {
  if (!FitsSlot(macro) || std::memcmp(&macro, &previous, sizeof(macro)) == 0) return;
  auto slot = ErasedSlot<PERILINK_MACRO_SLOT_SIZE>();
  auto old_slot = slot;
  EncodeMacro(macro, slot);
  EncodeMacro(previous, old_slot);
  // An old macro that fits no slot doesn't tell what the device holds: the new one is written.
  if (slot == old_slot && FitsSlot(previous)) return;

  const size_t length = Perilink_MacroSize(macro.count);
  FlashWrite& write = AddWrite(writes, Perilink_MacroSlotAddress(index), length);
  std::copy_n(slot.begin(), length, write.data.begin());
  previous.name_length = macro.name_length;
  std::copy_n(macro.name, macro.name_length, previous.name);
  previous.count = macro.count;
  std::copy(std::begin(macro.events), std::end(macro.events), previous.events);
}

void EmptyInvalidShortcuts(ProtocolData& record) {
  for (ShortcutKey& shortcut : record.shortcuts) {
    if (!IsShortcutCount(shortcut.count)) EmptyShortcut(shortcut);
  }
}

}  // namespace

std::vector<FlashWrite> CompareProtocolData(ProtocolData& record, ProtocolData& previous,
                                            std::unique_ptr<const ProtocolData>* before) {
  std::vector<FlashWrite> writes;
  if (std::memcmp(&record, &previous, sizeof(record)) == 0) {
    EmptyInvalidShortcuts(record);
    EmptyInvalidShortcuts(previous);
    return writes;
  }
  writes.reserve(MostWrites());
  if (before != nullptr) *before = std::make_unique<const ProtocolData>(previous);
  CompareFields(record, previous, writes);
  for (size_t i = 0; i < PERILINK_SLOTS; ++i) {
    CompareShortcut(i, record.shortcuts[i], previous.shortcuts[i], writes);
  }
  for (size_t i = 0; i < PERILINK_SLOTS; ++i) {
    CompareMacro(i, record.macros[i], previous.macros[i], writes);
  }
  return writes;
}

}  // namespace perilink
