#include "config_report.h"

#include <cstdint>
#include <span>
#include <sstream>

#include "device.h"
#include "files.h"

namespace perictl {
namespace {

using perilink::tools::ConfigPart;
using perilink::tools::ConfigUpdate;
using perilink::tools::DeviceConfig;

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

}  // namespace

ConfigFile ReadConfigFile(const std::string& name) {
  const std::string content = ReadFile(name);
  return WithCode(ExitCode::kFile, name, [&content] {
    ConfigFile file{perilink::tools::LoadConfig(content), {}};
    if (file.loaded.from_image) {
      file.image = perilink::tools::DeviceConfigFromImage(
          {reinterpret_cast<const uint8_t*>(content.data()), content.size()});
    }
    return file;
  });
}

ConfigDevice OpenConfigDevice(const Context& context) {
  return ConfigDevice(SelectDevice(context), context.selection.keyboard);
}

void RequireConfig(const DeviceConfig& device) {
  if (LooksLikeConfig(device)) return;
  throw Failure(
      ExitCode::kRefused,
      "the device's memory holds no configuration that perictl knows; nothing was written "
      "('config load --force' writes all the same)");
}

void AddConfig(Report& report, const ProtocolData& record) {
  if (report.json()) {
    report.Fact("configuration", "", "", perilink::tools::ConfigToJson(record));
    return;
  }
  std::istringstream lines(perilink::tools::ConfigText(record));
  for (std::string line; std::getline(lines, line);)
    report.Remark(line);
}

void AddFailedChecks(Report& report, const std::vector<std::string>& failed) {
  if (!report.json() && failed.empty()) return;
  report.Fact("failed_checks", "failed their check", Joined(failed), failed);
}

void AddWritten(Report& report, const ConfigUpdate& update) {
  std::vector<std::string> names;
  for (const ConfigPart& part : update.writes)
    names.push_back(part.name);
  report.Fact("written", "written", names.empty() ? "nothing: the device holds it" : Joined(names),
              names);
  if (!names.empty()) {
    report.Fact("verified", "verified", "every write was acknowledged and read back", true);
  }
}

}  // namespace perictl
