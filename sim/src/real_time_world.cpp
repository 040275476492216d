#include "sim/real_time_world.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace perilink::sim {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

// Under Wine a condition variable's wait may last so much longer than it should, since the clock
// that it reads moves in steps; a sleep keeps to its time.
constexpr uint64_t kCoarseMicros = 20'000;
constexpr uint64_t kNapMicros = 1000;

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

uint64_t RealTimeWorld::MicrosLeft(uint64_t at_micros) const {
  const uint64_t now_micros = NowMicros();
  return at_micros > now_micros ? at_micros - now_micros : 0;
}

void RealTimeWorld::RunEvents() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    if (events_.empty()) {
      changed_.wait(lock);
    } else if (const uint64_t left = MicrosLeft(events_.begin()->first); left > kCoarseMicros) {
      changed_.wait_for(lock, microseconds(left - kCoarseMicros));
    } else if (left > 0) {
      lock.unlock();
      std::this_thread::sleep_for(microseconds(std::min(left, kNapMicros)));
      lock.lock();
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
