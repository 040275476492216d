// A world in real time, for devices on a bus of a real system: the steady clock, and a thread of
// its own on which the events run.
#ifndef PERILINK_SIM_REAL_TIME_WORLD_H_
#define PERILINK_SIM_REAL_TIME_WORLD_H_

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "sim/world.h"

namespace perilink::sim {

class RealTimeWorld final : public World {
 public:
  RealTimeWorld();
  // Waits for the event that runs; those still to come are dropped.
  ~RealTimeWorld() override;
  RealTimeWorld(const RealTimeWorld&) = delete;
  RealTimeWorld& operator=(const RealTimeWorld&) = delete;

  uint64_t NowMicros() const override;
  void Schedule(uint64_t at_micros, std::function<void()> action) override;
  void lock() override { world_.lock(); }
  void unlock() override { world_.unlock(); }

 private:
  void RunEvents();
  uint64_t MicrosLeft(uint64_t at_micros) const;

  std::recursive_mutex world_;
  std::mutex mutex_;  // guards what follows; taken after the world's lock
  std::condition_variable changed_;
  std::multimap<uint64_t, std::function<void()>> events_;  // by the time at which they are due
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_REAL_TIME_WORLD_H_
