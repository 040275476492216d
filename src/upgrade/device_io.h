// What the steps of an upgrade share in talking to a device.
#ifndef PERILINK_SRC_UPGRADE_DEVICE_IO_H_
#define PERILINK_SRC_UPGRADE_DEVICE_IO_H_

#include "platform/win32.h"
#include "transport/link.h"
#include "upgrade/image.h"

namespace perilink {

// The pace of every wait of an upgrade: no wait without an event sleeps longer.
inline constexpr DWORD kTickMs = 10;

// Sends the bytes the way the command asks for: as a feature report, or as an output report.
inline bool SendReport(const Link& link, const CommandDescriptor& command,
                       std::span<const uint8_t> bytes) {
  return command.use_feature_report != 0 ? link.handles().SendFeature(bytes) : link.Write(bytes);
}

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_DEVICE_IO_H_
