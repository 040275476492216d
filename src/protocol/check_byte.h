// The byte that guards every field of the configuration image.
#ifndef PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_
#define PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "transport/frame.h"

namespace perilink {

// The sums of a word's bytes at even places and their odd neighbours, side by side in 16 bits each.
inline uint64_t SumsOfPairs(const uint8_t* word_bytes) {
  constexpr uint64_t kEvenBytes = 0x00FF00FF00FF00FFu;
  uint64_t word;
  std::memcpy(&word, word_bytes, sizeof(word));
  return (word & kEvenBytes) + (word >> 8 & kEvenBytes);
}

// The same rule as a frame's checksum, over `size` bytes. A macro's check covers up to 351 bytes
// and makes much of a parse, so most are summed in lanes that the compiler keeps in vector
// registers: only the sum modulo 256 counts, so a lane may overflow.
inline uint8_t CheckByte(const uint8_t* value, size_t size) {
  constexpr size_t kLanes = 32;
  constexpr size_t kWord = sizeof(uint64_t);
  if (size < kWord) return ChecksumRange(value, 0, size);
  size_t at = 0;
  uint64_t pairs = 0;
  if (size >= kLanes) {
    uint8_t lanes[kLanes] = {};
    for (; at + kLanes <= size; at += kLanes) {
      for (size_t i = 0; i < kLanes; ++i)
        lanes[i] = static_cast<uint8_t>(lanes[i] + value[at + i]);
    }
    for (size_t i = 0; i < kLanes; i += kWord)
      pairs += SumsOfPairs(lanes + i);
  }
  // At most three words are left, then at most seven bytes.
  for (; at + kWord <= size; at += kWord)
    pairs += SumsOfPairs(value + at);
  pairs += pairs >> 32;
  pairs += pairs >> 16;
  // The rest's check byte is 0x55 minus its sum already.
  return static_cast<uint8_t>(ChecksumRange(value, at, size) - pairs);
}

// Whether the byte after the value is its check byte.
inline bool CheckHolds(const uint8_t* value, size_t size) {
  return value[size] == CheckByte(value, size);
}

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_CHECK_BYTE_H_
