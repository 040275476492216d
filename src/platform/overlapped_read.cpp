#include "platform/overlapped_read.h"

#include <algorithm>
#include <new>

namespace perilink {
namespace {

// How often, and how long each time, a cancelled read is waited for.
constexpr int kDrainTries = 10;
constexpr DWORD kDrainStepMs = 100;

}  // namespace

OverlappedRead::OverlappedRead() : transfer_(new (std::nothrow) Transfer) {
  if (transfer_ && !transfer_->event.Valid()) transfer_.reset();
}

void OverlappedRead::Post(HANDLE file, size_t length) {
  Cancel();
  if (!transfer_) return;
  const HANDLE event = transfer_->event.Get();
  transfer_->buffer.fill(0);
  transfer_->overlapped = OVERLAPPED{};
  transfer_->overlapped.hEvent = event;
  ResetEvent(event);
  file_ = file;
  const DWORD bytes = static_cast<DWORD>(std::min(length, kCapacity));
  // A read that completes at once signals the event as a pending one does when it completes.
  pending_ =
      ReadFile(file, transfer_->buffer.data(), bytes, nullptr, &transfer_->overlapped) != FALSE ||
      GetLastError() == ERROR_IO_PENDING;
}

bool OverlappedRead::Wait(DWORD timeout_ms) {
  if (!transfer_ || WaitForSingleObject(transfer_->event.Get(), timeout_ms) != WAIT_OBJECT_0)
    return false;
  pending_ = false;
  return true;
}

bool OverlappedRead::Succeeded() {
  DWORD transferred = 0;
  return transfer_ && GetOverlappedResult(file_, &transfer_->overlapped, &transferred, FALSE);
}

void OverlappedRead::Cancel() {
  if (!pending_) return;
  // The event tells that the read is over even when its file is closed already, which aborts it.
  for (int tries = kDrainTries; tries > 0; --tries) {
    CancelIo(file_);
    if (Wait(kDrainStepMs)) return;
  }
  // A driver that does not let go: the memory is left to it, rather than hanging the host or
  // having its memory written to. Without it, later reads fail like those without an event.
  pending_ = false;
  static_cast<void>(transfer_.release());
}

}  // namespace perilink
