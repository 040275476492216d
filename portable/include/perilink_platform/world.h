// The clock and the threads of the portable platform: real, or simulated and repeatable.
//
// A process runs in one of two modes, chosen before its first platform call:
//
//   real     real threads and the system's monotonic clock (the default);
//   virtual  simulated time, one thread at a time. The thread that called StartVirtual and the
//            threads made with CreateThread pass a baton; a thread gives it up only when it sleeps,
//            waits on something not signalled, pumps messages or ends. Time stands still while code
//            runs, save that each clock read and each zero-length wait or sleep costs a few
//            microseconds, so that every polling loop ends. When all threads are blocked, time
//            jumps to the next wake-up or device event. When nothing can ever wake, the process
//            stops with a message that names who waits for what. The seed chooses among threads
//            that are ready at the same instant: the same seed repeats a run exactly.
#ifndef PERILINK_PLATFORM_WORLD_H_
#define PERILINK_PLATFORM_WORLD_H_

#include <cstdint>
#include <functional>
#include <string>

namespace perilink::platform {

// Enters virtual mode; the calling thread holds the baton. Before the process's first other
// platform call. Monotonic time starts at 1,000,000 ms and calendar time at 2025-01-07 09:03:05
// UTC; both can be set apart below. Called again by the same thread, when no other is left, it
// begins another world: clock, calendar and order of threads start over, and device events still to
// come are dropped. What the process has open stays open.
void StartVirtual(uint64_t seed);
bool IsVirtual();

// For hosts and tests on simulated devices in real mode: from now on the process sees no device of
// the machine's. Comes before the first call that looks for devices.
void HideMachineDevices();

// Microseconds of the world's monotonic clock. Costs nothing and yields nothing: for devices and
// tests, not a model of a clock read.
uint64_t NowMicros();

// Calendar time follows the monotonic clock at a fixed distance; tests set it (virtual mode only).
void SetCalendarTime(int64_t unix_seconds);

// Events of devices: runs `action` under the device lock when the clock reaches `at_micros` (at
// once if that is past). In virtual mode it runs inside whichever thread moves the clock; in real
// mode on the platform's own event thread. Events at the same instant run in the order in which
// they were scheduled. Returns an id for Cancel; cancelling an event that has run does nothing.
// Without memory, or a thread to run events on, Schedule throws and nothing is scheduled; a later
// call may succeed.
using EventId = uint64_t;
EventId Schedule(uint64_t at_micros, std::function<void()> action);
inline EventId ScheduleIn(uint64_t delay_micros, std::function<void()> action) {
  return Schedule(NowMicros() + delay_micros, std::move(action));
}
void Cancel(EventId id);

// The device lock, under which the HID bus and all device code run. Recursive. A thread that holds
// it and calls the platform to wait (a sleep, a wait for an object, a blocking read, a message)
// stops the process with a message, whether or not the wait would have been over at once: only
// polls, which wait for no time at all, are allowed. Library code never runs under it.
void LockDevices();
void UnlockDevices();

// Holds the device lock.
class [[nodiscard]] DeviceGuard {
 public:
  DeviceGuard() { LockDevices(); }
  ~DeviceGuard() { UnlockDevices(); }
  DeviceGuard(const DeviceGuard&) = delete;
  DeviceGuard& operator=(const DeviceGuard&) = delete;
};

// Fail-the-nth-call: while armed, the nth call (counting from 1) of the named platform function
// ("CreateEventW", "WriteFile", …, or "*" for any call that can fail) fails with its documented
// failure value and `error`; with `for_ever` so does every later one. A call that releases
// something (CloseHandle, DestroyWindow, …) has done so all the same. Calls counted since arming
// are returned by PlatformCallCount. DisarmFault ends it. One fault is armed at a time.
void ArmFault(const std::string& function, uint64_t nth, bool for_ever = false,
              uint32_t error = 1450 /* ERROR_NO_SYSTEM_RESOURCES */);
void DisarmFault();
uint64_t PlatformCallCount();

// Handles of the platform that are open now: files, events, threads, registry keys, device
// information sets. For tests that check that everything was released.
uint64_t OpenHandleCount();

// Threads that the platform knows: those made with CreateThread that run now, and the others that
// have waited, read or used windows and run still.
uint64_t KnownThreadCount();

// Where the registry keeps its file. Tests choose a folder of their own before the first registry
// call; otherwise (and again after an empty one) it is $XDG_STATE_HOME/perilink or
// ~/.local/state/perilink. Only an absolute XDG_STATE_HOME or HOME counts; without HOME the system
// is asked for the user's home. The folder is private to the user.
void SetRegistryFolder(const std::string& folder);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_WORLD_H_
