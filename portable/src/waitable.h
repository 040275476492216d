// The objects that WaitForSingleObject takes.
#ifndef PERILINK_PLATFORM_SRC_WAITABLE_H_
#define PERILINK_PLATFORM_SRC_WAITABLE_H_

#include <memory>
#include <utility>

#include "handle_table.h"
#include "scheduler.h"

namespace perilink::platform {

class Waitable : public Object {
 public:
  virtual Signal& WaitSignal() = 0;
  virtual const char* Kind() const = 0;
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

// Waits for at most `milliseconds`, INFINITE for ever.
bool WaitFor(Waitable& object, HANDLE handle, DWORD milliseconds);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_WAITABLE_H_
