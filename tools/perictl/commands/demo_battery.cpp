// The demo's step that watches: what the device reports by itself, and how it goes and comes back.
#include "commands/demo_steps.h"
#include "selection/virtual_devices.h"
#include "server/watch.h"

namespace perictl {

void DemoBattery(DemoState& state) {
  Report& report = state.context.report;
  if (!HappenToVirtualDevice(
          "charging@500ms,event@1s,absent@1500ms,present@2s,discharging@2500ms")) {
    report.Remark("(connect the charger, or unplug the receiver for a moment)");
  }
  WatchOptions options;
  options.status = true;
  options.seconds = 3;
  RunWatch(state.context, options, [&report](const std::string& text, const Json& value) {
    report.Item("events", text, value);
  });
}

}  // namespace perictl
