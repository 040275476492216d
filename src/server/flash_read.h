// Reading the device's configuration memory through the queue: plain reads, and the full read, a
// chain in which each answer chooses the next request.
#ifndef PERILINK_SRC_SERVER_FLASH_READ_H_
#define PERILINK_SRC_SERVER_FLASH_READ_H_

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "server/queue.h"
#include "server/state.h"

namespace perilink {

// Queues a memory read of `length` bytes from the low 16 bits of `address`, cut into frames of at
// most ten bytes that stand together in the queue; each carries the tag. A length below 1, or over
// what the callback's buffer holds, queues nothing.
void QueueMemoryRead(uint32_t address, int32_t length, uint8_t continuation);

// The full reads under way, each with an image of its own: a read lives in the queue, with the
// requests that carry it, and is gone when they are dropped. Server thread.
class FlashReads {
 public:
  // A step of a full read whose request has been answered.
  struct Step {
    uint8_t tag = kNoContinuation;      // between 1 and kLastFlashReadTag
    std::shared_ptr<FlashRead> reader;  // null: the read begins with this step
    ConnectionNumber connection = 0;    // in which it was asked
  };

  explicit FlashReads(ServerState& state) : state_(state) {}

  // Takes the answer to a step: `data` is what the device answered, zeros beyond it. Queues the
  // next step or, after the last, parses the image and hands it to `callback`; without a callback
  // nothing is parsed. Queues and reports nothing once another connection has begun. No lock is
  // held.
  void Continue(Step& step, std::span<const uint8_t, kReplyDataSize> data,
                ServerReportCallback callback);

  // The device has acknowledged this memory write: it is laid over every image, so that none is
  // older than the device.
  void OnWritten(const CommandFrame& write);

 private:
  ServerState& state_;
  std::vector<std::weak_ptr<FlashRead>> running_;
};

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_FLASH_READ_H_
