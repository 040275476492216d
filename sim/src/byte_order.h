// 32-bit numbers, high byte first, as the boot loader's packets carry them.
#ifndef PERILINK_SIM_BYTE_ORDER_H_
#define PERILINK_SIM_BYTE_ORDER_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace perilink::sim {

inline void StoreBigEndian(std::span<uint8_t> bytes, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i)
    bytes[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

inline uint32_t LoadBigEndian(std::span<const uint8_t> bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i)
    value = value << 8 | bytes[at + i];
  return value;
}

}  // namespace perilink::sim

#endif  // PERILINK_SIM_BYTE_ORDER_H_
