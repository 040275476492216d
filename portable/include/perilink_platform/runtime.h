// Time as the C runtime tells it on Windows, in the world of world.h.
#ifndef PERILINK_PLATFORM_RUNTIME_H_
#define PERILINK_PLATFORM_RUNTIME_H_

#include <cstdint>

namespace perilink::platform {

// Milliseconds since the process's world began. In virtual time both reads take a few microseconds
// and never let another thread run.
int64_t RuntimeClockMs();

// Seconds of calendar time since 1970.
int64_t CalendarTime();

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_RUNTIME_H_
