// Threads, waits and the clock: the one place that knows real from virtual time.
//
// In virtual time exactly one thread runs, the holder of the baton. All that this file declares is
// used by the other files of the platform; nothing of it is public.
//
// Waiting, waking and the end of a thread take no memory: they can't fail.
#ifndef PERILINK_PLATFORM_SRC_SCHEDULER_H_
#define PERILINK_PLATFORM_SRC_SCHEDULER_H_

#include <semaphore.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <span>
#include <string>

#include "message_queue.h"
#include "perilink_platform/handle.h"
#include "timeline.h"

namespace perilink::platform {

inline constexpr uint64_t kForever = UINT64_MAX;

// What one clock read, and one zero-length wait or sleep, cost in virtual time.
inline constexpr uint64_t kPollMicros = 5;

// Something that a thread can wait on. Its fields are the scheduler's.
class Signal {
 public:
  explicit Signal(bool manual_reset, bool signalled = false)
      : manual_reset_(manual_reset), signalled_(signalled) {}
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

 private:
  friend class Scheduler;
  // True if signalled, which ends here unless it is a manual-reset one.
  bool TryTake();

  const bool manual_reset_;
  bool signalled_;
};

// What a thread waits for, in words, for the message of a dead world.
struct WaitReason {
  const char* what;      // "event", "a message", ...
  uint64_t subject = 0;  // its handle, 0 for none
};

// Whose turn it is in the virtual world. Given once for each time that it is taken.
class Baton {
 public:
  Baton() { sem_init(&turn_, 0, 0); }
  ~Baton() { sem_destroy(&turn_); }
  Baton(const Baton&) = delete;
  Baton& operator=(const Baton&) = delete;

  void Give() { sem_post(&turn_); }
  void Take() {
    while (sem_wait(&turn_) != 0) {
    }
  }

 private:
  sem_t turn_;
};

struct Thread {
  Thread(uint32_t number, const char* made_by) : id(number), origin(made_by) {}

  const uint32_t id;  // never used again
  const char* const origin;
  Signal ended{true};
  MessageQueue messages;  // the window system's
  // Set when anything is added to them, or when a message that this thread sent has been handled.
  Signal message_came{true};

  // The scheduler's.
  Thread* previous = nullptr;  // in the ThreadList that it is in
  Thread* next = nullptr;
  Baton baton;                   // virtual
  std::condition_variable wake;  // real
  bool waiting = false;
  std::span<Signal* const> signals;  // what it waits on
  const Signal* taken = nullptr;     // the one that ended the wait
  uint64_t deadline = kForever;
  uint64_t since = 0;
  WaitReason reason{""};
};

// Threads in the order in which they came. A thread is in one list at most.
class ThreadList {
 public:
  bool empty() const { return first_ == nullptr; }
  size_t size() const { return size_; }
  Thread* first() const { return first_; }
  void Append(Thread& thread);
  void Remove(Thread& thread);

 private:
  Thread* first_ = nullptr;
  Thread* last_ = nullptr;
  size_t size_ = 0;
};

class Scheduler {
 public:
  // Lives until the process has ended: threads may still be parked in it while statics are
  // destroyed.
  static Scheduler& Get();

  void StartVirtual(uint64_t seed);
  bool IsVirtual() const { return virtual_.load(std::memory_order_relaxed); }

  uint64_t Now() const;
  // Moves virtual time on while the calling thread goes on running, and runs the device events that
  // fall due. Nothing in real time.
  void Spend(uint64_t micros);
  // Below `bound`; from the seed in virtual time.
  uint64_t Random(uint64_t bound);

  // The calling thread's record. Stops the process, naming `function`, if the virtual world doesn't
  // know the thread.
  Thread& Current(const char* function);
  // Makes the record of a thread to start, and starts it; false if the system can't. Stack size 0
  // is the default.
  std::shared_ptr<Thread> MakeThread();
  bool StartThread(const std::shared_ptr<Thread>& thread, size_t stack_size,
                   LPTHREAD_START_ROUTINE start, LPVOID parameter);
  // Clears away what the calling thread, which ends, leaves behind.
  void LeaveThread(Thread& self);
  uint64_t ThreadCount();

  // Waits for at most `timeout` microseconds until one of the signals can be taken, and takes it:
  // its index, or kNone. A wait in device code stops the process.
  static constexpr size_t kNone = SIZE_MAX;
  size_t WaitAny(std::span<Signal* const> signals, uint64_t timeout, WaitReason reason);
  bool Wait(Signal& signal, uint64_t timeout, WaitReason reason);
  void SleepFor(uint64_t micros);
  void Set(Signal& signal);
  void Reset(Signal& signal);

  // Without memory, or a thread to run events on, throws and schedules nothing.
  EventId Schedule(uint64_t at, std::function<void()> action);
  void Cancel(EventId id);

  std::recursive_mutex& DeviceLock() { return device_lock_; }  // taken by LockDevices alone

 private:
  using Lock = std::unique_lock<std::mutex>;

  struct Start;

  Scheduler();
  Thread& Adopt();
  static void* ThreadMain(void* start);
  void Run(const Start& start);
  void Block(Lock& lock, Thread& self);
  void Wake(Thread& thread, const Signal& signal);
  void Yield(Lock& lock, Thread& self);
  void SwitchFrom(Lock& lock, Thread& self);
  void GiveBaton(Lock& lock, Thread& next);
  Thread& PickNext(Lock& lock);
  void ExpireWaits();
  uint64_t NextDeadline() const;
  void RunDueEvents();
  void EventThreadMain();
  [[noreturn]] void StopDeadWorld();

  std::atomic<bool> virtual_{false};
  std::atomic<uint64_t> virtual_now_{0};
  uint64_t seed_ = 0;
  // When the next device event falls due, so that a clock read needs no lock.
  std::atomic<uint64_t> next_event_{kForever};

  // Guards all below, the signals and the records of threads. Taken last: after the device lock,
  // the window system's and any other. Never held while code of devices or of the library runs.
  std::mutex mutex_;
  std::mt19937_64 random_{1};
  uint32_t next_thread_id_ = 1;
  uint64_t thread_count_ = 0;  // those alive that have a record
  ThreadList ready_;           // virtual: may run, do not hold the baton
  ThreadList blocked_;         // wait for a signal or a deadline, longest first
  Thread* holder_ = nullptr;   // virtual: who runs
  Timeline timeline_;
  bool has_event_thread_ = false;
  std::condition_variable event_added_;

  std::recursive_mutex device_lock_;
};

// What a thread leaves behind is cleared away when it ends: its windows, its pending reads. Called
// on the thread. Defined with what they clear.
void DestroyWindowsOf(Thread& thread);
void CancelReadsOf(Thread& thread);

[[noreturn]] void StopProcess(const std::string& message);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_SCHEDULER_H_
