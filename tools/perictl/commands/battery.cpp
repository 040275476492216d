// perictl battery: the battery as the device tells it, or its smoothed level over time.
#include "commands/commands.h"
#include "device.h"
#include "facts.h"
#include "watch.h"

namespace perictl {
namespace {

struct BatteryOptions {
  bool watch = false;
  WatchOptions limits;
};

void Battery(Context& context) {
  const std::string path = SelectDevice(context);
  RequireOnline(path);
  BatteryLevel battery{};
  if (!UsbFinderC_GetBatteryLevel(path.c_str(), &battery)) FailUnanswered(path, "its battery");
  context.report.Section("", "Device:");
  context.report.Fact("path", "path", path, path);
  AddBattery(context.report, battery);
}

}  // namespace

void AddBatteryCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "battery", "read the battery once, or watch its smoothed level until Ctrl-C");
  const auto options = std::make_shared<BatteryOptions>();
  CLI::Option* const watch = command->add_flag(
      "--watch", options->watch, "keep telling, also when the device goes and comes back");
  AddWatchLimits(*command, options->limits, watch);
  command->callback([&context, options] {
    context.run = [&context, options] {
      options->watch ? ReportWatch(context, options->limits) : Battery(context);
    };
  });
}

}  // namespace perictl
