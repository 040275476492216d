// What may end the process from outside, as a wish that a command grants when it has put everything
// back.
#ifndef PERILINK_TOOLS_PERICTL_TERMINAL_INTERRUPT_H_
#define PERILINK_TOOLS_PERICTL_TERMINAL_INTERRUPT_H_

namespace perictl {

// While it lives, Ctrl-C does not end the process but is noted. A second one ends it after all.
// Guards may stand within one another, on the same thread.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
};

// Whether Ctrl-C has come.
bool Interrupted();

// While it lives, output that nobody reads any more is merely lost; otherwise it may end the
// process. One lives at a time.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard();
  ~BrokenPipeGuard();
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_TERMINAL_INTERRUPT_H_
