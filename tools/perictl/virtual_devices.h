// Devices that are simulated in this process, where the build has them.
#ifndef PERILINK_TOOLS_PERICTL_VIRTUAL_DEVICES_H_
#define PERILINK_TOOLS_PERICTL_VIRTUAL_DEVICES_H_

#include <string>
#include <vector>

#include "context.h"

namespace perictl {

// What --virtual can choose; empty in a build that reaches real devices only.
std::vector<std::string> VirtualModels();
// What --virtual-fault can choose.
std::vector<std::string> VirtualFaults();
// The model without --virtual; empty for the real devices.
std::string DefaultVirtualModel();

// Plugs the device in; it stays until the process ends. The choice is one of those above.
void PlugVirtualDevice(const VirtualChoice& choice);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_VIRTUAL_DEVICES_H_
