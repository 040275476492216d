// Runs the tests in the virtual world. CTest gives each test a process, hence a world, of its own.
#include <gtest/gtest.h>

#include <cstdlib>

#include "perilink_platform/world.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const char* seed = std::getenv("PERILINK_SEED");
  perilink::platform::StartVirtual(seed != nullptr ? std::strtoull(seed, nullptr, 10) : 1);
  return RUN_ALL_TESTS();
}
