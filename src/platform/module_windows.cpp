#include <new>
#include <utility>

#include "platform/module.h"

namespace perilink {
namespace {

HMODULE FindModule(DWORD flags) {
  HMODULE module = nullptr;
  const auto* here = reinterpret_cast<LPCWSTR>(&LibraryModule);
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | flags, here, &module);
  return module;
}

// What a thread is given. It runs until the system itself lets go of the library.
struct Start {
  void (*body)(void*);
  void* argument;
  HMODULE module;
};

DWORD WINAPI ThreadMain(LPVOID parameter) {
  const Start start = *static_cast<const Start*>(parameter);
  delete static_cast<const Start*>(parameter);
  start.body(start.argument);
  FreeLibraryAndExitThread(start.module, 0);
}

}  // namespace

HMODULE LibraryModule() {
  return FindModule(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT);
}

bool ModuleReference::Take() {
  if (module_ == nullptr) module_ = FindModule(0);
  return module_ != nullptr;
}

void ModuleReference::Release() {
  if (module_ != nullptr) FreeLibrary(std::exchange(module_, nullptr));
}

HANDLE StartLibraryThread(void (*body)(void*), void* argument) {
  const HMODULE module = FindModule(0);
  if (module == nullptr) return nullptr;
  auto* start = new (std::nothrow) Start{body, argument, module};
  const HANDLE thread =
      start != nullptr ? CreateThread(nullptr, 0, ThreadMain, start, 0, nullptr) : nullptr;
  if (thread == nullptr) {
    delete start;
    FreeLibrary(module);
  }
  return thread;
}

}  // namespace perilink
