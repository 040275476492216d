// The seam between the library and the system, with an ear at it.
//
// The program's own definitions of some system calls stand before the platform library's: each
// tells the ear and passes the call on. So the simulation sees what the library does on which
// handle, and exactly which reports reach it. There is no registry.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_SEAM_H_
#define PERILINK_TESTS_SERVER_SIMULATION_SEAM_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/win32.h"

namespace perilink::testing {

// Called on the thread that makes the system call, and after it unless said otherwise.
class SeamEar {
 public:
  virtual ~SeamEar() = default;
  // INVALID_HANDLE_VALUE: the open has failed.
  virtual void OnOpened(const wchar_t* path, HANDLE handle, bool overlapped) = 0;
  virtual void OnClosing(HANDLE handle) = 0;  // before
  virtual void OnWritten(HANDLE handle, const uint8_t* report, size_t size, bool written) = 0;
  virtual void OnReadPosted(HANDLE handle, uint8_t* buffer) = 0;
  // The library has asked what became of a completed read, and was told a success or a failure.
  virtual void OnReadTaken(HANDLE handle, bool success) = 0;
  // A thread is about to wait, or to sleep for so long; it has waited.
  virtual void OnPause(std::optional<DWORD> sleep_ms) = 0;
  virtual void OnResume() = 0;
  // The library is about to take the server's lock. None is held by the thread.
  virtual void OnLock() = 0;
  // A run of the server loop begins. It ends when its timer is closed.
  virtual void OnLoopBegins(HANDLE timer) = 0;
};

// Null: nobody listens.
SeamEar*& TheEar();

// The system's, without a word to the ear.
void SleepUnheard(DWORD milliseconds);

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_SEAM_H_
