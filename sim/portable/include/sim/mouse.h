// A virtual wireless mouse with its receiver: vid_1234&pid_abcd, commands on mi_01&col05.
#ifndef PERILINK_SIM_MOUSE_H_
#define PERILINK_SIM_MOUSE_H_

#include <utility>

#include "sim/portable_device.h"

namespace perilink::sim {

class Mouse : public PortableDevice {
 public:
  explicit Mouse(DeviceOptions options = Options()) : PortableDevice(std::move(options)) {}
  // The default options, to change and pass on.
  static DeviceOptions Options() { return MouseOptions(); }
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_MOUSE_H_
