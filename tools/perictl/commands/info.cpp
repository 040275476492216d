// perictl info: everything that the direct commands can read of one device.
#include "commands/commands.h"
#include "device.h"
#include "facts.h"
#include "text.h"

namespace perictl {
namespace {

void Info(Context& context) {
  Report& report = context.report;
  const std::string path = SelectDevice(context);
  report.Section("", "Device:");
  report.Fact("path", "path", path, path);
  if (const std::optional<DeviceIds> ids = ReadIds(path)) {
    const std::string text = Hex16(ids->vendor) + ":" + Hex16(ids->product);
    report.Fact("id", "id", text, text);
  }
  const CommandFrame online = RequireOnline(path);
  AddDeviceFacts(report, path, context.selection, online);
  AddReceiverFacts(report, path);
}

}  // namespace

void AddInfoCommand(CLI::App& app, Context& context) {
  app.add_subcommand("info", "read everything that a device tells about itself")
      ->callback([&context] { context.run = [&context] { Info(context); }; });
}

}  // namespace perictl
