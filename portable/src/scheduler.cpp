#include "scheduler.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "message_queue.h"

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

struct StartedThread {
  std::function<void()> main;
};

void* PthreadMain(void* argument) {
  const std::unique_ptr<StartedThread> started(static_cast<StartedThread*>(argument));
  started->main();
  return nullptr;
}

bool StartPthread(size_t stack_size, std::function<void()> main) {
  auto started = std::make_unique<StartedThread>(StartedThread{std::move(main)});
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
  const bool made = pthread_create(&thread, &attributes, PthreadMain, started.get()) == 0;
  if (made) static_cast<void>(started.release());  // the thread has it
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

Thread::Thread(uint32_t number, std::string made_by) : id(number), origin(std::move(made_by)) {}
Thread::~Thread() = default;

bool Signal::TryTake() {
  if (!signalled_) return false;
  if (!manual_reset_) signalled_ = false;
  return true;
}

Scheduler& Scheduler::Get() {
  static Scheduler* const scheduler = new Scheduler;
  return *scheduler;
}

Scheduler::Scheduler() = default;

void Scheduler::StartVirtual(uint64_t seed) {
  const Lock lock(mutex_);
  if (IsVirtual() || !threads_.empty() || has_event_thread_)
    StopProcess("StartVirtual must come once, before every other platform call");
  virtual_now_ = kVirtualStartMicros;
  seed_ = seed;
  random_.seed(seed);
  threads_.push_back(std::make_shared<Thread>(next_thread_id_++, "started the world"));
  current_thread = threads_.back().get();
  holder_ = current_thread;
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
  // Kept for ever: the thread may call the platform again after its thread-local objects have gone.
  const Lock lock(mutex_);
  threads_.push_back(std::make_shared<Thread>(next_thread_id_++, "not made by the platform"));
  current_thread = threads_.back().get();
  return *current_thread;
}

std::shared_ptr<Thread> Scheduler::StartThread(size_t stack_size, std::function<void()> body) {
  std::shared_ptr<Thread> thread;
  {
    const Lock lock(mutex_);
    thread = std::make_shared<Thread>(next_thread_id_++, "CreateThread");
    threads_.push_back(thread);
    if (IsVirtual()) ready_.push_back(thread.get());
  }
  if (StartPthread(stack_size,
                   [this, thread, body = std::move(body)] { ThreadMain(thread, body); }))
    return thread;
  const Lock lock(mutex_);
  std::erase(ready_, thread.get());
  std::erase(threads_, thread);
  return nullptr;
}

void Scheduler::ThreadMain(const std::shared_ptr<Thread>& self, const std::function<void()>& body) {
  current_thread = self.get();
  if (IsVirtual()) {
    Lock lock(mutex_);
    AwaitBaton(lock, *self);
  }
  body();
  DestroyWindowsOf(*self);
  CancelReadsOf(*self);
  Set(self->ended);
  Lock lock(mutex_);
  std::erase(threads_, self);
  if (IsVirtual()) GiveBaton(PickNext(lock));
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
  for (Signal* const signal : signals)
    signal->waiters_.push_back(&self);
  Block(lock, self);
  if (self.taken != nullptr)
    return static_cast<size_t>(std::ranges::find(signals, self.taken) - signals.begin());
  StopWaiting(self);
  return kNone;
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
  if (signal.manual_reset_) {
    signal.signalled_ = true;
    while (!signal.waiters_.empty())
      Wake(*signal.waiters_.front(), signal);
  } else if (signal.waiters_.empty()) {
    signal.signalled_ = true;
  } else {
    Wake(*signal.waiters_.front(), signal);
  }
}

void Scheduler::Reset(Signal& signal) {
  const Lock lock(mutex_);
  signal.signalled_ = false;
}

// Ends a wait by its signal. The waiter owns what it took even if the signal is reset before it
// runs.
void Scheduler::Wake(Thread& thread, const Signal& signal) {
  StopWaiting(thread);
  thread.taken = &signal;
  thread.waiting = false;
  if (IsVirtual()) {
    std::erase(blocked_, &thread);
    ready_.push_back(&thread);
  } else {
    thread.wake.notify_one();
  }
}

void Scheduler::StopWaiting(Thread& thread) {
  for (Signal* const signal : thread.signals)
    std::erase(signal->waiters_, &thread);
}

void Scheduler::Block(Lock& lock, Thread& self) {
  self.waiting = true;
  self.taken = nullptr;
  self.since = Now();
  if (IsVirtual()) {
    blocked_.push_back(&self);
    SwitchFrom(lock, self);
    return;
  }
  const auto done = [&self] { return !self.waiting; };
  if (self.deadline == kForever) {
    self.wake.wait(lock, done);
  } else {
    self.wake.wait_until(lock, RealTime(self.deadline), done);
  }
  self.waiting = false;
}

// Offers the baton to the threads that are ready.
void Scheduler::Yield(Lock& lock, Thread& self) {
  ExpireWaits();
  if (ready_.empty() || device_lock_depth > 0) return;
  ready_.push_back(&self);
  SwitchFrom(lock, self);
}

void Scheduler::SwitchFrom(Lock& lock, Thread& self) {
  Thread& next = PickNext(lock);
  if (&next == &self) return;
  GiveBaton(next);
  AwaitBaton(lock, self);
}

void Scheduler::GiveBaton(Thread& next) {
  holder_ = &next;
  next.wake.notify_one();
}

void Scheduler::AwaitBaton(Lock& lock, Thread& self) {
  self.wake.wait(lock, [this, &self] { return holder_ == &self; });
}

// Chooses who runs next, moving time on while nobody is ready.
Thread& Scheduler::PickNext(Lock& lock) {
  while (true) {
    lock.unlock();
    RunDueEvents();
    lock.lock();
    ExpireWaits();
    if (!ready_.empty()) {
      const size_t index = ready_.size() == 1 ? 0 : static_cast<size_t>(random_() % ready_.size());
      Thread* const next = ready_[index];
      ready_.erase(ready_.begin() + static_cast<std::ptrdiff_t>(index));
      return *next;
    }
    const uint64_t at = std::min(NextDeadline(), timeline_.NextAt());
    if (at == kForever) StopDeadWorld();
    virtual_now_ = std::max(Now(), at);
  }
}

void Scheduler::ExpireWaits() {
  const uint64_t now = Now();
  for (size_t i = 0; i < blocked_.size();) {
    Thread* const thread = blocked_[i];
    if (thread->deadline > now) {
      ++i;
      continue;
    }
    // Off the signals' lists at once: setting one must not count a wait that is over.
    StopWaiting(*thread);
    thread->waiting = false;
    blocked_.erase(blocked_.begin() + static_cast<std::ptrdiff_t>(i));
    ready_.push_back(thread);
  }
}

uint64_t Scheduler::NextDeadline() const {
  uint64_t deadline = kForever;
  for (const Thread* const thread : blocked_)
    deadline = std::min(deadline, thread->deadline);
  return deadline;
}

EventId Scheduler::Schedule(uint64_t at, std::function<void()> action) {
  const Lock lock(mutex_);
  const EventId id = timeline_.Add(at, std::move(action));
  next_event_ = timeline_.NextAt();
  if (!IsVirtual()) {
    if (!has_event_thread_) {
      has_event_thread_ = true;
      std::thread([this] { EventThreadMain(); }).detach();
    }
    event_added_.notify_one();
  }
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
  for (const Thread* const thread : blocked_) {
    std::snprintf(line, sizeof(line), "\n  thread %" PRIu32 " (%s) waits for %s", thread->id,
                  thread->origin.c_str(), thread->reason.what);
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
