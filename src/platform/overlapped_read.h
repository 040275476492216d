// An overlapped read that owns all that the system writes to: its buffer, its event and its
// OVERLAPPED. Its only exits are completed, or cancelled and drained, so no memory that the system
// may still write to ever goes away.
#ifndef PERILINK_SRC_PLATFORM_OVERLAPPED_READ_H_
#define PERILINK_SRC_PLATFORM_OVERLAPPED_READ_H_

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/handles.h"

namespace perilink {

// One read at a time on a handle that the caller owns and keeps open longer than this object.
// Use from one thread: CancelIo cancels what its own thread has posted.
class OverlappedRead {
 public:
  static constexpr size_t kCapacity = 256;

  // Creates the event; has_event() is false when that failed.
  OverlappedRead();
  ~OverlappedRead() { Cancel(); }
  OverlappedRead(const OverlappedRead&) = delete;
  OverlappedRead& operator=(const OverlappedRead&) = delete;

  bool has_event() const { return transfer_ != nullptr; }

  // Posts a read of `length` bytes (cut to kCapacity) into the zeroed buffer and resets the event.
  // A read that is still pending is cancelled and drained first. Nothing is posted without an
  // event; a post that fails at once leaves the event unsignalled: every wait then runs out.
  void Post(HANDLE file, size_t length);

  // Whether a read is under way: posted, and neither found completed by Wait nor cancelled.
  bool pending() const { return pending_; }
  // Signalled when the posted read completes. Meaningful while has_event().
  HANDLE event() const { return transfer_->event.Get(); }

  // True when the posted read has completed within the timeout. A completed read is over: the
  // buffer is the caller's until the next Post. Without an event false, at once.
  bool Wait(DWORD timeout_ms);

  // Whether the read that Wait found completed has delivered a report; false for one that the
  // system ended with an error, for example because the device has gone.
  bool Succeeded();

  // What the read delivered, zeros beyond it. Meaningful after Wait has returned true; not to be
  // called without an event.
  std::span<const uint8_t, kCapacity> buffer() const { return transfer_->buffer; }

  // Cancels a pending read and waits until the system has let go of the buffer.
  void Cancel();

 private:
  // What the system holds on to while a read is pending.
  struct Transfer {
    std::array<uint8_t, kCapacity> buffer{};
    OVERLAPPED overlapped{};
    UniqueEvent event = CreateManualResetEvent();
  };

  std::unique_ptr<Transfer> transfer_;
  HANDLE file_ = INVALID_HANDLE_VALUE;
  bool pending_ = false;
};

}  // namespace perilink

#endif  // PERILINK_SRC_PLATFORM_OVERLAPPED_READ_H_
