// A shared library that is linked with "nodelete" stays when its host unloads it: nothing to hold.
#include "platform/module.h"

#include <new>

namespace perilink {
namespace {

struct Start {
  void (*body)(void*);
  void* argument;
};

DWORD WINAPI ThreadMain(LPVOID parameter) {
  const Start start = *static_cast<const Start*>(parameter);
  delete static_cast<const Start*>(parameter);
  start.body(start.argument);
  return 0;
}

}  // namespace

HMODULE LibraryModule() {
  return GetModuleHandleW(nullptr);
}

bool ModuleReference::Take() {
  module_ = LibraryModule();
  return true;
}

void ModuleReference::Release() {
  module_ = nullptr;
}

HANDLE StartLibraryThread(void (*body)(void*), void* argument) {
  auto* start = new (std::nothrow) Start{body, argument};
  if (start == nullptr) return nullptr;
  const HANDLE thread = CreateThread(nullptr, 0, ThreadMain, start, 0, nullptr);
  if (thread == nullptr) delete start;
  return thread;
}

}  // namespace perilink
