// USB devices of the kernel, for the scenarios: over hidraw from end to end.
#include <filesystem>

#include "perilink_platform/world.h"
#include "scenarios/bus.h"
#include "sim/kernel_device.h"

namespace perilink::testing {
namespace {

uint64_t EntriesOf(const char* folder) {
  return static_cast<uint64_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

std::unique_ptr<sim::Device> NewDevice(sim::DeviceOptions options) {
  static int devices = 0;
  return std::make_unique<sim::KernelDevice>(std::move(options), devices++);
}

std::vector<uint64_t> Held() {
  return {platform::OpenHandleCount(), EntriesOf("/proc/self/fd"), EntriesOf("/proc/self/task")};
}

const bool kArrivesComplete = true;

}  // namespace perilink::testing
