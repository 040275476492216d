// The byte that guards every field of the configuration image.
#ifndef PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_
#define PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_

#include <cstddef>
#include <cstdint>

#include "transport/frame.h"

namespace perilink {

// The same rule as a frame's checksum, over `size` bytes.
inline uint8_t CheckByte(const uint8_t* value, size_t size) {
  return ChecksumRange(value, 0, size);
}

// Whether the byte after the value is its check byte.
inline bool CheckHolds(const uint8_t* value, size_t size) {
  return value[size] == CheckByte(value, size);
}

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_
