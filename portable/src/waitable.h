// The objects that can be waited for.
#ifndef PERILINK_PLATFORM_SRC_WAITABLE_H_
#define PERILINK_PLATFORM_SRC_WAITABLE_H_

#include <atomic>
#include <memory>
#include <span>
#include <utility>

#include "handle_table.h"
#include "scheduler.h"

namespace perilink::platform {

class Waitable : public Object {
 public:
  virtual Signal& WaitSignal() = 0;
  virtual const char* Kind() const = 0;
  // When the passing of time alone signals it.
  virtual uint64_t DueAt() const { return kForever; }
};

class Event final : public Waitable {
 public:
  Event(bool manual_reset, bool signalled) : signal_(manual_reset, signalled) {}
  Signal& WaitSignal() override { return signal_; }
  const char* Kind() const override { return "event"; }

 private:
  Signal signal_;
};

class ThreadObject final : public Waitable {
 public:
  explicit ThreadObject(std::shared_ptr<Thread> thread) : thread_(std::move(thread)) {}
  Signal& WaitSignal() override { return thread_->ended; }
  const char* Kind() const override { return "the end of thread"; }

 private:
  const std::shared_ptr<Thread> thread_;
};

// A timer schedules nothing: a thread that waits for it compares the clock with its due time.
class WaitableTimer final : public Waitable {
 public:
  explicit WaitableTimer(bool manual_reset) : signal_(manual_reset) {}
  Signal& WaitSignal() override { return signal_; }
  const char* Kind() const override { return "timer"; }
  uint64_t DueAt() const override { return due_at_; }
  // Not signalled until then.
  void Set(uint64_t due_at) {
    Scheduler::Get().Reset(signal_);
    due_at_ = due_at;
  }
  void Ring() {
    due_at_ = kForever;
    Scheduler::Get().Set(signal_);
  }

 private:
  Signal signal_;
  std::atomic<uint64_t> due_at_{kForever};
};

// Waits for at most `milliseconds`, INFINITE for ever, until one of the objects is signalled: its
// index, or Scheduler::kNone. `handle` names the first one where a dead world is explained.
size_t WaitForAny(std::span<Waitable* const> objects, HANDLE handle, DWORD milliseconds);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_WAITABLE_H_
