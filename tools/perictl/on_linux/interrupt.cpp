#include "terminal/interrupt.h"

#include <csignal>
#include <iterator>

namespace perictl {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};

volatile std::sig_atomic_t interrupted = 0;
int guards = 0;
struct sigaction before[std::size(kSignals)];
struct sigaction pipe_before;

}  // namespace

InterruptGuard::InterruptGuard() {
  if (guards++ > 0) return;
  struct sigaction action {};
  action.sa_handler = [](int) { interrupted = 1; };
  action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
  for (size_t i = 0; i < std::size(kSignals); ++i)
    sigaction(kSignals[i], &action, &before[i]);
}

InterruptGuard::~InterruptGuard() {
  if (--guards > 0) return;
  for (size_t i = 0; i < std::size(kSignals); ++i)
    sigaction(kSignals[i], &before[i], nullptr);
}

bool Interrupted() {
  return interrupted != 0;
}

BrokenPipeGuard::BrokenPipeGuard() {
  struct sigaction action {};
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, &pipe_before);
}

BrokenPipeGuard::~BrokenPipeGuard() {
  sigaction(SIGPIPE, &pipe_before, nullptr);
}

}  // namespace perictl
