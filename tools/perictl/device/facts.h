// What a device tells about itself: each asks the library one thing and reports the answer.
#ifndef PERILINK_TOOLS_PERICTL_DEVICE_FACTS_H_
#define PERILINK_TOOLS_PERICTL_DEVICE_FACTS_H_

#include <string>

#include "perilink/records.h"
#include "selection/devices.h"
#include "terminal/report.h"

namespace perictl {

// A reading of the battery, for people and for scripts.
std::string BatteryText(const BatteryLevel& battery);
Json BatteryJson(const BatteryLevel& battery);
void AddBattery(Report& report, const BatteryLevel& battery);

// Everything that the direct commands can read of a device that is on line: `online` is the answer
// to that question. A fact that this device does not tell is reported as such. With `raw` what a
// description gives words to is shown as bytes. Throws Failure when the device stops answering
// altogether.
void AddDeviceFacts(Report& report, const DeviceEntry& device, const CommandFrame& online,
                    bool raw);

// What its receiver is set to: colours, light bar, indicator LED, long-range mode.
void AddReceiverFacts(Report& report, const DeviceEntry& device, bool raw);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_DEVICE_FACTS_H_
