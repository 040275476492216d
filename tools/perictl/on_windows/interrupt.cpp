#include "terminal/interrupt.h"

#include <atomic>

#include "system.h"

namespace perictl {
namespace {

int guards = 0;
std::atomic<bool> interrupted{false};

// Runs on a thread of its own.
BOOL WINAPI Handle(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  return interrupted.exchange(true) ? FALSE : TRUE;
}

}  // namespace

InterruptGuard::InterruptGuard() {
  if (guards++ == 0) SetConsoleCtrlHandler(Handle, TRUE);
}
InterruptGuard::~InterruptGuard() {
  if (--guards == 0) SetConsoleCtrlHandler(Handle, FALSE);
}

bool Interrupted() {
  return interrupted;
}

// Writing to such a pipe fails here in any case.
BrokenPipeGuard::BrokenPipeGuard() = default;
BrokenPipeGuard::~BrokenPipeGuard() = default;

}  // namespace perictl
