// What the commands about configurations share.
#ifndef PERILINK_TOOLS_PERICTL_CONFIG_REPORT_H_
#define PERILINK_TOOLS_PERICTL_CONFIG_REPORT_H_

#include <string>
#include <vector>

#include "common/config.h"
#include "common/config_parts.h"
#include "config_device.h"
#include "context.h"
#include "exit_codes.h"

namespace perictl {

// Runs `work`, whose ConfigError becomes a Failure with this code, behind `what` if that is given.
template <typename Work>
auto WithCode(ExitCode code, const std::string& what, Work work) {
  try {
    return work();
  } catch (const perilink::tools::ConfigError& error) {
    throw Failure(code, (what.empty() ? "" : what + ": ") + error.what());
  }
}

struct ConfigFile {
  perilink::tools::LoadedConfig loaded;
  perilink::tools::DeviceConfig image;  // when it was loaded from one
};
// Throws Failure(kFile), which names the file and the field.
ConfigFile ReadConfigFile(const std::string& name);

// The selected device, on line.
ConfigDevice OpenConfigDevice(const Context& context);
// Throws Failure(kRefused) when its memory holds something else, which is not to be written over.
void RequireConfig(const perilink::tools::DeviceConfig& device);

// A whole record: lines, and the member "configuration".
void AddConfig(Report& report, const ProtocolData& record);
// Fields whose check failed: a line, and the member "failed_checks".
void AddFailedChecks(Report& report, const std::vector<std::string>& failed);

// What was written to a device: lines, and the members "written" and "verified".
void AddWritten(Report& report, const perilink::tools::ConfigUpdate& update);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CONFIG_REPORT_H_
