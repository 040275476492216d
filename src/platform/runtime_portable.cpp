#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
  const std::string line = std::string(text) + "\r\n";
  // Not through a link, and without waiting for a reader of a pipe.
  const int file =
      open(file_name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
           S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
  if (file < 0) return false;
  struct stat about {};
  const bool plain = fstat(file, &about) == 0 && S_ISREG(about.st_mode);
  // One write, so that the lines of several writers do not mix.
  const bool written =
      plain && write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  return close(file) == 0 && written;
}

}  // namespace perilink
