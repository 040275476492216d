// What a thread of the library's own reports, until the thread that wants it takes it. At most
// kInboxLimit items wait: when one more comes, the oldest goes and counts as lost, so that the
// newest, which may be an outcome, is always there.
#ifndef PERILINK_TOOLS_PERICTL_SERVER_INBOX_H_
#define PERILINK_TOOLS_PERICTL_SERVER_INBOX_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "system.h"

namespace perictl {

// Reports are at most 8 KiB long.
inline constexpr size_t kInboxLimit = 1024;

// For statics that are never destroyed: the library's thread may still run when the process ends.
template <typename T>
class Inbox {
 public:
  void Clear() {
    const std::lock_guard lock(mutex_);
    items_.clear();
    lost_ = 0;
  }

  void Put(T item) {
    const std::lock_guard lock(mutex_);
    if (items_.size() == kInboxLimit) {
      items_.pop_front();
      ++lost_;
    }
    items_.push_back(std::move(item));
    SetEvent(filled_);
  }

  // How many were lost since this was asked the last time.
  size_t TakeLost() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lost_, size_t{0});
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
  size_t lost_ = 0;
  const HANDLE filled_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SERVER_INBOX_H_
