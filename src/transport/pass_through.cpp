#include "transport/pass_through.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "perilink/finder.h"
#include "platform/guard.h"
#include "platform/overlapped_read.h"
#include "transport/exchange.h"

namespace perilink {
namespace {

constexpr int kRawTries = 2;
constexpr DWORD kRawTimeoutMs = 200;

// The RawDeviceHandles. The host uses them from one thread at a time; that they are atomic keeps a
// host that does not from closing a handle twice.
std::atomic<HANDLE> raw_write_handle{nullptr};
std::atomic<HANDLE> raw_read_handle{nullptr};

bool WriteReport(HANDLE file, std::span<const uint8_t> report) {
  DWORD written = 0;
  return WriteFile(file, report.data(), static_cast<DWORD>(report.size()), &written, nullptr) ==
         TRUE;
}

}  // namespace

bool OpenRawDevice(const std::wstring& path) {
  const HANDLE write_handle = OpenHidWriteHandle(path);
  const HANDLE read_handle = OpenHidReadHandle(path);
  raw_write_handle.store(write_handle, std::memory_order_relaxed);
  raw_read_handle.store(read_handle, std::memory_order_relaxed);
  return IsValidHandle(write_handle) && IsValidHandle(read_handle);
}

void CloseRawDevice() {
  const HANDLE read_handle = raw_read_handle.exchange(nullptr, std::memory_order_relaxed);
  const HANDLE write_handle = raw_write_handle.exchange(nullptr, std::memory_order_relaxed);
  CancelIo(read_handle);
  CancelIo(write_handle);
  if (IsValidHandle(read_handle)) CloseHandle(read_handle);
  if (IsValidHandle(write_handle)) CloseHandle(write_handle);
}

bool WriteRaw(std::span<const uint8_t> report) {
  return WriteReport(raw_write_handle.load(std::memory_order_relaxed), report);
}

bool ExchangeRaw(std::span<const uint8_t> request, std::span<uint8_t> reply) {
  // The caller may have its reply take the request's place.
  std::array<uint8_t, OverlappedRead::kCapacity> copy{};
  std::copy(request.begin(), request.end(), copy.begin());
  std::fill(reply.begin(), reply.end(), uint8_t{0});

  OverlappedRead read;
  if (!read.has_event()) return false;
  // One read serves both tries. It is drained when it goes, whatever became of them.
  read.Post(raw_read_handle.load(std::memory_order_relaxed), reply.size());
  for (int tries = kRawTries; tries > 0; --tries) {
    if (!WriteRaw(std::span(copy).first(request.size())) || !read.Wait(kRawTimeoutMs)) continue;
    std::copy_n(read.buffer().begin(), reply.size(), reply.begin());
    return true;
  }
  return false;
}

}  // namespace perilink

bool UsbFinder_WriteDeviceData(const uint8_t* data, uint8_t length) {
  return perilink::Guarded(false, [&] { return perilink::WriteRaw({data, length}); });
}
