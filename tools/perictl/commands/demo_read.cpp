// The demo's second step: what the device tells about itself.
#include "commands/demo_steps.h"
#include "device/facts.h"
#include "device/online.h"

namespace perictl {

void DemoRead(DemoState& state) {
  const CommandFrame online = RequireOnline(state.device.path);
  AddDeviceFacts(state.context.report, state.device, online, false);
}

}  // namespace perictl
