// The bus that the platform's calls use.
#ifndef PERILINK_PLATFORM_SRC_ACTIVE_BUS_H_
#define PERILINK_PLATFORM_SRC_ACTIVE_BUS_H_

#include "perilink_platform/hid_bus.h"

namespace perilink::platform {

// The virtual bus in virtual mode and where the machine's devices are hidden; else the machine's
// devices and, after them, those of the virtual bus. The first call brings up the machine's bus; no
// lock may be held. Null when the system has no resources for that.
HidBus* ActiveBus();

// Whether the machine's bus has been brought up.
bool MachineBusRuns();

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_ACTIVE_BUS_H_
