// The portable platform's bus, in either world.
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "scenarios/bus.h"
#include "sim/portable_device.h"

namespace perilink::testing {

std::unique_ptr<sim::Device> NewDevice(sim::DeviceOptions options) {
  return std::make_unique<sim::PortableDevice>(std::move(options));
}

std::vector<uint64_t> Held() {
  return {platform::OpenHandleCount(), platform::Bus().OpenConnections()};
}

const bool kArrivesComplete = true;

}  // namespace perilink::testing
