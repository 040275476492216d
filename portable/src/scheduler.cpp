#include "scheduler.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <thread>

namespace perilink::platform {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

constexpr uint64_t kVirtualStartMicros = 1'000'000'000;

thread_local Thread* current_thread = nullptr;
thread_local int device_lock_depth = 0;

uint64_t RealNow() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
}

steady_clock::time_point RealTime(uint64_t micros) {
  return steady_clock::time_point(microseconds(static_cast<int64_t>(micros)));
}

uint64_t Later(uint64_t now, uint64_t micros) {
  return micros >= kForever - now ? kForever : now + micros;
}

// The record of a thread that the platform has not made lies in the thread's own memory, and goes
// when the thread ends. That is after the thread-local objects of its code have gone; should it
// call the platform later still, it gets another record, which goes in the same way.
alignas(Thread) thread_local std::byte adopted_record[sizeof(Thread)];

pthread_key_t AdoptedKey() {
  static const pthread_key_t key = [] {
    pthread_key_t made = 0;
    const int error = pthread_key_create(&made, [](void* record) {
      auto* const self = static_cast<Thread*>(record);
      current_thread = self;
      Scheduler::Get().LeaveThread(*self);
      current_thread = nullptr;
      self->~Thread();
    });
    if (error != 0) StopProcess("the process has too many thread-specific keys");
    return made;
  }();
  return key;
}

bool StartPthread(size_t stack_size, void* (*main)(void*), void* argument) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if (stack_size != 0) {
    const size_t smallest = 262'144;  // room for the C library and the sanitizers
    const size_t page = 4096;
    pthread_attr_setstacksize(&attributes,
                              (std::max(stack_size, smallest) + page - 1) / page * page);
  }
  pthread_t thread;
  const bool made = pthread_create(&thread, &attributes, main, argument) == 0;
  pthread_attr_destroy(&attributes);
  return made;
}

}  // namespace

void StopProcess(const std::string& message) {
  std::fprintf(stderr, "perilink platform: %s\n", message.c_str());
  std::fflush(stderr);
  std::abort();
}

void LockDevices() {
  Scheduler::Get().DeviceLock().lock();
  ++device_lock_depth;
}

void UnlockDevices() {
  --device_lock_depth;
  Scheduler::Get().DeviceLock().unlock();
}

void ThreadList::Append(Thread& thread) {
  thread.previous = last_;
  thread.next = nullptr;
  (last_ != nullptr ? last_->next : first_) = &thread;
  last_ = &thread;
  ++size_;
}

void ThreadList::Remove(Thread& thread) {
  (thread.previous != nullptr ? thread.previous->next : first_) = thread.next;
  (thread.next != nullptr ? thread.next->previous : last_) = thread.previous;
  --size_;
}

bool Signal::TryTake() {
  if (!signalled_) return false;
  if (!manual_reset_) signalled_ = false;
  return true;
}

Scheduler& Scheduler::Get() {
  static Scheduler* const scheduler = new Scheduler;
  return *scheduler;
}

Scheduler::Scheduler() {
  AdoptedKey();
}

void Scheduler::StartVirtual(uint64_t seed) {
  Timeline left_over;  // destroyed without the lock
  const Lock lock(mutex_);
  if (IsVirtual()) {
    if (thread_count_ != 1 || holder_ != current_thread)
      StopProcess("StartVirtual must not come again while other threads are there");
    std::swap(timeline_, left_over);
    next_event_ = kForever;
    next_thread_id_ = current_thread->id + 1;
  } else {
    if (next_thread_id_ != 1 || has_event_thread_)
      StopProcess("StartVirtual must come before every other platform call");
    current_thread = new Thread(next_thread_id_++, "started the world");  // lives as long as that
    thread_count_ = 1;
    holder_ = current_thread;
  }
  virtual_now_ = kVirtualStartMicros;
  seed_ = seed;
  random_.seed(seed);
  virtual_ = true;
}

uint64_t Scheduler::Now() const {
  return IsVirtual() ? virtual_now_.load(std::memory_order_relaxed) : RealNow();
}

void Scheduler::Spend(uint64_t micros) {
  if (!IsVirtual()) return;
  const uint64_t now = virtual_now_.load(std::memory_order_relaxed) + micros;
  virtual_now_.store(now, std::memory_order_relaxed);
  if (next_event_.load(std::memory_order_relaxed) <= now) RunDueEvents();
}

uint64_t Scheduler::Random(uint64_t bound) {
  const Lock lock(mutex_);
  return random_() % bound;
}

Thread& Scheduler::Current(const char* function) {
  if (current_thread != nullptr) return *current_thread;
  if (IsVirtual()) {
    StopProcess(std::string(function) +
                " was called on a thread that the virtual world doesn't know; make threads with"
                " CreateThread");
  }
  return Adopt();
}

Thread& Scheduler::Adopt() {
  const Lock lock(mutex_);
  current_thread = new (adopted_record) Thread(next_thread_id_++, "not made by the platform");
  ++thread_count_;
  pthread_setspecific(AdoptedKey(), current_thread);
  return *current_thread;
}

uint64_t Scheduler::ThreadCount() {
  const Lock lock(mutex_);
  return thread_count_;
}

struct Scheduler::Start {
  std::shared_ptr<Thread> self;
  LPTHREAD_START_ROUTINE start;
  LPVOID parameter;
};

std::shared_ptr<Thread> Scheduler::MakeThread() {
  const Lock lock(mutex_);
  return std::make_shared<Thread>(next_thread_id_++, "CreateThread");
}

bool Scheduler::StartThread(const std::shared_ptr<Thread>& thread, size_t stack_size,
                            LPTHREAD_START_ROUTINE start, LPVOID parameter) {
  auto* const started = new (std::nothrow) Start{thread, start, parameter};
  if (started == nullptr) return false;
  // With the lock held, so that the thread is counted before it ends.
  const Lock lock(mutex_);
  if (!StartPthread(stack_size, ThreadMain, started)) {
    delete started;
    return false;
  }
  ++thread_count_;
  if (IsVirtual()) ready_.Append(*thread);
  return true;
}

void* Scheduler::ThreadMain(void* start) {
  const std::unique_ptr<Start> started(static_cast<Start*>(start));
  Get().Run(*started);
  return nullptr;
}

void Scheduler::Run(const Start& start) {
  Thread& self = *start.self;
  current_thread = &self;
  if (IsVirtual()) self.baton.Take();
  start.start(start.parameter);
  LeaveThread(self);
  if (IsVirtual()) {
    Lock lock(mutex_);
    GiveBaton(lock, PickNext(lock));
  }
  current_thread = nullptr;  // its thread-local objects still have their destructors to run
}

void Scheduler::LeaveThread(Thread& self) {
  DestroyWindowsOf(self);
  CancelReadsOf(self);
  {
    const Lock lock(mutex_);
    --thread_count_;
  }
  Set(self.ended);
}

size_t Scheduler::WaitAny(std::span<Signal* const> signals, uint64_t timeout, WaitReason reason) {
  Thread& self = Current("a wait");
  if (timeout != 0 && device_lock_depth > 0)
    StopProcess(std::string("device code must not wait, but waits for ") + reason.what);
  const auto take = [signals] {
    const auto taken = std::ranges::find_if(signals, &Signal::TryTake);
    return taken == signals.end() ? kNone : static_cast<size_t>(taken - signals.begin());
  };
  Lock lock(mutex_);
  if (const size_t taken = take(); taken != kNone) return taken;
  if (timeout == 0) {
    if (!IsVirtual()) return kNone;
    lock.unlock();
    Spend(kPollMicros);
    lock.lock();
    Yield(lock, self);
    return take();
  }
  self.signals = signals;
  self.reason = reason;
  self.deadline = Later(Now(), timeout);
  Block(lock, self);
  if (self.taken == nullptr) return kNone;
  return static_cast<size_t>(std::ranges::find(signals, self.taken) - signals.begin());
}

bool Scheduler::Wait(Signal& signal, uint64_t timeout, WaitReason reason) {
  Signal* const signals[] = {&signal};
  return WaitAny(signals, timeout, reason) != kNone;
}

void Scheduler::SleepFor(uint64_t micros) {
  if (micros == 0 && !IsVirtual()) {
    std::this_thread::yield();
    return;
  }
  Signal never(true);
  Wait(never, micros, {"the end of a sleep"});
}

void Scheduler::Set(Signal& signal) {
  const Lock lock(mutex_);
  for (Thread* thread = blocked_.first(); thread != nullptr;) {
    Thread& waiter = *std::exchange(thread, thread->next);
    if (std::ranges::find(waiter.signals, &signal) == waiter.signals.end()) continue;
    Wake(waiter, signal);
    if (!signal.manual_reset_) return;
  }
  signal.signalled_ = true;
}

void Scheduler::Reset(Signal& signal) {
  const Lock lock(mutex_);
  signal.signalled_ = false;
}

// Ends a wait by its signal. The waiter owns what it took even if the signal is reset before it
// runs.
void Scheduler::Wake(Thread& thread, const Signal& signal) {
  thread.taken = &signal;
  thread.waiting = false;
  blocked_.Remove(thread);
  if (IsVirtual()) {
    ready_.Append(thread);
  } else {
    thread.wake.notify_one();
  }
}

void Scheduler::Block(Lock& lock, Thread& self) {
  self.waiting = true;
  self.taken = nullptr;
  self.since = Now();
  blocked_.Append(self);
  if (IsVirtual()) {
    SwitchFrom(lock, self);
    return;
  }
  const auto done = [&self] { return !self.waiting; };
  if (self.deadline == kForever) {
    self.wake.wait(lock, done);
  } else {
    self.wake.wait_until(lock, RealTime(self.deadline), done);
  }
  if (std::exchange(self.waiting, false)) blocked_.Remove(self);
}

// Offers the baton to the threads that are ready.
void Scheduler::Yield(Lock& lock, Thread& self) {
  ExpireWaits();
  if (ready_.empty() || device_lock_depth > 0) return;
  ready_.Append(self);
  SwitchFrom(lock, self);
}

void Scheduler::SwitchFrom(Lock& lock, Thread& self) {
  Thread& next = PickNext(lock);
  if (&next == &self) return;
  GiveBaton(lock, next);
  self.baton.Take();
  lock.lock();
}

// Unlocked first: who has the baton runs at once, and would wait for the lock.
void Scheduler::GiveBaton(Lock& lock, Thread& next) {
  holder_ = &next;
  lock.unlock();
  next.baton.Give();
}

// Chooses who runs next, moving time on while nobody is ready.
Thread& Scheduler::PickNext(Lock& lock) {
  while (true) {
    lock.unlock();
    RunDueEvents();
    lock.lock();
    ExpireWaits();
    if (!ready_.empty()) {
      Thread* next = ready_.first();
      for (uint64_t skip = ready_.size() == 1 ? 0 : random_() % ready_.size(); skip > 0; --skip)
        next = next->next;
      ready_.Remove(*next);
      return *next;
    }
    const uint64_t at = std::min(NextDeadline(), timeline_.NextAt());
    if (at == kForever) StopDeadWorld();
    virtual_now_ = std::max(Now(), at);
  }
}

void Scheduler::ExpireWaits() {
  const uint64_t now = Now();
  for (Thread* thread = blocked_.first(); thread != nullptr;) {
    Thread& waiter = *std::exchange(thread, thread->next);
    if (waiter.deadline > now) continue;
    waiter.waiting = false;
    blocked_.Remove(waiter);
    ready_.Append(waiter);
  }
}

uint64_t Scheduler::NextDeadline() const {
  uint64_t deadline = kForever;
  for (const Thread* thread = blocked_.first(); thread != nullptr; thread = thread->next)
    deadline = std::min(deadline, thread->deadline);
  return deadline;
}

EventId Scheduler::Schedule(uint64_t at, std::function<void()> action) {
  const Lock lock(mutex_);
  if (!IsVirtual() && !has_event_thread_) {
    std::thread([this] { EventThreadMain(); }).detach();
    has_event_thread_ = true;
  }
  const EventId id = timeline_.Add(at, std::move(action));
  next_event_ = timeline_.NextAt();
  event_added_.notify_one();
  return id;
}

void Scheduler::Cancel(EventId id) {
  std::function<void()> cancelled;  // destroyed without the lock
  const Lock lock(mutex_);
  cancelled = timeline_.Remove(id);
  next_event_ = timeline_.NextAt();
}

// Virtual time: runs what is due on the thread that moves the clock. Device code that moves it
// leaves what then falls due until it has returned: events don't interrupt it.
void Scheduler::RunDueEvents() {
  if (next_event_.load(std::memory_order_relaxed) > Now() || device_lock_depth > 0) return;
  const DeviceGuard guard;
  Lock lock(mutex_);
  while (std::function<void()> action = timeline_.TakeDue(Now())) {
    next_event_ = timeline_.NextAt();
    lock.unlock();
    action();
    action = nullptr;
    lock.lock();
  }
}

void Scheduler::EventThreadMain() {
  while (true) {
    {
      Lock lock(mutex_);
      const uint64_t at = timeline_.NextAt();
      if (at == kForever) {
        event_added_.wait(lock);
        continue;
      }
      if (at > RealNow()) {
        event_added_.wait_until(lock, RealTime(at));
        continue;
      }
    }
    // Taken under the device lock, so that device code that cancels an event knows it won't run.
    const DeviceGuard guard;
    Lock lock(mutex_);
    const std::function<void()> action = timeline_.TakeDue(RealNow());
    lock.unlock();
    if (action) action();
  }
}

void Scheduler::StopDeadWorld() {
  char line[200];
  std::snprintf(line, sizeof(line),
                "the world is dead: nothing can ever wake (seed %" PRIu64 ", %.3f ms)", seed_,
                static_cast<double>(Now()) / 1000);
  std::string message = line;
  for (const Thread* thread = blocked_.first(); thread != nullptr; thread = thread->next) {
    std::snprintf(line, sizeof(line), "\n  thread %" PRIu32 " (%s) waits for %s", thread->id,
                  thread->origin, thread->reason.what);
    message += line;
    if (thread->reason.subject != 0) {
      std::snprintf(line, sizeof(line), " 0x%" PRIx64, thread->reason.subject);
      message += line;
    }
    std::snprintf(line, sizeof(line), " since %.3f ms", static_cast<double>(thread->since) / 1000);
    message += line;
  }
  StopProcess(message);
}

}  // namespace perilink::platform
