#include "protocol/fields.h"

#include <cstring>

#include "perilink/protocol_data.h"
#include "protocol/check_byte.h"

namespace perilink {
namespace {

constexpr bool IsWidth(size_t width) {
  return width == 1 || (width >= 3 && width <= 6);
}

constexpr bool FieldsAreInOrder(const ConfigGroup& group, size_t record_size) {
  size_t record_end = 0;
  for (size_t i = 0; i < group.field_count; ++i) {
    const ConfigField& field = group.fields[i];
    if (field.record_offset < record_end || !IsWidth(field.width)) return false;
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

constexpr const ConfigGroup& kDpiLedGroup = kConfigGroups[2];
constexpr const ConfigGroup& kLedBarGroup = kConfigGroups[3];
static_assert(kDpiLedGroup.fields == kDpiLedFields.data());
static_assert(kLedBarGroup.fields == kLedBarFields.data());

constexpr bool IsSwitch(FieldRule rule) {
  return rule == FieldRule::kSwitch || rule == FieldRule::kNormalizedSwitch;
}

// The level count stands in the record that the current level stands in.
template <size_t kWidth>
void AcceptOne(const ConfigField& field, const uint8_t* stored, uint8_t* record) {
  const bool accepted =
      CheckHolds(stored, kWidth) && (field.rule != FieldRule::kBelowLevelCount ||
                                     *stored < record[offsetof(ProtocolData, dpi_level_count)]);
  if (!accepted && field.keeps) return;
  uint8_t* target = record + field.record_offset;
  std::memcpy(target, accepted ? stored : field.fallback.data(), kWidth);
  if (IsSwitch(field.rule)) *target = *target != 0 ? 1 : 0;
}

// A field of `count` entries. With the width known to the compiler, an entry costs a few
// instructions instead of two loops.
template <size_t kWidth>
void AcceptEach(const ConfigField& field, size_t count, size_t record_stride, const uint8_t* stored,
                uint8_t* record) {
  for (; count > 0; --count, stored += field.flash_stride, record += record_stride) {
    AcceptOne<kWidth>(field, stored, record);
  }
}

void AcceptEntries(const ConfigField& field, size_t count, size_t record_stride,
                   const uint8_t* stored, uint8_t* record) {
  switch (field.width) {
    case 1:
      return AcceptEach<1>(field, count, record_stride, stored, record);
    case 3:
      return AcceptEach<3>(field, count, record_stride, stored, record);
    case 4:
      return AcceptEach<4>(field, count, record_stride, stored, record);
    case 5:
      return AcceptEach<5>(field, count, record_stride, stored, record);
    case 6:
      return AcceptEach<6>(field, count, record_stride, stored, record);
  }
}

}  // namespace

void AcceptField(const ConfigField& field, const uint8_t* stored, uint8_t* record) {
  AcceptEntries(field, 1, 0, stored, record);
}

void AcceptGroup(const ConfigGroup& group, const uint8_t* block, size_t block_address,
                 uint8_t* record) {
  for (size_t i = 0; i < group.field_count; ++i) {
    const ConfigField& field = group.fields[i];
    AcceptEntries(field, group.count, group.record_stride,
                  block + (field.flash_address - block_address), record);
  }
}

}  // namespace perilink

extern "C" {

void BufferToDPIColor(const uint8_t* source, DPILevel* level) {
  perilink::AcceptField(perilink::kDpiLevelFields[1], source, perilink::RecordBytes(*level));
}

void BufferToDPILed(const uint8_t* source, DPILed* led) {
  using perilink::kDpiLedGroup;
  perilink::AcceptGroup(kDpiLedGroup, source, kDpiLedGroup.fields->flash_address,
                        perilink::RecordBytes(*led));
}

void BufferToLedBar(const uint8_t* source, LedBar* bar) {
  using perilink::kLedBarGroup;
  perilink::AcceptGroup(kLedBarGroup, source, kLedBarGroup.fields->flash_address,
                        perilink::RecordBytes(*bar));
}

void BufferToKeyFunMap(const uint8_t* source, KeyFun* entry) {
  perilink::AcceptField(perilink::kKeyFunFields[0], source, perilink::RecordBytes(*entry));
}

}  // extern "C"
