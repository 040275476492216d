// Allocations that fail. Linked into a program, it replaces operator new; until a failure is armed
// it does what it always does.
#ifndef PERILINK_TESTS_SUPPORT_FAILING_NEW_H_
#define PERILINK_TESTS_SUPPORT_FAILING_NEW_H_

#include <cstdint>
#include <vector>

namespace perilink::testing {

// What the system allocates within its calls, the devices on its bus included, fails for ArmCall
// alone: those calls report failures of their own.
class FailingNew {
 public:
  // The nth allocation of the calling thread from now on throws, or if that is the system's the
  // next one that is not. Once.
  static void Arm(uint64_t nth);
  static void Disarm();
  // Whether one has thrown on the calling thread since this was last asked.
  static bool HasFailed();

  // The nth one that is not the system's throws, of whatever thread, and with `for_ever` every
  // later one. While this is armed, one thread runs at a time. With functions, which stand in
  // sources of their own, those alone that are made within one of them.
  static void ArmAll(uint64_t nth, bool for_ever, std::vector<const void*> within = {});
  // How many there were since.
  static uint64_t DisarmAll();

  // The nth one of the calling thread throws, the system's too, and with `for_ever` every later
  // one. 0: none.
  static void ArmCall(uint64_t nth, bool for_ever = false);
  struct Counted {
    uint64_t allocations = 0;
    uint64_t bytes = 0;
  };
  // What there was since.
  static Counted DisarmCall();

  // While one lives, the calling thread's allocations don't fail.
  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };
  static bool Paused();
};

// Whether code of the platform library stands there.
bool IsTheSystems(const void* code);
// Whether a function that was called from there runs within a call, or a thread, of the system's.
bool WithinTheSystem(void* caller);

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SUPPORT_FAILING_NEW_H_
