// A virtual wireless keyboard with its receiver: vid_1234&pid_abce, commands on mi_01&col05. Its
// replies carry the keyboard's bit, and its memory holds three key layers of 512 bytes from 0x000.
#ifndef PERILINK_SIM_KEYBOARD_H_
#define PERILINK_SIM_KEYBOARD_H_

#include "sim/device.h"

namespace perilink::sim {

class Keyboard : public Device {
 public:
  explicit Keyboard(DeviceOptions options = Options());
  // The default options, to change and pass on.
  static DeviceOptions Options();
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_KEYBOARD_H_
