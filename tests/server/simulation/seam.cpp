#include "seam.h"

#include <dlfcn.h>

#include <utility>

#include "server/state.h"
#include "support/failing_new.h"
#include "watch.h"

namespace perilink::testing {

Watch*& TheEar() {
  static Watch* ear = nullptr;
  return ear;
}

namespace {

// What the platform library itself does under this name.
template <typename Function>
Function* System(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Tells the ear, whose own calls leave no error behind.
template <typename... Parameters, typename... Arguments>
void Tell(void (Watch::*what)(Parameters...), Arguments&&... arguments) {
  if (TheEar() == nullptr) return;
  const DWORD error = GetLastError();
  (TheEar()->*what)(std::forward<Arguments>(arguments)...);
  SetLastError(error);
}

template <typename Wait>
DWORD TellWait(Wait wait) {
  Tell(&Watch::OnPause, std::nullopt);
  const DWORD result = wait();
  Tell(&Watch::OnResume);
  return result;
}

// Whether it is the mutex behind ServerState::LockQueues().
bool IsServerLock(const pthread_mutex_t* mutex) {
  return mutex == reinterpret_cast<const pthread_mutex_t*>(&ServerState::Instance());
}

}  // namespace
}  // namespace perilink::testing

using namespace perilink::testing;

// What a call of the system begins with. Neither its allocations nor the ear's are the library's.
#define PERILINK_SYSTEM(name)                                \
  static auto* const system = System<decltype(name)>(#name); \
  const FailingNew::Pause pause

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                   DWORD creation, DWORD flags, HANDLE pattern) {
  PERILINK_SYSTEM(CreateFileW);
  const HANDLE handle = system(path, access, share, attributes, creation, flags, pattern);
  Tell(&Watch::OnOpened, path, handle, (flags & FILE_FLAG_OVERLAPPED) != 0);
  return handle;
}

BOOL CloseHandle(HANDLE handle) {
  PERILINK_SYSTEM(CloseHandle);
  Tell(&Watch::OnClosing, handle);
  return system(handle);
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) {
  PERILINK_SYSTEM(WriteFile);
  const BOOL result = system(file, buffer, size, written, overlapped);
  Tell(&Watch::OnWritten, file, static_cast<const uint8_t*>(buffer), size_t{size}, result != FALSE);
  return result;
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read, LPOVERLAPPED overlapped) {
  PERILINK_SYSTEM(ReadFile);
  const BOOL result = system(file, buffer, size, read, overlapped);
  if (result != FALSE || GetLastError() == ERROR_IO_PENDING)
    Tell(&Watch::OnReadPosted, file, static_cast<uint8_t*>(buffer));
  return result;
}

BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD bytes, BOOL wait) {
  PERILINK_SYSTEM(GetOverlappedResult);
  const BOOL result = system(file, overlapped, bytes, wait);
  Tell(&Watch::OnReadTaken, file, result != FALSE);
  return result;
}

void perilink::testing::SleepUnheard(DWORD milliseconds) {
  PERILINK_SYSTEM(Sleep);
  system(milliseconds);
}

void Sleep(DWORD milliseconds) {
  Tell(&Watch::OnPause, std::optional(milliseconds));
  SleepUnheard(milliseconds);
  Tell(&Watch::OnResume);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
  PERILINK_SYSTEM(pthread_mutex_lock);
  if (TheEar() != nullptr && !FailingNew::Paused() && IsServerLock(mutex)) Tell(&Watch::OnLock);
  return system(mutex);
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  PERILINK_SYSTEM(WaitForSingleObject);
  return TellWait([&] { return system(handle, milliseconds); });
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
  PERILINK_SYSTEM(WaitForMultipleObjects);
  return TellWait([&] { return system(count, handles, all, milliseconds); });
}

HANDLE CreateWaitableTimerExW(LPSECURITY_ATTRIBUTES attributes, LPCWSTR name, DWORD flags,
                              DWORD access) {
  PERILINK_SYSTEM(CreateWaitableTimerExW);
  const HANDLE timer = system(attributes, name, flags, access);
  Tell(&Watch::OnLoopBegins, timer);
  return timer;
}

LSTATUS RegOpenKeyExW(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY) {
  return ERROR_ACCESS_DENIED;
}
LSTATUS RegCreateKeyW(HKEY, LPCWSTR, PHKEY) {
  return ERROR_ACCESS_DENIED;
}
