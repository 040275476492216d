// What the commands about configurations share: reading files, and showing values and changes.
#ifndef PERILINK_TOOLS_PERICTL_CONFIG_CONFIG_REPORT_H_
#define PERILINK_TOOLS_PERICTL_CONFIG_CONFIG_REPORT_H_

#include <string>
#include <vector>

#include "common/config.h"
#include "common/config_parts.h"
#include "config/config_device.h"
#include "context.h"
#include "exit_codes.h"
#include "words/vocabulary.h"

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

// Throws Failure(kFile) or FileError, which names the file and the field.
perilink::tools::ConfigFile ReadConfigFile(const std::string& name);

// Throws Failure(kRefused) when the device's memory holds something else than a configuration.
void RequireConfig(const perilink::tools::DeviceConfig& device, const std::string& hint = "");

// A whole record: lines, and the members "configuration" and "words".
void AddConfig(Report& report, const perilink::tools::Vocabulary& words, const ProtocolData& record,
               const perilink::tools::KnownBytes& known, const std::string& model);
// Some values: lines, and either one value's members or the list "fields".
void AddValues(Report& report, const std::vector<perilink::tools::Value>& values);

// Fields whose check failed, or that are missing: a line, and the member `key`, unless there are
// none.
void AddNames(Report& report, const std::string& key, const std::string& label,
              const perilink::tools::NameList& names);
// What is odd about a file: its version, what it has besides and what it lacks, failed checks.
void AddFileNotes(Report& report, const perilink::tools::ConfigFile& file);

// What differs, old -> new: lines, and the member `key`.
void AddChanges(Report& report, const std::string& key,
                const std::vector<perilink::tools::Change>& changes);

// An update from its plan to its end: shows what changes and, unless it is a dry run, writes and
// says so.
void Apply(Report& report, ConfigDevice& device, const perilink::tools::Vocabulary& words,
           const perilink::tools::DeviceConfig& before, const perilink::tools::ConfigUpdate& update,
           bool dry_run);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CONFIG_CONFIG_REPORT_H_
