// Holds the device lock, under which all device code runs.
#ifndef PERILINK_SIM_DEVICE_GUARD_H_
#define PERILINK_SIM_DEVICE_GUARD_H_

#include <mutex>

#include "perilink_platform/world.h"

namespace perilink::sim {

// A test or demo that looks at several values of a device at once, in real mode, holds one as well.
class [[nodiscard]] DeviceGuard {
 public:
  DeviceGuard() : lock_(platform::DeviceLock()) {}

 private:
  std::lock_guard<std::recursive_mutex> lock_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_DEVICE_GUARD_H_
