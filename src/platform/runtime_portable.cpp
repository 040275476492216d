#include <cstdio>
#include <cstdlib>
#include <string>

#include "perilink_platform/runtime.h"
#include "platform/runtime.h"

namespace perilink {

int64_t MonotonicMicros() {
  return platform::MonotonicMicros();
}
int64_t CalendarTime() {
  return platform::CalendarTime();
}

void SeedRandom(uint32_t seed) {
  srand(seed);
}
int NextRandom() {
  return rand();
}

bool AppendLineShared(const char* file_name, std::string_view text) {
  std::FILE* file = std::fopen(file_name, "ab");
  if (file == nullptr) return false;
  // One write, so that the lines of several writers do not mix.
  const std::string line = std::string(text) + "\r\n";
  const bool written = std::fwrite(line.data(), 1, line.size(), file) == line.size();
  return (std::fclose(file) == 0) && written;
}

}  // namespace perilink
