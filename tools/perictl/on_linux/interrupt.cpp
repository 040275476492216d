#include "interrupt.h"

#include <csignal>

namespace perictl {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};

volatile std::sig_atomic_t interrupted = 0;

void SetHandler(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
  for (const int signal : kSignals)
    sigaction(signal, &action, nullptr);
}

}  // namespace

InterruptGuard::InterruptGuard() {
  SetHandler([](int) { interrupted = 1; });
}
InterruptGuard::~InterruptGuard() {
  SetHandler(SIG_DFL);
}

bool Interrupted() {
  return interrupted != 0;
}

}  // namespace perictl
