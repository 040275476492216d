// The walk over the table of fields, and how a field of the configuration image is taken over into
// a record.
#ifndef PERILINK_SRC_PROTOCOL_FIELDS_H_
#define PERILINK_SRC_PROTOCOL_FIELDS_H_

#include <cstddef>
#include <cstdint>

#include "perilink/config_layout.h"

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

// Calls `visit(field, entry, entry_offset)` for every field of every entry of a group, in the order
// of the record; `entry_offset` is the entry's place in ProtocolData.
template <typename Visit>
void ForEachField(const ConfigGroup& group, Visit visit) {
  for (size_t entry = 0; entry < group.count; ++entry) {
    const size_t entry_offset = group.record_offset + entry * group.record_stride;
    for (size_t i = 0; i < group.field_count; ++i)
      visit(group.fields[i], entry, entry_offset);
  }
}

// Takes over one field: `stored` points to its value bytes, which its check byte follows, `record`
// to the record that the field's offset counts in.
void AcceptField(const ConfigField& field, const uint8_t* stored, uint8_t* record);

// Takes over all fields of all entries of a group; `record` is the bytes of a ProtocolData.
void AcceptGroup(const ConfigGroup& group, const uint8_t* image, uint8_t* record);

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_FIELDS_H_
