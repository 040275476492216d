// The registry's file. Every process reads it when it has changed and replaces it as a whole, so
// that a process that dies at any moment leaves the old contents or the new.
//
// The folder and the files in it are the user's own and nobody else's to write: anything else that
// stands in their place (a link, a FIFO, a folder, another user's file) is an error, and so is
// whatever keeps them from being read. Only a file that isn't there is an empty registry.
#ifndef PERILINK_PLATFORM_SRC_REGISTRY_STORE_H_
#define PERILINK_PLATFORM_SRC_REGISTRY_STORE_H_

#include <sys/stat.h>

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "file_descriptor.h"
#include "registry_tree.h"

namespace perilink::platform {

// Bytes of the largest file that is written, and read.
inline constexpr size_t kLargestRegistry = 1 << 20;

// The folder for the registry of this process's user; empty if the user has no home.
std::string DefaultRegistryFolder();

// All functions return 0 or a Windows error code.
class RegistryStore {
 public:
  static RegistryStore& Get();

  // Empty: the default.
  void SetFolder(const std::string& folder);

  // Shows `look` the contents as they are now.
  DWORD Read(const std::function<void(const RegistryTree&)>& look);
  // Has `change` applied to the contents as they are now and stores them, alone among all
  // processes. On an error nothing has changed, and only on one at the very end
  // (ERROR_REGISTRY_IO_FAILED) may the new contents be there without being safe on the disk.
  // ERROR_LOCK_VIOLATION when another process doesn't let go of the file for two seconds.
  DWORD Update(const std::function<void(RegistryTree&)>& change);

 private:
  DWORD FindFolder(std::string& folder);
  DWORD Reload(const FileDescriptor& folder);
  DWORD Replace(const FileDescriptor& folder, const RegistryTree& tree);

  std::mutex mutex_;  // not held while another process has the file
  std::string chosen_folder_;
  RegistryTree tree_;
  bool understood_ = true;
  std::optional<struct stat> identity_;  // of the file that `tree_` was read from
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_REGISTRY_STORE_H_
