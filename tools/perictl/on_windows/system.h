// The system's records that a host of the library may look into, and its terminal.
#ifndef PERILINK_TOOLS_PERICTL_SYSTEM_H_
#define PERILINK_TOOLS_PERICTL_SYSTEM_H_

// Order matters: windows.h first.
// clang-format off
#include <windows.h>
#include <oleauto.h>
extern "C" {
#include <hidsdi.h>
}
// clang-format on
#include <io.h>

#include <cstdio>

namespace perictl {

inline bool IsTerminal(std::FILE* file) {
  return _isatty(_fileno(file)) != 0;
}

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SYSTEM_H_
