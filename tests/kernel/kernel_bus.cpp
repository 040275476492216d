// USB devices of the kernel, for the scenarios: over hidraw from end to end. And the program that
// runs them. Outside of a machine that is made for that (scripts/vm.sh) they are skipped, which
// CTest shows.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "perilink_platform/world.h"
#include "scenarios/bus.h"
#include "sim/kernel_device.h"
#include "sim/usb_device.h"

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

int main(int argc, char** argv) {
  constexpr int kSkipped = 77;
  testing::InitGoogleTest(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests) && !perilink::sim::CanPlugIntoKernel()) {
    std::puts("no virtual USB host controller that may be used: run scripts/vm.sh");
    return kSkipped;
  }
  return RUN_ALL_TESTS();
}
