// The library as a module that its host may unload at any time: what keeps it loaded while its code
// can still run.
#ifndef PERILINK_SRC_PLATFORM_MODULE_H_
#define PERILINK_SRC_PLATFORM_MODULE_H_

#include "platform/win32.h"

namespace perilink {

// The module that this code is in.
HMODULE LibraryModule();

// Keeps the library loaded until it is released. Release it only where something else keeps the
// library loaded; within an export its host does.
class ModuleReference {
 public:
  ModuleReference() = default;
  ModuleReference(const ModuleReference&) = delete;
  ModuleReference& operator=(const ModuleReference&) = delete;

  // False when the system refuses. Does nothing when it is held already.
  bool Take();
  void Release();

 private:
  HMODULE module_ = nullptr;
};

// Starts a thread that runs `body` with the argument and keeps the library loaded until it has left
// its code. Returns the thread's handle, which is the caller's to close, or null when the system
// can't make it.
HANDLE StartLibraryThread(void (*body)(void* argument), void* argument = nullptr);

}  // namespace perilink

#endif  // PERILINK_SRC_PLATFORM_MODULE_H_
