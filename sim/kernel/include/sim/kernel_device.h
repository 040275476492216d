// A virtual device that the kernel sees, as a USB device (usb_device.h). Every program of the
// machine finds it, the library in the same process as well. kernel_mouse plugs one in for a
// command.
#ifndef PERILINK_SIM_KERNEL_DEVICE_H_
#define PERILINK_SIM_KERNEL_DEVICE_H_

#include "sim/device.h"
#include "sim/real_time_world.h"

namespace perilink::sim {

struct OwnWorld {
  RealTimeWorld world;
};

// Its functions return before the kernel has seen to what they do. Where CanPlugIntoKernel does not
// hold, Plug ends the process.
class KernelDevice : private OwnWorld, public Device {
 public:
  // `port` of the virtual host controller, 0 to 7: one device at a time has it.
  explicit KernelDevice(DeviceOptions options = MouseOptions(), int port = 0);
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_KERNEL_DEVICE_H_
