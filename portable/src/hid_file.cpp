#include "hid_file.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "active_bus.h"
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
  connection_.reset();  // before the sink that it calls goes
  const DeviceGuard guard;
  std::erase(OpenFiles(), this);
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
  HidBus* const bus = ActiveBus();
  if (bus == nullptr) return ERROR_NO_SYSTEM_RESOURCES;
  const auto opened = std::make_shared<HidFile>(path, access);
  {
    const DeviceGuard guard;
    for (const HidFile* const other : OpenFiles()) {
      if (other != opened.get() && other->opening_ && opened->ConflictsWith(*other))
        return ERROR_SHARING_VIOLATION;
    }
    opened->opening_ = true;
  }
  std::unique_ptr<HidConnection> connection;
  const DWORD error = bus->Open(path, access.access, *opened, connection);
  const DeviceGuard guard;
  opened->opening_ = error == 0;
  if (error != 0) return error;
  opened->input_length_ = connection->InputReportLength();
  opened->connection_ = std::move(connection);
  file = opened;
  return 0;
}

void HidFile::OnHandleClosed() {
  // Destroyed after the lock is released, or when the write that uses it ends.
  std::shared_ptr<HidConnection> closed;
  const DeviceGuard guard;
  closed = std::exchange(connection_, nullptr);
  opening_ = false;
  reports_.clear();
  CancelReads(0, nullptr);
}

DWORD HidFile::Connected(std::shared_ptr<HidConnection>& connection) {
  const DeviceGuard guard;
  if (removed_) return ERROR_DEVICE_NOT_CONNECTED;
  connection = connection_;
  return connection == nullptr ? ERROR_INVALID_HANDLE : 0;
}

DWORD HidFile::BeginRead(std::span<uint8_t> buffer, OVERLAPPED& overlapped,
                         std::shared_ptr<Event> event) {
  const Thread& self = Scheduler::Get().Current("ReadFile");
  const DeviceGuard guard;
  Scheduler::Get().Reset(event != nullptr ? event->WaitSignal() : done_);
  if (removed_) return ERROR_DEVICE_NOT_CONNECTED;
  if (connection_ == nullptr) return ERROR_INVALID_HANDLE;
  if (buffer.size() < input_length_) return ERROR_INVALID_USER_BUFFER;
  Read read{++last_read_id_, buffer, &overlapped, std::move(event), self.id, false};
  if (reports_.empty()) {
    reads_.push_back(std::move(read));
    overlapped.InternalHigh = 0;
    overlapped.Internal = STATUS_PENDING;
    return ERROR_IO_PENDING;
  }
  const std::vector<uint8_t> report = std::move(reports_.front());
  reports_.pop_front();
  Complete(read, kStatusSuccess, report);
  return 0;
}

void HidFile::Complete(Read& read, DWORD status, std::span<const uint8_t> report) {
  size_t stored = 0;
  if (status == kStatusSuccess) {
    // The HID class always delivers reports of the declared length.
    stored = input_length_;
    const size_t sent = std::min(report.size(), stored);
    if (sent > 0) std::memcpy(read.buffer.data(), report.data(), sent);
    std::fill_n(read.buffer.begin() + static_cast<std::ptrdiff_t>(sent), stored - sent, uint8_t{0});
  }
  read.overlapped->InternalHigh = stored;
  read.overlapped->Internal = status;
  Scheduler::Get().Set(read.event != nullptr ? read.event->WaitSignal() : done_);
}

void HidFile::CompleteAll(DWORD status) {
  while (!reads_.empty()) {
    Complete(reads_.front(), status, {});
    reads_.pop_front();
  }
}

size_t HidFile::CancelReads(uint32_t issuer, const OVERLAPPED* overlapped) {
  const DeviceGuard guard;
  size_t count = 0;
  for (auto next = reads_.begin(); next != reads_.end();) {
    Read& read = *next++;
    if (issuer != 0 && read.issuer != issuer) continue;
    if (overlapped != nullptr && read.overlapped != overlapped) continue;
    ++count;
    if (std::exchange(read.cancelled, true)) continue;
    // Completes a little later, as on Windows, so that a host that frees the buffer without waiting
    // for the completion is found out.
    if (!AbortSoon(read.id)) Abort(read.id);
  }
  return count;
}

// False when the system has no memory or no thread for that.
bool HidFile::AbortSoon(uint64_t id) {
  try {
    ScheduleIn(1 + Scheduler::Get().Random(kCancelMicros),
               [self = shared_from_this(), id] { self->Abort(id); });
    return true;
  } catch (const std::exception&) {
    return false;
  }
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
  std::shared_ptr<HidConnection> connection;
  const DWORD error = Connected(connection);
  return error != 0 ? error : connection->WriteOutputReport(report);
}

DWORD HidFile::SetFeature(std::span<const uint8_t> report) {
  std::shared_ptr<HidConnection> connection;
  const DWORD error = Connected(connection);
  return error != 0 ? error : connection->SetFeatureReport(report);
}

DWORD HidFile::GetAttributes(HidAttributes& attributes) {
  std::shared_ptr<HidConnection> connection;
  const DWORD error = Connected(connection);
  if (error == 0) attributes = connection->Attributes();
  return error;
}

void HidFile::OnInputReport(std::span<const uint8_t> report) {
  if (reads_.empty()) {
    if (reports_.size() == kQueuedReports) reports_.pop_front();
    try {
      reports_.emplace_back(report.begin(), report.end());
    } catch (const std::bad_alloc&) {
      // The report is lost, as the oldest is in a full queue.
    }
    return;
  }
  Read read = std::move(reads_.front());
  reads_.pop_front();
  Complete(read, kStatusSuccess, report);
}

void HidFile::OnRemoved() {
  removed_ = true;
  reports_.clear();
  CompleteAll(kStatusDeviceNotConnected);
}

void CancelReadsOf(Thread& thread) {
  const DeviceGuard guard;
  for (HidFile* const file : OpenFiles())
    file->CancelReads(thread.id, nullptr);
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
