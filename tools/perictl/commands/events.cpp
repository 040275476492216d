// perictl events: everything that a device reports by itself, until Ctrl-C.
#include "commands/commands.h"
#include "watch.h"

namespace perictl {

void AddEventsCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "events", "tell a device's events, battery levels, removals and returns until Ctrl-C");
  const auto options = std::make_shared<WatchOptions>();
  options->status = true;
  AddWatchLimits(*command, *options);
  command->callback([&context, options] {
    context.run = [&context, options] { ReportWatch(context, *options); };
  });
}

}  // namespace perictl
