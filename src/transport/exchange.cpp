#include "transport/exchange.h"

#include <algorithm>

#include "perilink/finder.h"
#include "platform/guard.h"
#include "platform/overlapped_read.h"
#include "transport/frame.h"

namespace perilink {
namespace {

HANDLE OpenHid(const std::wstring& path, DWORD flags) {
  return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                     nullptr, OPEN_EXISTING, flags, nullptr);
}

bool WriteFrame(HANDLE file, const CommandFrame& frame) {
  DWORD written = 0;
  return WriteFile(file, &frame, sizeof frame, &written, nullptr) == TRUE;
}

bool IsReply(std::span<const uint8_t> report, const CommandFrame& request) {
  constexpr size_t kChecksum = offsetof(CommandFrame, checksum);
  return ChecksumRange(report.data(), 0, kChecksum) == report[kChecksum] &&
         report[offsetof(CommandFrame, command)] == request.command;
}

}  // namespace

HANDLE OpenHidWriteHandle(const std::wstring& path) {
  return OpenHid(path, FILE_ATTRIBUTE_NORMAL);
}

HANDLE OpenHidReadHandle(const std::wstring& path) {
  return OpenHid(path, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OVERLAPPED);
}

bool ExchangeFrame(const std::wstring& path, const CommandFrame& request, CommandFrame& reply,
                   int32_t retries, int32_t timeout_ms) {
  reply = CommandFrame{};
  // Destroyed from the last to the first: the read is drained before its handle is closed.
  const UniqueFile write_handle(OpenHidWriteHandle(path));
  const UniqueFile read_handle(OpenHidReadHandle(path));
  OverlappedRead read;
  if (!read.has_event()) return false;

  bool accepted = false;
  // Posted before the first write, so that a reply that comes at once is not lost.
  read.Post(read_handle.Get(), sizeof reply);
  for (int64_t tries = int64_t{retries} + 1; tries > 0 && !accepted; --tries) {
    if (!WriteFrame(write_handle.Get(), request)) continue;
    // A read that is still pending serves the next try.
    if (!read.Wait(static_cast<DWORD>(timeout_ms))) continue;
    accepted = IsReply(read.buffer(), request);
    if (accepted) {
      std::copy_n(read.buffer().begin(), sizeof reply, FrameBytes(reply).begin());
    } else {
      read.Post(read_handle.Get(), sizeof reply);
    }
  }
  CancelIo(write_handle.Get());
  return accepted;
}

}  // namespace perilink

bool UsbFinder_GetDeviceData(const std::wstring& path, const CommandFrame* request,
                             CommandFrame* reply) {
  // A copy: the caller may have its reply take the request's place.
  const CommandFrame frame = *request;
  *reply = CommandFrame{};
  return perilink::Guarded(false, [&] { return perilink::ExchangeFrame(path, frame, *reply); });
}

void UsbFinder_GetUsbDeviceAttribute(const std::wstring& path,
                                     struct _HIDD_ATTRIBUTES* attributes) {
  perilink::Guarded([&] {
    const perilink::UniqueFile file(perilink::OpenHidReadHandle(path));
    HidD_GetAttributes(file.Get(), attributes);
  });
}
