// perictl list: the HID interfaces, and which of them carry the selected device's commands.
#include <algorithm>

#include "commands/commands.h"
#include "device.h"
#include "facts.h"

namespace perictl {
namespace {

void List(Context& context) {
  const std::vector<std::string> matching = MatchingInterfaces(context.selection);
  Report& report = context.report;
  report.Section("", "HID interfaces (* takes commands):");
  const std::vector<std::string> all = AllInterfaces();
  for (const std::string& path : all) {
    const bool takes_commands = std::find(matching.begin(), matching.end(), path) != matching.end();
    AddInterface(report, path, takes_commands);
  }
  if (all.empty()) {
    report.Remark("none");
    report.Fact("interfaces", "", "", Json::array());
  }
}

}  // namespace

void AddListCommand(CLI::App& app, Context& context) {
  app.add_subcommand("list", "list the HID interfaces")->callback([&context] {
    context.run = [&context] { List(context); };
  });
}

}  // namespace perictl
