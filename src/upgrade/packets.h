// The packets into which an image's payload is cut for the device in boot mode.
#ifndef PERILINK_SRC_UPGRADE_PACKETS_H_
#define PERILINK_SRC_UPGRADE_PACKETS_H_

#include <cstddef>
#include <cstdint>
#include <deque>

#include "perilink/protocol.h"

namespace perilink {

struct UpgradePacket {
  uint8_t is_last;  // 1 on the last packet of the image
  uint8_t pending;  // 1 while the packet is to be written
  uint8_t data[PERILINK_PACKET_SIZE];
};
static_assert(sizeof(UpgradePacket) == 66);

// The start packet, then one packet for every PERILINK_PACKET_PAYLOAD_SIZE bytes of payload or part
// of them. The whole image must be readable.
std::deque<UpgradePacket> BuildUpgradePackets(const uint8_t* image);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_PACKETS_H_
