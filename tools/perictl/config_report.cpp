#include "config_report.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <sstream>

#include "device.h"

namespace perictl {
namespace {

using perilink::tools::ConfigPart;
using perilink::tools::ConfigUpdate;
using perilink::tools::DeviceConfig;

// No configuration comes near it, and a device file may have no end.
constexpr std::streamsize kLongestFile = 4 << 20;

bool WriteWhole(const std::string& name, const std::string& content) {
  std::ofstream file(name, std::ios::binary | std::ios::trunc);
  file.write(content.data(), std::ssize(content));
  file.close();
  return static_cast<bool>(file);
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

}  // namespace

std::string ReadFile(const std::string& name) {
  std::error_code ignored;
  std::ifstream file(name, std::ios::binary);
  if (!file || std::filesystem::is_directory(name, ignored)) {
    throw Failure(ExitCode::kFile, name + ": the file can't be read");
  }
  std::string content(static_cast<size_t>(kLongestFile), '\0');
  file.read(content.data(), kLongestFile);
  if (!file.eof()) throw Failure(ExitCode::kFile, name + ": this is too long for a configuration");
  content.resize(static_cast<size_t>(file.gcount()));
  return content;
}

void WriteFile(const std::string& name, const std::string& content) {
  namespace fs = std::filesystem;
  std::error_code error;
  const bool special = fs::exists(name, error) && !fs::is_regular_file(name, error);
  const std::string target = special ? name : name + ".part";
  bool written = WriteWhole(target, content);
  if (written && !special) {
    fs::rename(target, name, error);
    written = !error;
  }
  if (written) return;
  if (!special) fs::remove(target, error);
  throw Failure(ExitCode::kFile, name + ": the file can't be written");
}

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
  throw Failure(ExitCode::kRefused,
                "the device's memory holds no configuration of a mouse; nothing was written");
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

void WriteAndReport(Context& context, ConfigDevice& device, const ConfigUpdate& update) {
  device.Write(update);
  std::vector<std::string> names;
  for (const ConfigPart& part : update.writes)
    names.push_back(part.name);
  Report& report = context.report;
  report.Fact("written", "written", names.empty() ? "nothing: the device holds it" : Joined(names),
              names);
  if (!names.empty()) {
    report.Fact("verified", "verified", "every write was acknowledged and read back", true);
  }
}

}  // namespace perictl
