// The one way in which a field of the configuration image is taken over into a record.
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

// Takes over one field: `stored` points to its value bytes, which its check byte follows, `record`
// to the record that the field's offset counts in.
void AcceptField(const ConfigField& field, const uint8_t* stored, uint8_t* record);

// Takes over all fields of all entries of a group. `block` holds the device's bytes from flash
// address `block_address` on; `record` is entry 0.
void AcceptGroup(const ConfigGroup& group, const uint8_t* block, size_t block_address,
                 uint8_t* record);

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_FIELDS_H_
