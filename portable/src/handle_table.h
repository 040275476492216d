// The one table behind all handles but windows': files, events, threads, registry keys, device
// information sets.
#ifndef PERILINK_PLATFORM_SRC_HANDLE_TABLE_H_
#define PERILINK_PLATFORM_SRC_HANDLE_TABLE_H_

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "perilink_platform/types.h"

namespace perilink::platform {

// What a handle stands for. Calls hold a reference while they work, so that closing a handle on
// another thread takes nothing away from under them.
class Object {
 public:
  virtual ~Object() = default;
  // The handle has been closed.
  virtual void OnHandleClosed() {}
};

class HandleTable {
 public:
  static HandleTable& Get();

  // A handle that has never been given out before.
  HANDLE Add(std::shared_ptr<Object> object);

  // The object, null if the handle is closed or stands for another kind.
  template <typename T>
  std::shared_ptr<T> Find(HANDLE handle) {
    return std::dynamic_pointer_cast<T>(FindAny(handle));
  }

  // Closes the handle if it stands for this kind.
  template <typename T>
  bool Close(HANDLE handle) {
    return Find<T>(handle) != nullptr && CloseAny(handle);
  }

  uint64_t Size();

 private:
  std::shared_ptr<Object> FindAny(HANDLE handle);
  bool CloseAny(HANDLE handle);

  std::mutex mutex_;
  std::unordered_map<HANDLE, std::shared_ptr<Object>> objects_;
  uintptr_t last_ = 0x100;
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_HANDLE_TABLE_H_
