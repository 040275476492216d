// An upgrade from its start to its outcome, with what happens in words.
#ifndef PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_RUN_H_
#define PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_RUN_H_

#include <cstdint>
#include <functional>
#include <string>

#include "firmware/upgrade_file.h"
#include "terminal/report.h"

namespace perictl {

// One event, as a line and as a JSON object: {"at_ms", "event"} and what belongs to the event:
//   progress                        "percent"; with a line at each tenth, unless a bar shows it
//   notice, device-error, success,
//   failure                         "code", "arg1", "arg2" as the library tells them, "text"
using UpgradeSink = std::function<void(const std::string& text, const Json& value)>;

enum class UpgradeBar { kNone, kOnTerminal };

// Upgrades the devices that a sound file is for. Throws Failure with the class and the reason when
// that does not succeed: kNoDevice, kUpgrade or kTimedOut. Ctrl-C does not stop it, the first time.
void RunUpgrade(const UpgradeFile& file, uint32_t timeout_ms, UpgradeBar bar,
                const UpgradeSink& sink);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_RUN_H_
