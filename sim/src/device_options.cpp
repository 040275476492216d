#include "sim/device_options.h"

namespace perilink::sim {

DeviceOptions MouseOptions() {
  return {};
}

DeviceOptions KeyboardOptions() {
  DeviceOptions options;
  options.product_id = 0xABCE;
  options.instance = "2b3c4d5e";
  options.firmware.keyboard = true;
  options.firmware.product_text = "Virtual keyboard";
  options.firmware.address = {0x4D, 0x5E, 0x6F};
  options.firmware.cid_mid_flag = true;
  options.flash = FlashImage::KeyboardDefault();
  options.boot.product_id = 0xB008;
  // With the keyboard's bit, as in its reply, which is to be the exact echo.
  const uint8_t one = 1;
  const Frame reset = MakeFrame(command::kUpdateMode, kKeyboardBit | 1, {&one, 1});
  options.boot.reset_command.assign(reset.begin(), reset.end());
  return options;
}

}  // namespace perilink::sim
