// The one way in which a field of the configuration image is taken over into a record.
#ifndef PERILINK_SRC_PROTOCOL_FIELDS_H_
#define PERILINK_SRC_PROTOCOL_FIELDS_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "perilink/config_layout.h"
#include "protocol/check_byte.h"

namespace perilink {

// Where the entry's value bytes stand in the image.
constexpr size_t FlashAddress(const ConfigField& field, size_t entry) {
  return field.flash_address + entry * field.flash_stride;
}

// The bytes of a record. The records are packed bytes, so any of them may be seen so.
template <typename Record>
uint8_t* RecordBytes(Record& record) {
  return reinterpret_cast<uint8_t*>(&record);
}
template <typename Record>
const uint8_t* RecordBytes(const Record& record) {
  return reinterpret_cast<const uint8_t*>(&record);
}

// The groups by their place in kConfigGroups.
enum GroupIndex : size_t {
  kSettingsGroup,
  kDpiLevelsGroup,
  kDpiLedGroup,
  kLedBarGroup,
  kKeyFunctionsGroup,
};

// Takes over one field: `stored` points to its value bytes, which its check byte follows, `record`
// to the record that the field's offset counts in. The field is a constant so that the walk over
// the table unrolls: some ten instructions a field, where a loop would spend more on the table
// than on the field.
template <size_t kGroup, size_t kField>
void AcceptField(const uint8_t* stored, uint8_t* record) {
  static constexpr ConfigField kIt = kConfigGroups[kGroup].fields[kField];
  bool accepted = CheckHolds(stored, kIt.width);
  if constexpr (kIt.rule == FieldRule::kBelowLevelCount) {
    accepted = accepted && *stored < record[offsetof(ProtocolData, dpi_level_count)];
  }
  if (!accepted && kIt.keeps) return;
  uint8_t* target = record + kIt.record_offset;
  std::memcpy(target, accepted ? stored : kIt.fallback.data(), kIt.width);
  if constexpr (kIt.rule == FieldRule::kSwitch || kIt.rule == FieldRule::kNormalizedSwitch) {
    *target = *target != 0 ? 1 : 0;
  }
}

// Takes over all fields of all entries of a group. `block` holds the device's bytes from flash
// address `block_address` on; `record` is entry 0.
template <size_t kGroup>
void AcceptGroup(const uint8_t* block, size_t block_address, uint8_t* record) {
  static constexpr ConfigGroup kIt = kConfigGroups[kGroup];
  for (size_t entry = 0; entry < kIt.count; ++entry, record += kIt.record_stride) {
    [&]<size_t... kFields>(std::index_sequence<kFields...>) {
      (AcceptField<kGroup, kFields>(
           block + (FlashAddress(kIt.fields[kFields], entry) - block_address), record),
       ...);
    }
    (std::make_index_sequence<kIt.field_count>());
  }
}

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_FIELDS_H_
