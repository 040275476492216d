#include "protocol/fields.h"

#include <cstring>

#include "perilink/protocol_data.h"

namespace perilink {
namespace {

constexpr bool FieldsAreInOrder(const ConfigGroup& group, size_t record_size) {
  size_t record_end = 0;
  for (size_t i = 0; i < group.field_count; ++i) {
    const ConfigField& field = group.fields[i];
    if (field.record_offset < record_end || field.width < 1 || field.width > 6) return false;
    record_end = size_t{field.record_offset} + field.width;
  }
  return record_end <= record_size;
}

constexpr bool GroupsAreInOrder() {
  size_t end = offsetof(ProtocolData, unused46);
  if (!FieldsAreInOrder(kConfigGroups[0], end)) return false;
  for (size_t i = 1; i < kConfigGroups.size(); ++i) {
    const ConfigGroup& group = kConfigGroups[i];
    if (group.record_offset < end || !FieldsAreInOrder(group, group.record_stride)) return false;
    end = size_t{group.record_offset} + group.count * group.record_stride;
  }
  return end <= offsetof(ProtocolData, shortcuts);
}

constexpr bool SettingsStandInTheirBlock() {
  size_t end = 0;
  for (const ConfigField& field : kSettings) {
    if (field.flash_address < end) return false;
    end = size_t{field.flash_address} + field.width + 1;
  }
  return end == PERILINK_SETTINGS_BLOCK_SIZE;
}

// No byte of the image belongs to two fields, or to a field and a slot.
constexpr bool NoFieldOverlapsAnother() {
  std::array<bool, PERILINK_FLASH_IMAGE_SIZE> taken{};
  for (size_t at = PERILINK_SHORTCUT_ADDRESS; at < Perilink_MacroSlotAddress(PERILINK_SLOTS);
       ++at) {
    taken[at] = true;
  }
  for (const ConfigGroup& group : kConfigGroups) {
    for (size_t i = 0; i < group.field_count * size_t{group.count}; ++i) {
      const ConfigField& field = group.fields[i / group.count];
      const size_t address = FlashAddress(field, i % group.count);
      for (size_t at = address; at <= address + field.width; ++at) {
        if (at >= taken.size() || taken[at]) return false;
        taken[at] = true;
      }
    }
  }
  return true;
}

static_assert(GroupsAreInOrder());
static_assert(SettingsStandInTheirBlock());
static_assert(NoFieldOverlapsAnother());
static_assert(Perilink_ShortcutSlotAddress(PERILINK_SLOTS) == PERILINK_MACRO_ADDRESS);

static_assert(kConfigGroups[kSettingsGroup].fields == kSettings.data());
static_assert(kConfigGroups[kDpiLevelsGroup].fields == kDpiLevelFields.data());
static_assert(kConfigGroups[kDpiLedGroup].fields == kDpiLedFields.data());
static_assert(kConfigGroups[kLedBarGroup].fields == kLedBarFields.data());
static_assert(kConfigGroups[kKeyFunctionsGroup].fields == kKeyFunFields.data());

}  // namespace

void AcceptField(const ConfigField& field, const uint8_t* stored, uint8_t* record) {
  bool accepted = Perilink_CheckHolds(stored, field.width);
  if (field.rule == FieldRule::kBelowLevelCount)
    accepted = accepted && *stored < record[offsetof(ProtocolData, dpi_level_count)];
  if (!accepted && field.keeps) return;
  uint8_t* target = record + field.record_offset;
  std::memcpy(target, accepted ? stored : field.fallback.data(), field.width);
  if (field.rule == FieldRule::kSwitch || field.rule == FieldRule::kNormalizedSwitch)
    *target = *target != 0 ? 1 : 0;
}

void AcceptGroup(const ConfigGroup& group, const uint8_t* image, uint8_t* record) {
  ForEachField(group, [&](const ConfigField& field, size_t entry, size_t entry_offset) {
    AcceptField(field, image + FlashAddress(field, entry), record + entry_offset);
  });
}

}  // namespace perilink

using perilink::AcceptField;
using perilink::kConfigGroups;
using perilink::RecordBytes;

namespace {

// For an export that fills one sub-record: its group's fields, from the group's first byte on.
template <typename Record>
void AcceptSubRecord(perilink::GroupIndex index, const uint8_t* source, Record& record) {
  const perilink::ConfigGroup& group = kConfigGroups[index];
  for (size_t i = 0; i < group.field_count; ++i) {
    const perilink::ConfigField& field = group.fields[i];
    AcceptField(field, source + (field.flash_address - group.fields[0].flash_address),
                RecordBytes(record));
  }
}

}  // namespace

extern "C" {

void BufferToDPIColor(const uint8_t* source, DPILevel* level) {
  AcceptField(perilink::kDpiLevelFields[1], source, RecordBytes(*level));
}

void BufferToDPILed(const uint8_t* source, DPILed* led) {
  AcceptSubRecord(perilink::kDpiLedGroup, source, *led);
}

void BufferToLedBar(const uint8_t* source, LedBar* bar) {
  AcceptSubRecord(perilink::kLedBarGroup, source, *bar);
}

void BufferToKeyFunMap(const uint8_t* source, KeyFun* entry) {
  AcceptField(perilink::kKeyFunFields[0], source, RecordBytes(*entry));
}

}  // extern "C"
