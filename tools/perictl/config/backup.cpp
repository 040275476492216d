#include "config/backup.h"

#include <chrono>
#include <ctime>
#include <filesystem>

#include "cli/command_line.h"
#include "common/files.h"
#include "exit_codes.h"

namespace perictl {
namespace {

namespace tools = perilink::tools;

constexpr int kMostOfASecond = 1000;

std::string Now() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", std::localtime(&now));
  return text;
}

// "FOLDER/virtual-mouse-20260102-030405.json", with a number where that is taken.
std::string KeepInStateFolder(const std::string& name, const std::string& ending,
                              const std::string& content) {
  const std::optional<std::string> state = tools::StateFolder();
  if (!state) {
    throw Failure(
        ExitCode::kFile,
        "there is no folder for a backup: set HOME, or give --backup FILE or --no-backup");
  }
  const std::filesystem::path folder = std::filesystem::path(*state) / "backups";
  tools::MakeFolder(folder.string());
  const std::string start = name + "-" + Now();
  for (int number = 1; number < kMostOfASecond; ++number) {
    const std::string suffix = number == 1 ? "" : "-" + std::to_string(number);
    const std::string file = (folder / (start + suffix + ending)).string();
    if (tools::CreateNewFile(file, content)) return file;
  }
  throw Failure(ExitCode::kFile, folder.string() + ": too many backups at once");
}

}  // namespace

void AddBackupOptions(CLI::App& command, BackupOptions& options) {
  CLI::Option* const file =
      command
          .add_option("--backup", options.file,
                      "keep the backup of its configuration here, not in the state folder")
          ->type_name("FILE");
  command.add_flag("--no-backup", options.none, "keep no backup of its configuration")
      ->excludes(file);
}

std::string KeepBackup(const BackupOptions& options, const DeviceEntry& device,
                       const tools::DeviceConfig& config) {
  if (options.none) return "";
  const bool readable = LooksLikeConfig(config);
  const std::string model = device.model == nullptr ? "" : device.model->id;
  const std::string content =
      readable ? tools::ConfigToJson(config.record, SoundBytes(config), model).dump(2) + "\n"
               : std::string(config.image.begin(), config.image.end());
  if (options.file.empty()) {
    const std::string name = device.name.empty() ? "device" : device.name;
    return KeepInStateFolder(name, readable ? ".json" : ".img", content);
  }
  tools::WriteWholeFile(options.file, content);
  return options.file;
}

}  // namespace perictl
