// The packets into which an image's payload is cut for the device in boot mode.
#ifndef PERILINK_SRC_UPGRADE_PACKETS_H_
#define PERILINK_SRC_UPGRADE_PACKETS_H_

#include <cstddef>
#include <cstdint>
#include <deque>

namespace perilink {

inline constexpr size_t kPacketDataSize = 64;
inline constexpr uint32_t kPayloadBytesPerPacket = 32;

struct UpgradePacket {
  uint8_t is_last;  // 1 on the last packet of the image
  uint8_t pending;  // 1 while the packet is to be written
  uint8_t data[kPacketDataSize];
};
static_assert(sizeof(UpgradePacket) == 66);

// The start packet, then one packet for every 32 bytes of payload or part of them. The whole image
// must be readable.
std::deque<UpgradePacket> BuildUpgradePackets(const uint8_t* image);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_PACKETS_H_
