// Runs the tests in the virtual world. CTest gives each test a process, hence a world, of its own.
//
// PERILINK_SEED chooses the order among threads that are ready at once (default 1); a failure names
// the seed that repeats it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "perilink_platform/world.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const char* text = std::getenv("PERILINK_SEED");
  const uint64_t seed = text != nullptr ? std::strtoull(text, nullptr, 10) : 1;
  const testing::ScopedTrace repeat(__FILE__, __LINE__,
                                    "Repeat with PERILINK_SEED=" + std::to_string(seed));
  perilink::platform::StartVirtual(seed);
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("perilink-test-" + std::to_string(getpid()));
  perilink::platform::SetRegistryFolder(folder.string());
  const int result = RUN_ALL_TESTS();
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  return result;
}
