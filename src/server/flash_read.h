// Reading the device's configuration memory through the queue: plain reads, and the full read, a
// chain in which each answer chooses the next request.
#ifndef PERILINK_SRC_SERVER_FLASH_READ_H_
#define PERILINK_SRC_SERVER_FLASH_READ_H_

#include <cstdint>
#include <span>

#include "server/queue.h"

namespace perilink {

// Queues a memory read of `length` bytes from the low 16 bits of `address`, cut into frames of at
// most ten bytes that stand together in the queue; each carries the tag. A length below 1, or over
// what the callback's buffer holds, queues nothing.
void QueueMemoryRead(uint32_t address, int32_t length, uint8_t continuation);

// Takes the answer to a step of the full read: `tag` is between 1 and kLastFlashReadTag, `data`
// what the device answered, zeros beyond it. Queues the next step or, after the last, parses the
// image and hands it to the host. Server thread, no lock held.
void ContinueFlashRead(uint8_t tag, std::span<const uint8_t, kReplyDataSize> data);

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_FLASH_READ_H_
