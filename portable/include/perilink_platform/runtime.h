// Time for the library, in the world of world.h.
#ifndef PERILINK_PLATFORM_RUNTIME_H_
#define PERILINK_PLATFORM_RUNTIME_H_

#include <cstdint>

namespace perilink::platform {

// Microseconds of the monotonic clock. In virtual time both reads take a few microseconds and never
// let another thread run.
int64_t MonotonicMicros();

// Seconds of calendar time since 1970.
int64_t CalendarTime();

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_RUNTIME_H_
