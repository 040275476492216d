#include "sim/virtual_firmware.h"

#include <algorithm>
#include <random>

#include "byte_order.h"

namespace perilink::sim {
namespace {

constexpr uint8_t kMagic[] = {'V', 'F', 'W', '1'};

uint32_t SumOfCode(std::span<const uint8_t> firmware) {
  uint32_t sum = 0;
  for (uint8_t byte : firmware.subspan(kVirtualFirmwareHeader))
    sum += byte;
  return sum;
}

}  // namespace

Bytes MakeVirtualFirmware(uint16_t version, size_t size, uint64_t seed) {
  Bytes firmware(std::max(size, kVirtualFirmwareHeader));
  std::mt19937_64 random(seed);
  for (size_t i = kVirtualFirmwareHeader; i < firmware.size(); ++i) {
    firmware[i] = static_cast<uint8_t>(random());
  }
  std::copy(std::begin(kMagic), std::end(kMagic), firmware.begin());
  firmware[4] = static_cast<uint8_t>(version >> 8);
  firmware[5] = static_cast<uint8_t>(version);
  StoreBigEndian(firmware, 8, static_cast<uint32_t>(firmware.size()));
  StoreBigEndian(firmware, 12, SumOfCode(firmware));
  return firmware;
}

std::optional<uint16_t> VirtualFirmwareVersion(std::span<const uint8_t> firmware) {
  if (firmware.size() < kVirtualFirmwareHeader) return std::nullopt;
  if (!std::equal(std::begin(kMagic), std::end(kMagic), firmware.begin())) return std::nullopt;
  if (LoadBigEndian(firmware, 8) != firmware.size()) return std::nullopt;
  if (LoadBigEndian(firmware, 12) != SumOfCode(firmware)) return std::nullopt;
  return static_cast<uint16_t>(firmware[4] * 256 + firmware[5]);
}

}  // namespace perilink::sim
