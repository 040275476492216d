// A virtual device in Wine's HID stack: every Windows program under the same Wine finds it, through
// the system's own calls. For tests of Windows programs on Linux; not for Windows itself, which
// starts no driver that nobody has signed.
//
// The driver that carries the devices, perilink_bus.sys, is installed and started by the first
// device; it stands beside the program. A process that ends, in whatever way, takes its devices
// with it.
#ifndef PERILINK_SIM_WINE_DEVICE_H_
#define PERILINK_SIM_WINE_DEVICE_H_

#include "sim/device.h"

namespace perilink::sim {

// Of all devices in Wine: real time. Lives until the process has ended.
World& WineWorld();

class WineDevice : public Device {
 public:
  // Throws std::system_error where the driver doesn't start.
  explicit WineDevice(DeviceOptions options = MouseOptions());

  // Its collections appear one after another, some milliseconds after it was plugged in. Whether
  // all of them can be opened within the time.
  bool AwaitArrival(uint32_t time_ms = 20'000) const;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_WINE_DEVICE_H_
