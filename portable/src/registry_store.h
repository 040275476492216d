// The registry's file. Every process reads it when it has changed and replaces it as a whole, so
// that a process that dies at any moment leaves the old contents or the new.
#ifndef PERILINK_PLATFORM_SRC_REGISTRY_STORE_H_
#define PERILINK_PLATFORM_SRC_REGISTRY_STORE_H_

#include <sys/stat.h>

#include <functional>
#include <mutex>
#include <string>

#include "registry_tree.h"

namespace perilink::platform {

class RegistryStore {
 public:
  static RegistryStore& Get();

  void SetFolder(const std::string& folder);

  // Shows `look` the contents as they are now.
  void Read(const std::function<void(const RegistryTree&)>& look);
  // Has `change` applied to the contents as they are now and stores them, alone among all
  // processes. 0 once they are on the disk, else an error code and nothing has changed.
  DWORD Update(const std::function<void(RegistryTree&)>& change);

 private:
  std::string File(const char* name) const { return folder_ + '/' + name; }
  void Reload();
  DWORD Replace(const RegistryTree& tree);

  std::mutex mutex_;
  std::string folder_;
  RegistryTree tree_;
  bool understood_ = true;
  // Which file `tree_` was read from.
  bool loaded_ = false;
  struct stat identity_ {};
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_REGISTRY_STORE_H_
