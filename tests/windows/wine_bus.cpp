// Wine's HID stack, for the scenarios.
#include "platform/win32.h"
#include "scenarios/bus.h"
#include "sim/wine_device.h"

namespace perilink::testing {

std::unique_ptr<sim::Device> NewDevice(sim::DeviceOptions options) {
  return std::make_unique<sim::WineDevice>(std::move(options));
}

std::vector<uint64_t> Held() {
  DWORD handles = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  return {handles};
}

const bool kArrivesComplete = false;

}  // namespace perilink::testing
