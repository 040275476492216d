// The demo's second step: what the device tells about itself.
#include "commands/demo_steps.h"
#include "device.h"
#include "facts.h"

namespace perictl {

void DemoRead(DemoState& state) {
  const CommandFrame online = RequireOnline(state.path);
  AddDeviceFacts(state.context.report, state.path, state.context.selection, online);
}

}  // namespace perictl
