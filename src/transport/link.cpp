#include "transport/link.h"

#include <algorithm>
#include <array>

#include "platform/runtime.h"

namespace perilink {
namespace {

// Between two attempts to post a read that the device refuses.
constexpr uint32_t kRefusedPauseMs = 10;

HANDLE OpenHid(const std::wstring* path, DWORD flags) {
  if (path == nullptr) return nullptr;
  return CreateFileW(path->c_str(), GENERIC_READ | GENERIC_WRITE,
                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, flags, nullptr);
}

}  // namespace

// ---- Handles ----------------------------------------------------------------------------------

void DeviceHandles::Open(const std::wstring* write_path, const std::wstring* read_path) {
  write_.Reset(OpenHid(write_path, FILE_ATTRIBUTE_NORMAL));
  read_.Reset(OpenHid(read_path, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OVERLAPPED));
}

void DeviceHandles::Close() {
  if (write_.Valid()) CancelIo(write_.Get());
  if (read_.Valid()) CancelIo(read_.Get());
  write_.Reset();
  read_.Reset();
}

bool DeviceHandles::Write(std::span<const uint8_t> report) const {
  DWORD written = 0;
  return WriteFile(write_.Get(), report.data(), static_cast<DWORD>(report.size()), &written,
                   nullptr) == TRUE;
}

bool DeviceHandles::SendFeature(std::span<const uint8_t> report) const {
  // The call takes a buffer that it might write to.
  std::array<uint8_t, Link::kLongestReport> buffer{};
  const size_t length = std::min(report.size(), buffer.size());
  std::copy_n(report.begin(), length, buffer.begin());
  return HidD_SetFeature(write_.Get(), buffer.data(), static_cast<ULONG>(length)) != FALSE;
}

bool DeviceHandles::GetAttributes(HIDD_ATTRIBUTES& attributes) const {
  return HidD_GetAttributes(read_.Get(), &attributes) != FALSE;
}

// ---- The link ---------------------------------------------------------------------------------

Link::~Link() {
  // The handles that somebody else keeps stay open.
  if (read_) read_->Cancel();
  own_.Close();
}

bool Link::Open(const std::wstring* write_path, const std::wstring* read_path) {
  Close();
  handles_.Open(write_path, read_path);
  return Prepare();
}

bool Link::Prepare() {
  read_.emplace();
  return CanWait();
}

void Link::Close() {
  if (read_) read_->Cancel();
  handles_.Close();
}

void Link::Listen() {
  if (CanWait() && !listening()) read_->Post(handles_.read_.Get(), report_length_);
}

Arrival Link::Next(uint32_t timeout_ms) {
  Listen();
  if (!listening()) {
    Sleep(std::min(timeout_ms, kRefusedPauseMs));
    return Arrival::kNothing;
  }
  return read_->Wait(timeout_ms) ? Take() : Arrival::kNothing;
}

Arrival Link::Next(Alarm& alarm, Deadline deadline) {
  Listen();
  if (!listening()) {
    const int64_t pause_ends = MonotonicMicros() + int64_t{kRefusedPauseMs} * 1000;
    deadline.at_micros = std::min(deadline.at_micros, pause_ends);
  }
  const HANDLE event = listening() ? read_->event() : nullptr;
  if (alarm.Wait(event, deadline) != Alarm::Cause::kSignalled) return Arrival::kNothing;
  return read_->Wait(0) ? Take() : Arrival::kNothing;
}

Arrival Link::Take() {
  return read_->Succeeded() ? Arrival::kReport : Arrival::kFailure;
}

std::span<const uint8_t> Link::report() const {
  return read_->buffer().first(report_length_);
}

}  // namespace perilink
