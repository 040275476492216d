// perictl battery: the battery as the device tells it, or its smoothed level over time.
#include <memory>

#include "commands/commands.h"
#include "device/facts.h"
#include "device/online.h"
#include "perilink/finder.h"
#include "server/watch.h"

namespace perictl {
namespace {

struct BatteryOptions {
  bool watch = false;
  bool all = false;
  WatchOptions limits;
};

void AddLevel(Report& report, const DeviceEntry& device) {
  Address(device);
  RequireOnline(device.path);
  BatteryLevel battery{};
  if (!UsbFinderC_GetBatteryLevel(device.path.c_str(), &battery)) {
    FailUnanswered(device.path, "its battery");
  }
  AddDevice(report, device);
  AddBattery(report, battery);
}

void Battery(Context& context, bool all) {
  Report& report = context.report;
  if (!all) {
    const DeviceEntry device = DeviceToRead(context);
    report.Section("", "Device:");
    return AddLevel(report, device);
  }
  for (const DeviceEntry& device : RequireDevices(context)) {
    report.Entry("devices", "Device " + std::to_string(device.number) + ":");
    AddLevel(report, device);
  }
}

}  // namespace

void AddBatteryCommand(CommandLine& line, Context& context) {
  CLI::App& command = line.Add(
      line.root(),
      {"battery",
       "read the battery once, or watch its smoothed level until Ctrl-C",
       {"A watch goes on while the device is asleep or not plugged in, and says so."},
       {{"perictl battery", "the level now"},
        {"perictl battery --watch --for 3600", "a line whenever it changes, for an hour"}}});
  const auto options = std::make_shared<BatteryOptions>();
  CLI::Option* const watch = command.add_flag(
      "--watch", options->watch, "keep telling, also when the device goes and comes back");
  command.add_flag("--all", options->all, "of all devices that match, one after another")
      ->excludes(watch);
  AddWatchLimits(command, options->limits, watch);
  SetRun(command, context, [&context, options] {
    options->watch ? ReportWatch(context, options->limits) : Battery(context, options->all);
  });
}

}  // namespace perictl
