// A device over time: what it reports, how it goes and comes back, falls asleep and wakes.
#ifndef PERILINK_TOOLS_PERICTL_SERVER_WATCH_H_
#define PERILINK_TOOLS_PERICTL_SERVER_WATCH_H_

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "context.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace perictl {

struct WatchOptions {
  bool status = false;  // the events that the device sends by itself, too
  uint64_t count = std::numeric_limits<uint64_t>::max();  // ends after so many events
  double seconds = 0;                                     // ends after this time; 0: never
};

// Adds --count and --for; both need the option `needs`, if there is one.
void AddWatchLimits(CLI::App& command, WatchOptions& options, CLI::Option* needs = nullptr);

// One event, as a line and as a JSON object: {"at_ms", "event"} and what belongs to the event:
//   arrival   "path", "name", "virtual"
//   removal   "path"
//   battery   "percent", "charging", "millivolts"
//   status    "flags" (seven numbers, 0 or 1), "data"
// and, which --count does not count:
//   absent    no device that is meant is plugged in; it is waited for
//   asleep, silent, awake
//   lost      "count": so many reports came faster than they could be shown
using WatchSink = std::function<void(const std::string& text, const Json& value)>;

// Runs the background server on the device, through as many removals, returns and sleeps as there
// are, until a limit is reached, the output is lost or Ctrl-C comes (InterruptGuard). It begins
// with whatever is there, also with nothing.
void RunWatch(Context& context, const WatchOptions& options, const WatchSink& sink);

// The same, with the events as the report's.
void ReportWatch(Context& context, const WatchOptions& options);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SERVER_WATCH_H_
