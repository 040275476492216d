// The last step of a device's upgrade: its packets out, its replies in, until it reports the end.
#ifndef PERILINK_SRC_UPGRADE_DOWNLOAD_H_
#define PERILINK_SRC_UPGRADE_DOWNLOAD_H_

#include <cstdint>
#include <span>

#include "upgrade/upgrade_file.h"

namespace perilink {

// True when the device has reported the end of its upgrade. On the upgrade thread.
bool DownloadFile(UsbUpgradeFile& record);

// Handles one report of the device; true when it reports the end.
bool ReceiveBootReply(UsbUpgradeFile& record, std::span<const uint8_t, kPacketDataSize> report);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_DOWNLOAD_H_
