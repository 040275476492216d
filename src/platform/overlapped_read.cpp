#include "platform/overlapped_read.h"

#include <algorithm>

namespace perilink {

void OverlappedRead::Post(HANDLE file, size_t length) {
  Cancel();
  buffer_.fill(0);
  overlapped_ = OVERLAPPED{};
  overlapped_.hEvent = event_.Get();
  if (!event_.Valid()) return;
  ResetEvent(event_.Get());
  file_ = file;
  const DWORD bytes = static_cast<DWORD>(std::min(length, kCapacity));
  // A read that completes at once signals the event as a pending one does when it completes.
  pending_ = ReadFile(file, buffer_.data(), bytes, nullptr, &overlapped_) != FALSE ||
             GetLastError() == ERROR_IO_PENDING;
}

bool OverlappedRead::Wait(DWORD timeout_ms) {
  if (!event_.Valid() || WaitForSingleObject(event_.Get(), timeout_ms) != WAIT_OBJECT_0)
    return false;
  pending_ = false;
  return true;
}

bool OverlappedRead::Succeeded() {
  DWORD transferred = 0;
  return GetOverlappedResult(file_, &overlapped_, &transferred, FALSE) != FALSE;
}

void OverlappedRead::Cancel() {
  if (!pending_) return;
  pending_ = false;
  CancelIo(file_);
  DWORD transferred = 0;
  GetOverlappedResult(file_, &overlapped_, &transferred, TRUE);
}

}  // namespace perilink
