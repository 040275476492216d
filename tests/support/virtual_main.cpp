// Runs the tests in the virtual world. CTest gives each test a process, hence a world, of its own.
//
// PERILINK_SEED chooses the order among threads that are ready at once (default 1); a failure names
// the seed that repeats it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "perilink_platform/world.h"

namespace {

class SeedPrinter : public testing::EmptyTestEventListener {
 public:
  explicit SeedPrinter(uint64_t seed) : seed_(seed) {}
  void OnTestEnd(const testing::TestInfo& test) override {
    if (test.result()->Failed()) {
      std::printf("Repeat with PERILINK_SEED=%llu\n", static_cast<unsigned long long>(seed_));
    }
  }

 private:
  const uint64_t seed_;
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const char* text = std::getenv("PERILINK_SEED");
  const uint64_t seed = text != nullptr ? std::strtoull(text, nullptr, 10) : 1;
  testing::UnitTest::GetInstance()->listeners().Append(new SeedPrinter(seed));
  perilink::platform::StartVirtual(seed);
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("perilink-test-" + std::to_string(getpid()));
  perilink::platform::SetRegistryFolder(folder.string());
  const int result = RUN_ALL_TESTS();
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  return result;
}
