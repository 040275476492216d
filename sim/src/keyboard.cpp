#include "sim/keyboard.h"

#include <utility>

namespace perilink::sim {

Keyboard::Keyboard(DeviceOptions options) : Device(std::move(options)) {}

DeviceOptions Keyboard::Options() {
  DeviceOptions options;
  options.product_id = 0xABCE;
  options.instance = "2b3c4d5e";
  options.firmware.keyboard = true;
  options.firmware.product_text = "Virtual keyboard";
  options.firmware.address = {0x4D, 0x5E, 0x6F};
  options.firmware.cid_mid_flag = true;
  options.flash = FlashImage::KeyboardDefault();
  options.boot.product_id = 0xB008;
  return options;
}

}  // namespace perilink::sim
