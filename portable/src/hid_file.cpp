#include "hid_file.h"

#include <algorithm>
#include <cstring>

#include "path.h"
#include "perilink_platform/error.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

constexpr size_t kQueuedReports = 32;

constexpr DWORD kStatusSuccess = 0;
constexpr DWORD kStatusDeviceNotConnected = 0xC000009D;
constexpr DWORD kStatusCancelled = 0xC0000120;

// A cancelled read is completed within this time.
constexpr uint64_t kCancelMicros = 20;

// The files now open, under the device lock.
std::vector<HidFile*>& OpenFiles() {
  static auto* const files = new std::vector<HidFile*>;
  return *files;
}

}  // namespace

HidFile::HidFile(std::wstring path, const FileAccess& access)
    : path_(std::move(path)), access_(access) {
  const DeviceGuard guard;
  OpenFiles().push_back(this);
}

HidFile::~HidFile() {
  const DeviceGuard guard;
  std::erase(OpenFiles(), this);
  connection_.reset();
}

bool HidFile::ConflictsWith(const HidFile& other) const {
  const auto refuses = [](const HidFile& holder, const HidFile& comer) {
    return (comer.Allows(GENERIC_READ) && (holder.access_.share_mode & FILE_SHARE_READ) == 0) ||
           (comer.Allows(GENERIC_WRITE) && (holder.access_.share_mode & FILE_SHARE_WRITE) == 0);
  };
  // Opens without any access take no part.
  if (access_.access == 0 || other.access_.access == 0) return false;
  return SamePath(path_, other.path_) && (refuses(*this, other) || refuses(other, *this));
}

DWORD HidFile::Open(const std::wstring& path, const FileAccess& access,
                    std::shared_ptr<HidFile>& file) {
  const DeviceGuard guard;
  const auto opened = std::make_shared<HidFile>(path, access);
  for (const HidFile* const other : OpenFiles()) {
    if (other != opened.get() && other->connection_ != nullptr && opened->ConflictsWith(*other))
      return ERROR_SHARING_VIOLATION;
  }
  const DWORD error = Bus().Open(path, *opened, opened->connection_);
  if (error != 0) return error;
  opened->input_length_ = opened->connection_->InputReportLength();
  file = opened;
  return 0;
}

void HidFile::OnHandleClosed() {
  const DeviceGuard guard;
  connection_.reset();
  reports_.clear();
  CancelReads(nullptr, nullptr);
}

DWORD HidFile::BeginRead(std::span<uint8_t> buffer, OVERLAPPED& overlapped,
                         std::shared_ptr<Event> event) {
  const Thread& self = Scheduler::Get().Current("ReadFile");
  const DeviceGuard guard;
  Scheduler::Get().Reset(event != nullptr ? event->WaitSignal() : done_);
  if (removed_) return ERROR_DEVICE_NOT_CONNECTED;
  if (connection_ == nullptr) return ERROR_INVALID_HANDLE;
  if (buffer.size() < input_length_) return ERROR_INVALID_USER_BUFFER;
  overlapped.Internal = STATUS_PENDING;
  overlapped.InternalHigh = 0;
  Read read{++last_read_id_, buffer, &overlapped, std::move(event), &self, false};
  if (reports_.empty()) {
    reads_.push_back(std::move(read));
    return ERROR_IO_PENDING;
  }
  const std::vector<uint8_t> report = std::move(reports_.front());
  reports_.pop_front();
  Complete(read, kStatusSuccess, report);
  return 0;
}

void HidFile::Complete(Read& read, DWORD status, std::span<const uint8_t> report) {
  if (!report.empty()) std::memcpy(read.buffer.data(), report.data(), report.size());
  read.overlapped->InternalHigh = report.size();
  read.overlapped->Internal = status;
  Scheduler::Get().Set(read.event != nullptr ? read.event->WaitSignal() : done_);
}

void HidFile::CompleteAll(DWORD status) {
  for (std::deque<Read> reads = std::exchange(reads_, {}); Read & read : reads)
    Complete(read, status, {});
}

size_t HidFile::CancelReads(const Thread* issuer, const OVERLAPPED* overlapped) {
  const DeviceGuard guard;
  size_t count = 0;
  for (Read& read : reads_) {
    if (issuer != nullptr && read.issuer != issuer) continue;
    if (overlapped != nullptr && read.overlapped != overlapped) continue;
    ++count;
    if (std::exchange(read.cancelled, true)) continue;
    // Not at once: who doesn't wait for the completion loses the memory that it is written to.
    ScheduleIn(1 + Scheduler::Get().Random(kCancelMicros),
               [self = shared_from_this(), id = read.id] { self->Abort(id); });
  }
  return count;
}

void HidFile::Abort(uint64_t id) {
  const auto read =
      std::find_if(reads_.begin(), reads_.end(), [id](const Read& r) { return r.id == id; });
  if (read == reads_.end()) return;
  Read aborted = std::move(*read);
  reads_.erase(read);
  Complete(aborted, kStatusCancelled, {});
}

DWORD HidFile::Write(std::span<const uint8_t> report) {
  const DeviceGuard guard;
  if (removed_) return ERROR_DEVICE_NOT_CONNECTED;
  return connection_ == nullptr ? ERROR_INVALID_HANDLE : connection_->WriteOutputReport(report);
}

DWORD HidFile::SetFeature(std::span<const uint8_t> report) {
  const DeviceGuard guard;
  if (removed_) return ERROR_DEVICE_NOT_CONNECTED;
  return connection_ == nullptr ? ERROR_INVALID_HANDLE : connection_->SetFeatureReport(report);
}

DWORD HidFile::GetAttributes(HidAttributes& attributes) {
  const DeviceGuard guard;
  if (removed_) return ERROR_DEVICE_NOT_CONNECTED;
  if (connection_ == nullptr) return ERROR_INVALID_HANDLE;
  attributes = connection_->Attributes();
  return 0;
}

void HidFile::OnInputReport(std::span<const uint8_t> report) {
  // The HID class always delivers reports of the declared length.
  std::vector<uint8_t> whole(report.begin(), report.end());
  whole.resize(input_length_);
  if (reads_.empty()) {
    if (reports_.size() == kQueuedReports) reports_.pop_front();
    reports_.push_back(std::move(whole));
    return;
  }
  Read read = std::move(reads_.front());
  reads_.pop_front();
  Complete(read, kStatusSuccess, whole);
}

void HidFile::OnRemoved() {
  removed_ = true;
  reports_.clear();
  CompleteAll(kStatusDeviceNotConnected);
}

void CancelReadsOf(Thread& thread) {
  const DeviceGuard guard;
  for (HidFile* const file : OpenFiles())
    file->CancelReads(&thread, nullptr);
}

bool IsPending(const OVERLAPPED& overlapped) {
  const DeviceGuard guard;
  return overlapped.Internal == STATUS_PENDING;
}

DWORD IoResult(const OVERLAPPED& overlapped, DWORD& bytes) {
  const DeviceGuard guard;
  bytes = static_cast<DWORD>(overlapped.InternalHigh);
  switch (overlapped.Internal) {
    case kStatusSuccess:
    case STATUS_PENDING:  // the event was set by another hand: a success to Windows
      return 0;
    case kStatusCancelled:
      return ERROR_OPERATION_ABORTED;
    case kStatusDeviceNotConnected:
      return ERROR_DEVICE_NOT_CONNECTED;
    default:  // no status that was stored here
      return ERROR_INVALID_PARAMETER;
  }
}

}  // namespace perilink::platform
