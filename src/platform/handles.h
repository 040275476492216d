// Owners of system handles. One template, one policy per kind of resource, so that the two invalid
// values are never mixed up: a file is INVALID_HANDLE_VALUE when opening fails, an event is null.
#ifndef PERILINK_SRC_PLATFORM_HANDLES_H_
#define PERILINK_SRC_PLATFORM_HANDLES_H_

#include <utility>

#include "platform/win32.h"

namespace perilink {

// The test used wherever the library decides whether to cancel or close a handle.
inline bool IsValidHandle(HANDLE handle) {
  return handle != nullptr && handle != INVALID_HANDLE_VALUE;
}

// Owns one resource of a policy: `Type`, `Invalid()`, `IsValid(value)` and `Close(value)`.
template <typename Policy>
class Unique {
 public:
  using Type = typename Policy::Type;

  Unique() = default;
  explicit Unique(Type value) : value_(value) {}
  Unique(Unique&& other) noexcept : value_(other.Release()) {}
  Unique& operator=(Unique&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  Unique(const Unique&) = delete;
  Unique& operator=(const Unique&) = delete;
  ~Unique() { Reset(); }

  Type Get() const { return value_; }
  bool Valid() const { return Policy::IsValid(value_); }
  Type Release() { return std::exchange(value_, Policy::Invalid()); }
  // Closes what is held, keeping the thread's last error, and holds `value` from now on.
  void Reset(Type value = Policy::Invalid()) {
    const Type old = std::exchange(value_, value);
    if (!Policy::IsValid(old)) return;
    const DWORD error = GetLastError();
    Policy::Close(old);
    SetLastError(error);
  }

 private:
  Type value_ = Policy::Invalid();
};

struct FilePolicy {
  using Type = HANDLE;
  static HANDLE Invalid() { return INVALID_HANDLE_VALUE; }
  static bool IsValid(HANDLE handle) { return IsValidHandle(handle); }
  static void Close(HANDLE handle) { CloseHandle(handle); }
};
using UniqueFile = Unique<FilePolicy>;

struct EventPolicy {
  using Type = HANDLE;
  static HANDLE Invalid() { return nullptr; }
  static bool IsValid(HANDLE handle) { return IsValidHandle(handle); }
  static void Close(HANDLE handle) { CloseHandle(handle); }
};
using UniqueEvent = Unique<EventPolicy>;
using UniqueTimer = Unique<EventPolicy>;  // a timer that can't be made is null, too

struct DeviceInfoSetPolicy {
  using Type = HDEVINFO;
  static HDEVINFO Invalid() { return INVALID_HANDLE_VALUE; }
  static bool IsValid(HDEVINFO set) { return IsValidHandle(set); }
  static void Close(HDEVINFO set) { SetupDiDestroyDeviceInfoList(set); }
};
using UniqueDeviceInfoSet = Unique<DeviceInfoSetPolicy>;

struct RegistryKeyPolicy {
  using Type = HKEY;
  static HKEY Invalid() { return nullptr; }
  static bool IsValid(HKEY key) { return key != nullptr; }
  static void Close(HKEY key) { RegCloseKey(key); }
};
using UniqueRegistryKey = Unique<RegistryKeyPolicy>;

// An unnamed, manual-reset event, initially not signalled; invalid when it can't be created.
inline UniqueEvent CreateManualResetEvent() {
  return UniqueEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

}  // namespace perilink

#endif  // PERILINK_SRC_PLATFORM_HANDLES_H_
