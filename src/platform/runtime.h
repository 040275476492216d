// What the C runtime offers on Windows and means otherwise elsewhere.
#ifndef PERILINK_SRC_PLATFORM_RUNTIME_H_
#define PERILINK_SRC_PLATFORM_RUNTIME_H_

#include <cstdint>
#include <string_view>

namespace perilink {

// The runtime's clock in milliseconds since some moment of the process. On Windows clock() tells
// elapsed time in milliseconds; on POSIX systems it would tell processor time.
int64_t RuntimeClockMs();

// Seconds of calendar time since 1970.
int64_t CalendarTime();

// The runtime's pseudo-random generator: one sequence per process, as srand and rand share it.
void SeedRandom(uint32_t seed);
int NextRandom();

// Appends `text`, one line without its line end, and CR LF to the file, shared with other readers
// and writers, and closes it again. False when it can't be opened or written.
bool AppendLineShared(const char* file_name, std::string_view text);

}  // namespace perilink

#endif  // PERILINK_SRC_PLATFORM_RUNTIME_H_
