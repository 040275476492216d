// The firmware that a virtual device's boot loader accepts.
//
//   byte 0..3    'V' 'F' 'W' '1'
//   byte 4..5    version, high byte first
//   byte 6..7    0
//   byte 8..11   length of the whole firmware in bytes, high byte first
//   byte 12..15  sum of the bytes from 16 on, modulo 2^32, high byte first
//   byte 16..    the code: any bytes
#ifndef PERILINK_SIM_VIRTUAL_FIRMWARE_H_
#define PERILINK_SIM_VIRTUAL_FIRMWARE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim/report.h"

namespace perilink::sim {

inline constexpr size_t kVirtualFirmwareHeader = 16;

// A firmware of `size` bytes (at least the header's 16) with code drawn from the seed.
Bytes MakeVirtualFirmware(uint16_t version, size_t size, uint64_t seed = 1);

// The version of a sound firmware; none when the header, the length or the sum is wrong.
std::optional<uint16_t> VirtualFirmwareVersion(std::span<const uint8_t> firmware);

}  // namespace perilink::sim

#endif  // PERILINK_SIM_VIRTUAL_FIRMWARE_H_
