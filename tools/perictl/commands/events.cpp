// perictl events: everything that a device reports by itself, until Ctrl-C.
#include <memory>

#include "commands/commands.h"
#include "server/watch.h"

namespace perictl {

void AddEventsCommand(CommandLine& line, Context& context) {
  CLI::App& command = line.Add(
      line.root(),
      {"events",
       "tell a device's events, battery levels, removals and returns until Ctrl-C",
       {"It goes on while the device is asleep or not plugged in, and says so."},
       {{"perictl events", "a line for each event"},
        {"perictl events --json --count 10", "ten events, each a JSON object of a line"}}});
  const auto options = std::make_shared<WatchOptions>();
  options->status = true;
  AddWatchLimits(command, *options);
  SetRun(command, context, [&context, options] { ReportWatch(context, *options); });
}

}  // namespace perictl
