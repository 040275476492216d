// What a virtual device is made of, and the two models there are.
#ifndef PERILINK_SIM_DEVICE_OPTIONS_H_
#define PERILINK_SIM_DEVICE_OPTIONS_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/battery.h"
#include "sim/boot_loader.h"
#include "sim/firmware.h"
#include "sim/flash_image.h"

namespace perilink::sim {

struct DeviceOptions {
  uint16_t vendor_id = 0x1234;
  uint16_t product_id = 0xABCD;
  uint16_t version_number = 0x0100;   // of the USB device; the firmware has its own
  std::string instance = "1a2b3c4d";  // its serial; devices of one kind need different ones
  // Where the commands go: an interface, counted from 0, behind others with the pointer or the
  // keys, and on it a collection, counted from 1, behind others that only send. Alone, either has
  // no number in the paths.
  size_t interface_number = 1;
  size_t collection = 5;
  bool asleep = false;
  FirmwareOptions firmware;
  BatteryOptions battery;
  FlashImage flash = FlashImage::Default();
  BootOptions boot;
};

// A wireless mouse with its receiver: vid_1234&pid_abcd, commands on mi_01&col05.
DeviceOptions MouseOptions();

// A wireless keyboard with its receiver: vid_1234&pid_abce, commands on mi_01&col05. Its replies
// carry the keyboard's bit, and its memory holds three key layers of 512 bytes from 0x000.
DeviceOptions KeyboardOptions();

}  // namespace perilink::sim

#endif  // PERILINK_SIM_DEVICE_OPTIONS_H_
