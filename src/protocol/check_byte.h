// The byte that guards every field of the configuration image.
#ifndef PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_
#define PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "transport/frame.h"

namespace perilink {

// The same rule as a frame's checksum, over `size` bytes. A macro's check covers up to 351 bytes
// and makes most of a parse, so eight bytes are summed at a time, in four lanes of 16 bits: a lane
// takes two bytes each step, and the bound below is far from filling it.
inline uint8_t CheckByte(const uint8_t* value, size_t size) {
  constexpr uint64_t kEvenBytes = 0x00FF00FF00FF00FFu;
  constexpr size_t kMostSteps = 0xFFFF / (2 * 0xFF);
  if (size < 16 || size / 8 > kMostSteps) return ChecksumRange(value, 0, size);

  uint64_t lanes = 0;
  size_t at = 0;
  for (; at + 8 <= size; at += 8) {
    uint64_t word;
    std::memcpy(&word, value + at, sizeof(word));
    lanes += (word & kEvenBytes) + ((word >> 8) & kEvenBytes);
  }
  lanes += lanes >> 32;
  lanes += lanes >> 16;
  // The rest's check byte is 0x55 minus its sum already.
  return static_cast<uint8_t>(ChecksumRange(value, at, size) - static_cast<uint8_t>(lanes));
}

// Whether the byte after the value is its check byte.
inline bool CheckHolds(const uint8_t* value, size_t size) {
  return value[size] == CheckByte(value, size);
}

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_
