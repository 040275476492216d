// The steps of the demo, in the order in which they run. A step has a section of the report.
#ifndef PERILINK_TOOLS_PERICTL_COMMANDS_DEMO_STEPS_H_
#define PERILINK_TOOLS_PERICTL_COMMANDS_DEMO_STEPS_H_

#include <string>

#include "context.h"

namespace perictl {

// What the steps hand on.
struct DemoState {
  Context& context;
  DeviceEntry device;
};

void DemoFind(DemoState& state);
void DemoRead(DemoState& state);
void DemoSettings(DemoState& state);
void DemoConfiguration(DemoState& state);
void DemoBattery(DemoState& state);
void DemoUpgrade(DemoState& state);

struct DemoStep {
  const char* key;
  const char* title;
  void (*run)(DemoState& state);
};

inline constexpr DemoStep kDemoSteps[] = {
    {"find", "Finding the device", DemoFind},
    {"device", "Reading the device", DemoRead},
    {"receiver", "Setting the receiver, and setting it back", DemoSettings},
    {"configuration", "Changing the configuration, and changing it back", DemoConfiguration},
    {"battery", "Watching the battery", DemoBattery},
    {"upgrade", "Upgrading the firmware", DemoUpgrade},
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_COMMANDS_DEMO_STEPS_H_
