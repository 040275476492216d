// What every command is given: the options that all commands share, and the report.
#ifndef PERILINK_TOOLS_PERICTL_CONTEXT_H_
#define PERILINK_TOOLS_PERICTL_CONTEXT_H_

#include <functional>
#include <memory>
#include <string>

#include "common/files.h"
#include "exit_codes.h"
#include "selection/devices.h"
#include "selection/model_catalog.h"
#include "selection/virtual_devices.h"
#include "terminal/report.h"

namespace perictl {

class CommandLine;

struct Context {
  explicit Context(std::ostream& out) : report(out) {}

  Selection selection;
  VirtualChoice virtual_device;
  std::string model;  // what --model says
  Report report;
  // What the chosen command does; set while the command line is read.
  std::function<void()> run;
  // What the process returns when that has not failed.
  ExitCode exit_code = ExitCode::kSuccess;

  // The descriptions, read when they are first asked for. Files that are none are told of then.
  const ModelCatalog& Models() const;

  // Held while this process has --virtual-memory's file in its hands.
  std::unique_ptr<perilink::tools::FileLock> memory_lock;
  std::string memory_before;

 private:
  mutable std::unique_ptr<ModelCatalog> models_;
};

// Adds the options that all commands share.
void AddCommonOptions(CommandLine& line, Context& context);

// Plugs the virtual devices in, if any are meant.
void PrepareDevices(Context& context);
// Keeps of the virtual device what shall be there again. Throws FileError.
void FinishDevices(Context& context);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CONTEXT_H_
