// A shared library that is linked with "nodelete" stays when its host unloads it: nothing to hold.
#include "platform/module.h"

namespace perilink {
namespace {

DWORD WINAPI ThreadMain(LPVOID body) {
  reinterpret_cast<void (*)()>(body)();
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

HANDLE StartLibraryThread(void (*body)()) {
  return CreateThread(nullptr, 0, ThreadMain, reinterpret_cast<LPVOID>(body), 0, nullptr);
}

}  // namespace perilink
