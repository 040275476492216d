// What a thread of the library's own reports, until the thread that wants it takes it.
#ifndef PERILINK_TOOLS_PERICTL_INBOX_H_
#define PERILINK_TOOLS_PERICTL_INBOX_H_

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "system.h"

namespace perictl {

// For statics that are never destroyed: the library's thread may still run when the process ends.
template <typename T>
class Inbox {
 public:
  void Clear() {
    const std::lock_guard lock(mutex_);
    items_.clear();
  }

  void Put(T item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    SetEvent(filled_);
  }

  // The next item, waited for; nothing when none has come in time.
  std::optional<T> Next(uint32_t timeout_ms) {
    const uint64_t end_ms = GetTickCount64() + timeout_ms;
    while (true) {
      if (std::optional<T> item = TryTake()) return item;
      const uint64_t now_ms = GetTickCount64();
      if (now_ms >= end_ms) return std::nullopt;
      WaitForSingleObject(filled_, static_cast<DWORD>(end_ms - now_ms));
    }
  }

 private:
  std::optional<T> TryTake() {
    const std::lock_guard lock(mutex_);
    if (items_.empty()) return std::nullopt;
    T item = std::move(items_.front());
    items_.pop_front();
    return item;
  }

  std::mutex mutex_;
  std::deque<T> items_;
  const HANDLE filled_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_INBOX_H_
