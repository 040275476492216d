// The steps that bring a device into its boot mode. Both poll: a tick passes each time the
// system's tick count has advanced by at least 10 ms, a cycle has 21 ticks, and a step gives up
// after the record's timeout / 100 cycles. On the upgrade thread.
#ifndef PERILINK_SRC_UPGRADE_STEPS_H_
#define PERILINK_SRC_UPGRADE_STEPS_H_

#include "upgrade/upgrade_record.h"

namespace perilink {

// Writes the reset command to the device that runs its normal firmware. Without its normal
// interfaces the device is taken to be in boot mode already, or, with `wait_normal`, waited for.
bool ResetToBootMode(UsbUpgradeFile& record, bool wait_normal);

// Waits until three cycles in a row have found exactly one boot-mode interface of each kind.
bool WaitBootMode(UsbUpgradeFile& record);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_STEPS_H_
