// A virtual wireless keyboard with its receiver: vid_1234&pid_abce, commands on mi_01&col05. Its
// replies carry the keyboard's bit, and its memory holds three key layers of 512 bytes from 0x000.
#ifndef PERILINK_SIM_KEYBOARD_H_
#define PERILINK_SIM_KEYBOARD_H_

#include <utility>

#include "sim/portable_device.h"

namespace perilink::sim {

class Keyboard : public PortableDevice {
 public:
  explicit Keyboard(DeviceOptions options = Options()) : PortableDevice(std::move(options)) {}
  // The default options, to change and pass on.
  static DeviceOptions Options() { return KeyboardOptions(); }
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_KEYBOARD_H_
