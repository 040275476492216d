// Backups of a device's configuration, before something replaces it.
#ifndef PERILINK_TOOLS_PERICTL_CONFIG_BACKUP_H_
#define PERILINK_TOOLS_PERICTL_CONFIG_BACKUP_H_

#include <string>

#include "common/config_parts.h"
#include "selection/devices.h"

namespace CLI {
class App;
}

namespace perictl {

struct BackupOptions {
  std::string file;  // where it goes; empty: a new file in the user's state folder
  bool none = false;
};

// --backup and --no-backup.
void AddBackupOptions(CLI::App& command, BackupOptions& options);

// Keeps what was read, as JSON or, where it is no configuration that perictl knows, as the device's
// image. Returns the file's name; empty when none is wanted. Throws FileError or Failure(kFile)
// when it can't be kept.
std::string KeepBackup(const BackupOptions& options, const DeviceEntry& device,
                       const perilink::tools::DeviceConfig& config);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CONFIG_BACKUP_H_
