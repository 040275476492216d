#include "upgrade/packets.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "upgrade/image.h"

namespace perilink {
namespace {

constexpr uint32_t kPayloadSize = PERILINK_PACKET_PAYLOAD_SIZE;

uint32_t ReadBigEndian(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void WriteBigEndian(uint32_t value, uint8_t* bytes) {
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

// What is behind the payload stays what the start command made it.
void FillDataPacket(uint8_t first_byte, uint32_t address, std::span<const uint8_t> payload,
                    bool last, uint8_t* data) {
  std::fill_n(data, PERILINK_PACKET_PAYLOAD_OFFSET, uint8_t{0});
  data[0] = first_byte;
  data[PERILINK_PACKET_CODE_OFFSET] = PERILINK_BOOT_DATA;
  data[PERILINK_PACKET_PLACE_OFFSET] =
      static_cast<uint8_t>(last ? PERILINK_BOOT_LAST : PERILINK_BOOT_MORE);
  data[PERILINK_PACKET_LENGTH_OFFSET] = static_cast<uint8_t>(payload.size());
  WriteBigEndian(address, data + PERILINK_PACKET_ADDRESS_OFFSET);
  uint8_t* const target = data + PERILINK_PACKET_PAYLOAD_OFFSET;
  std::fill_n(target, kPayloadSize, uint8_t{PERILINK_ERASED});
  std::memcpy(target, payload.data(), payload.size());
}

}  // namespace

std::deque<UpgradePacket> BuildUpgradePackets(const uint8_t* image) {
  const UpgradeFileHeader header = ReadImageHeader(image);
  const UpgradeFileCommand& packet_template = header.packet_template;
  const std::span<const uint8_t> start = CommandBytes(header.start_command);

  std::deque<UpgradePacket> packets;
  UpgradePacket packet{};
  packet.pending = 1;
  std::copy(start.begin(), start.end(), packet.data);
  packets.push_back(packet);

  uint32_t address = ReadBigEndian(packet_template.data + PERILINK_PACKET_ADDRESS_OFFSET);
  const uint64_t total = header.payload_length;
  for (uint64_t sent = 0; sent < total; sent += kPayloadSize) {
    const bool last = sent + kPayloadSize >= total;
    const uint64_t count = last ? total - sent : kPayloadSize;
    const std::span payload(image + PERILINK_UPGRADE_HEADER_SIZE + sent,
                            static_cast<size_t>(count));
    FillDataPacket(packet_template.data[0], address, payload, last, packet.data);
    packets.push_back(packet);
    address += kPayloadSize;
  }
  packets.back().is_last = 1;
  return packets;
}

}  // namespace perilink
