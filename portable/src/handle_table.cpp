#include "handle_table.h"

#include "perilink_platform/world.h"

namespace perilink::platform {

HandleTable& HandleTable::Get() {
  static HandleTable* const table = new HandleTable;
  return *table;
}

HANDLE HandleTable::Add(std::shared_ptr<Object> object) {
  const std::lock_guard lock(mutex_);
  last_ += 4;
  const HANDLE handle = reinterpret_cast<HANDLE>(last_);  // NOLINT(performance-no-int-to-ptr)
  objects_.emplace(handle, std::move(object));
  return handle;
}

std::shared_ptr<Object> HandleTable::FindAny(HANDLE handle) {
  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(handle);
  return found == objects_.end() ? nullptr : found->second;
}

bool HandleTable::CloseAny(HANDLE handle) {
  std::shared_ptr<Object> object;
  {
    const std::lock_guard lock(mutex_);
    const auto found = objects_.find(handle);
    if (found == objects_.end()) return false;
    object = std::move(found->second);
    objects_.erase(found);
  }
  object->OnHandleClosed();
  return true;
}

uint64_t HandleTable::Size() {
  const std::lock_guard lock(mutex_);
  return objects_.size();
}

uint64_t OpenHandleCount() {
  return HandleTable::Get().Size();
}

}  // namespace perilink::platform
