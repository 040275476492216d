#include "perilink_platform/file.h"

#include <new>

#include "call.h"
#include "hid_file.h"
#include "perilink_platform/handle.h"

namespace perilink::platform {
namespace {

using File = std::shared_ptr<HidFile>;

File FindFile(HANDLE handle) {
  return HandleTable::Get().Find<HidFile>(handle);
}

// What ReadFile and WriteFile ask of their arguments; 0 when they are fine.
DWORD CheckTransfer(const File& file, DWORD access, LPCVOID buffer, const DWORD* bytes,
                    const OVERLAPPED* overlapped) {
  if (file == nullptr) return ERROR_INVALID_HANDLE;
  if (file->overlapped() != (overlapped != nullptr)) return ERROR_INVALID_PARAMETER;
  if (overlapped == nullptr && bytes == nullptr) return ERROR_INVALID_PARAMETER;
  if (!file->Allows(access)) return ERROR_ACCESS_DENIED;
  return buffer == nullptr ? ERROR_NOACCESS : 0;
}

// The event of an OVERLAPPED, null if it names none. False if what it names is no event.
bool FindEvent(const OVERLAPPED& overlapped, std::shared_ptr<Event>& event) {
  if (overlapped.hEvent == nullptr) return true;
  event = HandleTable::Get().Find<Event>(overlapped.hEvent);
  return event != nullptr;
}

// Resets the event, as a read does that fails before it reaches the device.
BOOL FailRead(DWORD error, const OVERLAPPED* overlapped) {
  std::shared_ptr<Event> event;
  if (overlapped != nullptr && FindEvent(*overlapped, event) && event != nullptr)
    Scheduler::Get().Reset(event->WaitSignal());
  return Fail(error, FALSE);
}

BOOL ReadAndWait(HidFile& file, HANDLE handle, std::span<uint8_t> buffer, DWORD& bytes) {
  OVERLAPPED overlapped{};
  const auto event = std::make_shared<Event>(true, false);
  bytes = 0;
  DWORD error = file.BeginRead(buffer, overlapped, event);
  if (error != 0 && error != ERROR_IO_PENDING) return Fail(error, FALSE);
  Scheduler::Get().Wait(event->WaitSignal(), kForever,
                        {"a report on file", reinterpret_cast<uintptr_t>(handle)});
  error = IoResult(overlapped, bytes);
  return error == 0 ? TRUE : Fail(error, FALSE);
}

}  // namespace
}  // namespace perilink::platform

using perilink::platform::CallMustFail;
using perilink::platform::Fail;
using perilink::platform::FindFile;
using perilink::platform::HidFile;

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share_mode, LPSECURITY_ATTRIBUTES attributes,
                   DWORD creation, DWORD flags, HANDLE template_file) try {
  if (CallMustFail("CreateFileW")) return INVALID_HANDLE_VALUE;
  if (path == nullptr || *path == 0) return Fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  constexpr DWORD kShares = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  if ((access & ~(GENERIC_READ | GENERIC_WRITE)) != 0 || (share_mode & ~kShares) != 0 ||
      attributes != nullptr || creation != OPEN_EXISTING ||
      (flags & ~(FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OVERLAPPED)) != 0 || template_file != nullptr)
    return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  std::shared_ptr<HidFile> file;
  const DWORD error =
      HidFile::Open(path, {access, share_mode, (flags & FILE_FLAG_OVERLAPPED) != 0}, file);
  if (error != 0) return Fail(error, INVALID_HANDLE_VALUE);
  return perilink::platform::HandleTable::Get().Add(file);
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, INVALID_HANDLE_VALUE);
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD size, LPDWORD bytes_read,
              LPOVERLAPPED overlapped) try {
  namespace platform = perilink::platform;
  if (const DWORD error = platform::InjectedError("ReadFile"); error != 0)
    return platform::FailRead(error, overlapped);
  const auto file = FindFile(handle);
  DWORD error = platform::CheckTransfer(file, GENERIC_READ, buffer, bytes_read, overlapped);
  if (error != 0) return platform::FailRead(error, overlapped);
  const std::span target(static_cast<uint8_t*>(buffer), size);
  if (overlapped == nullptr) return platform::ReadAndWait(*file, handle, target, *bytes_read);
  std::shared_ptr<platform::Event> event;
  if (!platform::FindEvent(*overlapped, event)) return Fail(ERROR_INVALID_HANDLE, FALSE);
  error = file->BeginRead(target, *overlapped, event);
  if (error != 0) return Fail(error, FALSE);
  if (bytes_read != nullptr) platform::IoResult(*overlapped, *bytes_read);
  return TRUE;
} catch (const std::bad_alloc&) {
  return perilink::platform::FailRead(ERROR_NOT_ENOUGH_MEMORY, overlapped);
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, LPDWORD bytes_written,
               LPOVERLAPPED overlapped) try {
  namespace platform = perilink::platform;
  if (CallMustFail("WriteFile")) return FALSE;
  const auto file = FindFile(handle);
  DWORD error = platform::CheckTransfer(file, GENERIC_WRITE, buffer, bytes_written, overlapped);
  if (error != 0) return Fail(error, FALSE);
  if (bytes_written != nullptr) *bytes_written = 0;
  std::shared_ptr<platform::Event> event;
  if (overlapped != nullptr) {
    if (!platform::FindEvent(*overlapped, event)) return Fail(ERROR_INVALID_HANDLE, FALSE);
    platform::Signal& signal = event != nullptr ? event->WaitSignal() : file->WaitSignal();
    platform::Scheduler::Get().Reset(signal);
  }
  error = file->Write({static_cast<const uint8_t*>(buffer), size});
  if (error != 0) return Fail(error, FALSE);
  if (bytes_written != nullptr) *bytes_written = size;
  if (overlapped != nullptr) {
    overlapped->Internal = 0;
    overlapped->InternalHigh = size;
    platform::Signal& signal = event != nullptr ? event->WaitSignal() : file->WaitSignal();
    platform::Scheduler::Get().Set(signal);
  }
  return TRUE;
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, FALSE);
}

BOOL CancelIo(HANDLE handle) {
  if (CallMustFail("CancelIo")) return FALSE;
  const auto file = FindFile(handle);
  if (file == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  file->CancelReads(GetCurrentThreadId(), nullptr);
  return TRUE;
}

BOOL CancelIoEx(HANDLE handle, LPOVERLAPPED overlapped) {
  if (CallMustFail("CancelIoEx")) return FALSE;
  const auto file = FindFile(handle);
  if (file == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  return file->CancelReads(0, overlapped) > 0 ? TRUE : Fail(ERROR_NOT_FOUND, FALSE);
}

BOOL GetOverlappedResult(HANDLE handle, LPOVERLAPPED overlapped, LPDWORD bytes, BOOL wait) {
  namespace platform = perilink::platform;
  if (CallMustFail("GetOverlappedResult")) return FALSE;
  const auto file = FindFile(handle);
  if (file == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  if (overlapped == nullptr || bytes == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
  if (platform::IsPending(*overlapped)) {
    if (wait == FALSE) return Fail(ERROR_IO_INCOMPLETE, FALSE);
    std::shared_ptr<platform::Event> event;
    if (!platform::FindEvent(*overlapped, event)) return Fail(ERROR_INVALID_HANDLE, FALSE);
    platform::Waitable* const done[] = {
        event != nullptr ? static_cast<platform::Waitable*>(event.get()) : file.get()};
    platform::WaitForAny(done, event != nullptr ? overlapped->hEvent : handle, INFINITE);
  }
  const DWORD error = platform::IoResult(*overlapped, *bytes);
  return error == 0 ? TRUE : Fail(error, FALSE);
}
