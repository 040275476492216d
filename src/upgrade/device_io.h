// What the steps of an upgrade share in talking to a device.
#ifndef PERILINK_SRC_UPGRADE_DEVICE_IO_H_
#define PERILINK_SRC_UPGRADE_DEVICE_IO_H_

#include <cstdint>
#include <span>
#include <string>

#include "platform/win32.h"

namespace perilink {

// The pace of every wait of an upgrade: no wait without an event sleeps longer.
inline constexpr DWORD kTickMs = 10;

// Sends the bytes as a feature report or as an output report; returns when the device has them.
bool SendReport(HANDLE device, std::span<const uint8_t> bytes, bool as_feature_report);

// A handle as the log shows it: -1 for one that could not be opened.
std::wstring HandleText(HANDLE handle);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_DEVICE_IO_H_
