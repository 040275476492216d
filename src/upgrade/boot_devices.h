// The lookups that decide which device an upgrade finds, and in which mode.
#ifndef PERILINK_SRC_UPGRADE_BOOT_DEVICES_H_
#define PERILINK_SRC_UPGRADE_BOOT_DEVICES_H_

#include <cstdint>
#include <string>

#include "transport/discovery.h"
#include "upgrade/upgrade_record.h"

namespace perilink {

// The present interfaces whose path contains the key. A search that fails says nothing of the
// device: it is repeated for up to a second. After that std::bad_alloc or SearchFailed is thrown.
struct SearchFailed : std::exception {};
HidPathList FindDevicePaths(const std::wstring& key);

// Whether exactly one device shows itself in normal mode, with both of its interfaces.
bool FindNormalDevice(const UsbUpgradeFile& record);

// The boot-mode input interfaces of an image; none when it fails its header check.
HidPathList FindBootDevices(const uint8_t* image);

// The same for a valid record.
HidPathList FindBootDevices(const UsbUpgradeFile& record);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_BOOT_DEVICES_H_
