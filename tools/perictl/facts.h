// What a device tells about itself: each asks the library one thing and reports the answer.
#ifndef PERILINK_TOOLS_PERICTL_FACTS_H_
#define PERILINK_TOOLS_PERICTL_FACTS_H_

#include <string>

#include "context.h"
#include "perilink/records.h"

namespace perictl {

// One HID interface with its ids, as an entry of the list "interfaces".
void AddInterface(Report& report, const std::string& path, bool takes_commands);

// A reading of the battery, for people and for scripts.
std::string BatteryText(const BatteryLevel& battery);
Json BatteryJson(const BatteryLevel& battery);
void AddBattery(Report& report, const BatteryLevel& battery);

// Everything that the direct commands can read of a device that is on line: `online` is the answer
// to that question. A fact that this device does not tell is reported as such. Throws Failure when
// the device stops answering altogether.
void AddDeviceFacts(Report& report, const std::string& path, const Selection& selection,
                    const CommandFrame& online);

// What its receiver is set to: colours, light bar, indicator LED, long-range mode.
void AddReceiverFacts(Report& report, const std::string& path);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_FACTS_H_
