// Runs the tests with real threads and the system's clock, on simulated devices alone.
#include <gtest/gtest.h>

#include "perilink_platform/world.h"

int main(int argc, char** argv) {
  perilink::platform::HideMachineDevices();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
