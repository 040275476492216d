// What every command is given: the options that all commands share, and the report.
#ifndef PERILINK_TOOLS_PERICTL_CONTEXT_H_
#define PERILINK_TOOLS_PERICTL_CONTEXT_H_

#include <functional>
#include <string>

#include "exit_codes.h"
#include "report.h"

namespace CLI {
class App;
}

namespace perictl {

// Which device is meant. At most one of `path`, `key` and the ids is given; with none of them it is
// the first interface with the number and collection that the devices keep for their commands.
struct Selection {
  std::string vendor_id;  // four hexadecimal digits, or empty
  std::string product_id;
  std::string path;
  std::string key;
  bool keyboard = false;  // speak to a keyboard: its frames carry a mark
};

// A device that is simulated in this process, instead of the real ones.
struct VirtualChoice {
  std::string model;   // "mouse", "keyboard", or empty for the real devices
  std::string fault;   // what happens to it, as --virtual-fault takes it, or empty
  std::string memory;  // the file that holds its configuration's image, or empty
  bool virtual_time = false;
};

struct Context {
  explicit Context(std::ostream& out) : report(out) {}

  Selection selection;
  VirtualChoice virtual_device;
  Report report;
  // What the chosen command does; set while the command line is read.
  std::function<void()> run;
  // What the process returns when that has not failed.
  ExitCode exit_code = ExitCode::kSuccess;
};

// Adds the options that all commands share.
void AddCommonOptions(CLI::App& app, Context& context);

// Plugs the virtual device in, if one is meant, and sets the target of the frames.
void PrepareDevices(Context& context);
// Keeps of the virtual device what shall be there again. Throws Failure(kFile).
void FinishDevices(const Context& context);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CONTEXT_H_
