// perictl info: everything that the direct commands can read of a device.
#include <memory>

#include "commands/commands.h"
#include "device/facts.h"
#include "device/online.h"

namespace perictl {
namespace {

struct InfoOptions {
  bool all = false;
  bool raw = false;
};

void AddFacts(Report& report, const DeviceEntry& device, bool raw) {
  Address(device);
  AddDevice(report, device);
  const CommandFrame online = RequireOnline(device.path);
  AddDeviceFacts(report, device, online, raw);
  AddReceiverFacts(report, device, raw);
}

void Info(Context& context, const InfoOptions& options) {
  Report& report = context.report;
  if (!options.all) {
    const DeviceEntry device = DeviceToRead(context);
    report.Section("", "Device:");
    return AddFacts(report, device, options.raw);
  }
  for (const DeviceEntry& device : RequireDevices(context)) {
    report.Entry("devices", "Device " + std::to_string(device.number) + ":");
    AddFacts(report, device, options.raw);
  }
}

}  // namespace

void AddInfoCommand(CommandLine& line, Context& context) {
  CLI::App& command =
      line.Add(line.root(), {"info",
                             "read everything that a device tells about itself",
                             {},
                             {{"perictl info", "of the only device, or the first"},
                              {"perictl info --device 2", "of the second in the list"}}});
  const auto options = std::make_shared<InfoOptions>();
  command.add_flag("--all", options->all, "of all devices that match, one after another");
  command.add_flag("--raw", options->raw, "as bytes, without the words of a description");
  SetRun(command, context, [&context, options] { Info(context, *options); });
}

}  // namespace perictl
