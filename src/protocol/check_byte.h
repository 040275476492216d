// The byte that guards every field of the configuration image.
#ifndef PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_
#define PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "transport/frame.h"

namespace perilink {

// The same rule as a frame's checksum, over `size` bytes. A macro's check covers up to 351 bytes
// and makes much of a parse, so most are summed in lanes that the compiler keeps in vector
// registers: only the sum modulo 256 counts, so a lane may overflow.
inline uint8_t CheckByte(const uint8_t* value, size_t size) {
  constexpr size_t kLanes = 32;
  constexpr uint64_t kEvenBytes = 0x00FF00FF00FF00FFu;
  if (size < sizeof(uint64_t)) return ChecksumRange(value, 0, size);
  size_t at = 0;
  uint8_t sum = 0;
  if (size >= kLanes) {
    uint8_t lanes[kLanes] = {};
    for (; at + kLanes <= size; at += kLanes) {
      for (size_t i = 0; i < kLanes; ++i)
        lanes[i] = static_cast<uint8_t>(lanes[i] + value[at + i]);
    }
    for (const uint8_t lane : lanes)
      sum = static_cast<uint8_t>(sum + lane);
  }
  // At most three words are left, then at most seven bytes.
  uint64_t pairs = 0;
  for (; at + sizeof(uint64_t) <= size; at += sizeof(uint64_t)) {
    uint64_t word;
    std::memcpy(&word, value + at, sizeof(word));
    pairs += (word & kEvenBytes) + ((word >> 8) & kEvenBytes);
  }
  pairs += pairs >> 32;
  pairs += pairs >> 16;
  // The rest's check byte is 0x55 minus its sum already.
  return static_cast<uint8_t>(ChecksumRange(value, at, size) - sum - pairs);
}

// Whether the byte after the value is its check byte.
inline bool CheckHolds(const uint8_t* value, size_t size) {
  return value[size] == CheckByte(value, size);
}

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_
