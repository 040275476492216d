// Services of the C runtime that differ between Windows and other systems.
#ifndef PERILINK_SRC_PLATFORM_RUNTIME_H_
#define PERILINK_SRC_PLATFORM_RUNTIME_H_

#include <cstdint>
#include <string_view>

namespace perilink {

// Microseconds of a clock that nobody sets and that never wraps, for waits that must be exact.
// GetTickCount64 moves in steps of up to 16 ms.
int64_t MonotonicMicros();

// Seconds of calendar time since 1970.
int64_t CalendarTime();

// The runtime's pseudo-random generator: one sequence per process, as srand and rand share it.
void SeedRandom(uint32_t seed);
int NextRandom();

// Appends `text`, one line without its line end, and CR LF to the file, shared with other readers
// and writers, and closes it again. False when it can't be opened or written, or is no plain file:
// nothing is written through a link or into a pipe.
bool AppendLineShared(const char* file_name, std::string_view text);

}  // namespace perilink

#endif  // PERILINK_SRC_PLATFORM_RUNTIME_H_
