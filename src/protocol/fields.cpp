#include "protocol/fields.h"

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
  for (size_t at = PERILINK_SHORTCUT_ADDRESS;
       at < PERILINK_MACRO_ADDRESS + 16 * PERILINK_MACRO_SLOT_SIZE; ++at) {
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
static_assert(PERILINK_SHORTCUT_ADDRESS + 16 * PERILINK_SHORTCUT_SLOT_SIZE ==
              PERILINK_MACRO_ADDRESS);

static_assert(kConfigGroups[kSettingsGroup].fields == kSettings.data());
static_assert(kConfigGroups[kDpiLevelsGroup].fields == kDpiLevelFields.data());
static_assert(kConfigGroups[kDpiLedGroup].fields == kDpiLedFields.data());
static_assert(kConfigGroups[kLedBarGroup].fields == kLedBarFields.data());
static_assert(kConfigGroups[kKeyFunctionsGroup].fields == kKeyFunFields.data());

}  // namespace
}  // namespace perilink

using perilink::AcceptField;
using perilink::AcceptGroup;
using perilink::RecordBytes;

extern "C" {

void BufferToDPIColor(const uint8_t* source, DPILevel* level) {
  AcceptField<perilink::kDpiLevelsGroup, 1>(source, RecordBytes(*level));
}

void BufferToDPILed(const uint8_t* source, DPILed* led) {
  AcceptGroup<perilink::kDpiLedGroup>(source, perilink::kDpiLedFields[0].flash_address,
                                      RecordBytes(*led));
}

void BufferToLedBar(const uint8_t* source, LedBar* bar) {
  AcceptGroup<perilink::kLedBarGroup>(source, perilink::kLedBarFields[0].flash_address,
                                      RecordBytes(*bar));
}

void BufferToKeyFunMap(const uint8_t* source, KeyFun* entry) {
  AcceptField<perilink::kKeyFunctionsGroup, 0>(source, RecordBytes(*entry));
}

}  // extern "C"
