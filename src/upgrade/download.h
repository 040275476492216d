// The last step of a device's upgrade: its packets out, its replies in, until it reports the end.
#ifndef PERILINK_SRC_UPGRADE_DOWNLOAD_H_
#define PERILINK_SRC_UPGRADE_DOWNLOAD_H_

#include <array>
#include <cstdint>

#include "upgrade/upgrade_record.h"

namespace perilink {

// True when the device has reported the end of its upgrade. On the upgrade thread.
bool DownloadFile(UsbUpgradeFile& record);

// A report of a boot loader, with zeros beyond what it sent. It carries no checksum: any of its
// bytes may be damaged.
struct BootReport {
  std::array<uint8_t, PERILINK_PACKET_SIZE> bytes{};
  uint8_t operator[](size_t index) const { return bytes[index]; }
};

// Handles one report of the device; true when it reports the end.
bool ReceiveBootReply(UsbUpgradeFile& record, const BootReport& report);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_DOWNLOAD_H_
