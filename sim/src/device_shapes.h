// The shapes in which a virtual device appears: with its firmware running, and in its boot loader.
#ifndef PERILINK_SIM_SRC_DEVICE_SHAPES_H_
#define PERILINK_SIM_SRC_DEVICE_SHAPES_H_

#include "sim/device_options.h"
#include "sim/usb_shape.h"

namespace perilink::sim {

UsbShape NormalShape(const DeviceOptions& options);
UsbShape BootShape(const DeviceOptions& options, const BootOptions& boot);

}  // namespace perilink::sim

#endif  // PERILINK_SIM_SRC_DEVICE_SHAPES_H_
