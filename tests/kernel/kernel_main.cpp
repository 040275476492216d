// Runs the tests that plug USB devices into the kernel. Outside of a machine that is made for that
// (scripts/vm.sh) they are skipped, which CTest shows.
#include <gtest/gtest.h>

#include <cstdio>

#include "sim/usb_device.h"

int main(int argc, char** argv) {
  constexpr int kSkipped = 77;
  testing::InitGoogleTest(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests) && !perilink::sim::CanPlugIntoKernel()) {
    std::puts("no virtual USB host controller that may be used: run scripts/vm.sh");
    return kSkipped;
  }
  return RUN_ALL_TESTS();
}
