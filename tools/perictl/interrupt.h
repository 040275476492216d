// Ctrl-C, as a wish that a command grants when it has put everything back.
#ifndef PERILINK_TOOLS_PERICTL_INTERRUPT_H_
#define PERILINK_TOOLS_PERICTL_INTERRUPT_H_

namespace perictl {

// While it lives, Ctrl-C does not end the process but is noted. A second one ends it after all. One
// lives at a time.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
};

// Whether Ctrl-C has come.
bool Interrupted();

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_INTERRUPT_H_
