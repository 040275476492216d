// The messages that the upgrade thread sends to the host's callback.
#ifndef PERILINK_SRC_UPGRADE_EVENTS_H_
#define PERILINK_SRC_UPGRADE_EVENTS_H_

#include <cstddef>
#include <cstdint>

#include "perilink/protocol.h"
#include "upgrade/upgrade_record.h"

namespace perilink {

// Calls the callback at once, if there is one. Whatever it throws ends here.
void SendUpgradeEvent(UpgradeCallback callback, uint8_t kind, uint8_t code, uint8_t arg1 = 0,
                      uint8_t arg2 = 0) noexcept;
void SendUpgradeEvent(const UsbUpgradeFile& record, uint8_t kind, uint8_t code, uint8_t arg1 = 0,
                      uint8_t arg2 = 0) noexcept;

// Notes how the upgrade of this device ended. The host gets the event when the device's handles are
// closed and the next upgrade can be started: the event is the last step of an upgrade.
void EndUpgrade(UsbUpgradeFile& record, PerilinkUpgradeResult code, uint8_t arg1 = 0,
                uint8_t arg2 = 0);

// For a count of interfaces in an event's one byte.
inline uint8_t EventCount(size_t count) {
  return static_cast<uint8_t>(count < UINT8_MAX ? count : UINT8_MAX);
}

// Sends a progress event when the percentage has changed.
void ReportProgress(UsbUpgradeFile& record);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_EVENTS_H_
