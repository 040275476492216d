// The world that a virtual device lives in: a clock, events at times, and a lock. An adapter brings
// it along with its port (port.h); real_time_world.h is one for any bus of a real system.
#ifndef PERILINK_SIM_WORLD_H_
#define PERILINK_SIM_WORLD_H_

#include <cstdint>
#include <functional>

namespace perilink::sim {

// Held by std::lock_guard, the world is locked: one thread at a time runs code of its devices. The
// lock is recursive. Nobody waits for anything while holding it.
class World {
 public:
  virtual ~World() = default;

  // Microseconds of a clock that never goes back.
  virtual uint64_t NowMicros() const = 0;

  // Runs `action` with the world locked when the clock reaches `at_micros`, or soon if that is
  // past; never inside this call. Actions of the same instant run in the order in which they were
  // scheduled.
  virtual void Schedule(uint64_t at_micros, std::function<void()> action) = 0;

  virtual void lock() = 0;
  virtual void unlock() = 0;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_WORLD_H_
