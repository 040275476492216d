// The device events to come, in the order in which they will run.
#ifndef PERILINK_PLATFORM_SRC_TIMELINE_H_
#define PERILINK_PLATFORM_SRC_TIMELINE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>
#include <utility>

#include "perilink_platform/world.h"

namespace perilink::platform {

// Not locked: its owner does that.
class Timeline {
 public:
  EventId Add(uint64_t at, std::function<void()> action) {
    const EventId id = ++last_id_;
    decltype(events_) event;
    event.emplace(std::pair(at, id), std::move(action));
    times_.emplace(id, at);
    events_.merge(event);  // needs no memory: either all has been added, or nothing
    return id;
  }

  // Gives the action back: destroying it may run code that its owner must not run under a lock.
  std::function<void()> Remove(EventId id) {
    const auto time = times_.find(id);
    if (time == times_.end()) return nullptr;
    const auto event = events_.find(std::pair(time->second, id));
    std::function<void()> action = std::move(event->second);
    events_.erase(event);
    times_.erase(time);
    return action;
  }

  // When the first event is due, UINT64_MAX for none.
  uint64_t NextAt() const { return events_.empty() ? UINT64_MAX : events_.begin()->first.first; }

  // Takes the first event if it is due, otherwise gives an empty function.
  std::function<void()> TakeDue(uint64_t now) {
    if (events_.empty() || NextAt() > now) return nullptr;
    const auto first = events_.begin();
    std::function<void()> action = std::move(first->second);
    times_.erase(first->first.second);
    events_.erase(first);
    return action;
  }

 private:
  std::map<std::pair<uint64_t, EventId>, std::function<void()>> events_;
  std::unordered_map<EventId, uint64_t> times_;
  EventId last_id_ = 0;
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_TIMELINE_H_
