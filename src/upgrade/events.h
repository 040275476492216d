// The messages that the upgrade thread sends to the host's callback.
#ifndef PERILINK_SRC_UPGRADE_EVENTS_H_
#define PERILINK_SRC_UPGRADE_EVENTS_H_

#include <cstddef>
#include <cstdint>

#include "upgrade/upgrade_record.h"

namespace perilink {

enum EventKind : uint8_t { kProgressEvent = 1, kResultEvent = 2, kNoticeEvent = 3 };

// Codes of a result. All but the device's error end the upgrade.
enum ResultCode : uint8_t {
  kResultSuccess = 1,
  kResultTimeout = 2,           // 1: the reset's echo; 3: the download; 4: the library gave up
  kResultNormalInterfaces = 4,  // input and output interfaces found, not one each
  kResultBootInterfaces = 5,    // input and output interfaces found, more than one
  kResultNoNormalDevice = 6,    // 1
  kResultNoBootDevice = 7,      // 1
  kResultResetWriteFailed = 8,  // write succeeded, event exists
  kResultBootOpenFailed = 9,    // write handle usable, read handle usable
  kResultDeviceError = 10,      // the device's error code; the download goes on
};

// Codes of a notice, beside the device's own status codes.
enum NoticeCode : uint8_t {
  kNoticeDownload = 16,  // 3: the device sent 0xB0
  kNoticeBoot = 17,      // 1: the reset was echoed; 2: reset without echo, or boot mode is stable
};

// Calls the callback at once, if there is one. Whatever it throws ends here.
void SendUpgradeEvent(UpgradeCallback callback, uint8_t kind, uint8_t code, uint8_t arg1 = 0,
                      uint8_t arg2 = 0) noexcept;
void SendUpgradeEvent(const UsbUpgradeFile& record, uint8_t kind, uint8_t code, uint8_t arg1 = 0,
                      uint8_t arg2 = 0) noexcept;

// Notes how the upgrade of this device ended. The host gets the event when the device's handles are
// closed and the next upgrade can be started: the event is the last step of an upgrade.
void EndUpgrade(UsbUpgradeFile& record, ResultCode code, uint8_t arg1 = 0, uint8_t arg2 = 0);

// For a count of interfaces in an event's one byte.
inline uint8_t EventCount(size_t count) {
  return static_cast<uint8_t>(count < UINT8_MAX ? count : UINT8_MAX);
}

// Sends a progress event when the percentage has changed.
void ReportProgress(UsbUpgradeFile& record);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_EVENTS_H_
