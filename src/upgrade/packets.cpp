#include "upgrade/packets.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "upgrade/image.h"

namespace perilink {
namespace {

constexpr uint8_t kDataPacket = 0xB1;
constexpr uint8_t kMoreFollow = 0xC0;
constexpr uint8_t kLastData = 0xC1;
constexpr size_t kAddressAt = 5;  // in the packet and in the template's data alike
constexpr size_t kPayloadAt = 17;

uint32_t ReadBigEndian(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void WriteBigEndian(uint32_t value, uint8_t* bytes) {
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

// Bytes 49 to 63 stay what the start command made them.
void FillDataPacket(uint8_t first_byte, uint32_t address, std::span<const uint8_t> payload,
                    bool last, uint8_t* data) {
  std::fill_n(data, kPayloadAt, uint8_t{0});
  data[0] = first_byte;
  data[1] = kDataPacket;
  data[2] = last ? kLastData : kMoreFollow;
  data[3] = static_cast<uint8_t>(payload.size());
  WriteBigEndian(address, data + kAddressAt);
  std::fill_n(data + kPayloadAt, kPayloadBytesPerPacket, uint8_t{0xFF});
  std::memcpy(data + kPayloadAt, payload.data(), payload.size());
}

}  // namespace

std::deque<UpgradePacket> BuildUpgradePackets(const uint8_t* image) {
  const ImageHeader header = ReadImageHeader(image);
  const CommandDescriptor& packet_template = header.packet_template;
  const std::span<const uint8_t> start = header.start_command.Command();

  std::deque<UpgradePacket> packets;
  UpgradePacket packet{};
  packet.pending = 1;
  std::copy(start.begin(), start.end(), packet.data);
  packets.push_back(packet);

  uint32_t address = ReadBigEndian(packet_template.data + kAddressAt);
  const uint64_t total = header.payload_length;
  for (uint64_t sent = 0; sent < total; sent += kPayloadBytesPerPacket) {
    const bool last = sent + kPayloadBytesPerPacket >= total;
    const uint64_t count = last ? total - sent : kPayloadBytesPerPacket;
    const std::span payload(image + kHeaderBlockSize + sent, static_cast<size_t>(count));
    FillDataPacket(packet_template.data[0], address, payload, last, packet.data);
    packets.push_back(packet);
    address += kPayloadBytesPerPacket;
  }
  packets.back().is_last = 1;
  return packets;
}

}  // namespace perilink
