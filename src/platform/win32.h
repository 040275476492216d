// The seam: the only header through which the sources see their operating system. On Windows these
// are the system's own headers; elsewhere the portable platform's declarations of the same
// functions, types and constants, with the same signatures.
#ifndef PERILINK_SRC_PLATFORM_WIN32_H_
#define PERILINK_SRC_PLATFORM_WIN32_H_

#ifdef _WIN32
// Order matters: windows.h first.
// clang-format off
#include <windows.h>
#include <dbt.h>
#include <oleauto.h>
#include <setupapi.h>
// mingw-w64's hidsdi.h lacks its own extern "C".
extern "C" {
#include <hidsdi.h>
}
// clang-format on
// mingw-w64 has it only for newer targets. Systems before Windows 10, version 1803, refuse it.
#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif
#else
#include "perilink_platform/win32.h"
#endif

#endif  // PERILINK_SRC_PLATFORM_WIN32_H_
