// The library's own copy of the configuration record: what the device is believed to hold.
#ifndef PERILINK_SRC_PROTOCOL_STORED_H_
#define PERILINK_SRC_PROTOCOL_STORED_H_

#include <atomic>
#include <cstdint>
#include <mutex>
#include <span>
#include <utility>

#include "perilink/records.h"

namespace perilink {

// Written by the host's threads and by the server thread, hence a lock of its own. The dispatcher
// stores into it with QueueMutex held, so nothing takes QueueMutex while it holds this lock.
class StoredProtocolData {
 public:
  static StoredProtocolData& Instance();

  StoredProtocolData(const StoredProtocolData&) = delete;
  StoredProtocolData& operator=(const StoredProtocolData&) = delete;

  // ProtocolDataParsed: set by the first parse of a whole image, never cleared.
  bool parsed() const { return parsed_.load(std::memory_order_relaxed); }
  void MarkParsed() { parsed_.store(true, std::memory_order_relaxed); }

  void Replace(const ProtocolData& record);

  // Parses a whole image (6960 bytes) into the record, and marks that something was parsed.
  void Parse(const uint8_t* image);

  // Keeps the record current from the answer to a memory read at `address` with the frame's ten
  // data bytes: the report rate, the current level, the indicator and the bar, each field whose
  // check byte is right. Any other address stores nothing.
  void StoreReply(uint16_t address, std::span<const uint8_t, 10> data);

  // Runs `use` on the record under the lock. `use` takes no other lock.
  template <typename Use>
  decltype(auto) With(Use&& use) {
    std::lock_guard lock(mutex_);
    return std::forward<Use>(use)(record_);
  }

 private:
  StoredProtocolData() = default;

  std::mutex mutex_;
  std::atomic<bool> parsed_{false};
  ProtocolData record_{};
};

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_STORED_H_
