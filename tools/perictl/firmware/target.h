// Which device an upgrade is for, and what speaks against it.
#ifndef PERILINK_TOOLS_PERICTL_FIRMWARE_TARGET_H_
#define PERILINK_TOOLS_PERICTL_FIRMWARE_TARGET_H_

#include <optional>
#include <string>

#include "context.h"
#include "firmware/upgrade_file.h"
#include "perilink/records.h"

namespace perictl {

struct UpgradeTarget {
  // In normal mode; nothing when it waits in boot mode already.
  std::optional<DeviceEntry> device;
  std::string boot_path;
  // Of a device in normal mode, as far as it tells.
  std::string version;
  std::optional<BatteryLevel> battery;
  // The file was for devices with other ids.
  bool forced = false;
  // The paths of other devices that the file is for.
  std::vector<std::string> others;

  std::string Title() const { return device ? device->Title() : "in boot mode: " + boot_path; }
};

// The device that the selection and the file name together. Where several have the file's keys, and
// one of them was chosen, the file is made to look for that one alone. Throws Failure: kNoDevice,
// kSeveral, what RequireOnline throws, and without `force` kDeclined for a chosen device that the
// file is not for, and for a battery below 20 percent that is not being charged.
UpgradeTarget FindUpgradeTarget(const Context& context, UpgradeFile& file, bool force);

// A device restarts after an upgrade, and its interfaces come back somewhat later. Waits for one
// that the file is for and that is none of the others. Nothing when it has not come in ten seconds.
std::optional<DeviceEntry> AwaitReturn(const Context& context, const UpgradeFile& file,
                                       const std::vector<std::string>& others);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_FIRMWARE_TARGET_H_
