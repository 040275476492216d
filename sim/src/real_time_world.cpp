#include "sim/real_time_world.h"

#include <chrono>
#include <utility>

namespace perilink::sim {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

steady_clock::time_point TimeAt(uint64_t micros) {
  return steady_clock::time_point(microseconds(static_cast<int64_t>(micros)));
}

}  // namespace

RealTimeWorld::RealTimeWorld() : thread_([this] { RunEvents(); }) {}

RealTimeWorld::~RealTimeWorld() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

uint64_t RealTimeWorld::NowMicros() const {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
}

void RealTimeWorld::Schedule(uint64_t at_micros, std::function<void()> action) {
  {
    const std::lock_guard lock(mutex_);
    events_.emplace(at_micros, std::move(action));
  }
  changed_.notify_one();
}

void RealTimeWorld::RunEvents() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    if (events_.empty()) {
      changed_.wait(lock);
    } else if (const uint64_t at = events_.begin()->first; at > NowMicros()) {
      changed_.wait_until(lock, TimeAt(at));
    } else {
      auto event = events_.extract(events_.begin());
      lock.unlock();
      {
        const std::lock_guard world(*this);
        event.mapped()();
      }
      event = {};  // what the action holds goes without a lock, too
      lock.lock();
    }
  }
}

}  // namespace perilink::sim
