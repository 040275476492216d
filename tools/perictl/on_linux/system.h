// The system's records that a host of the library may look into, and its terminal.
#ifndef PERILINK_TOOLS_PERICTL_SYSTEM_H_
#define PERILINK_TOOLS_PERICTL_SYSTEM_H_

#include <unistd.h>

#include <cstdio>

#include "perilink_platform/win32.h"

namespace perictl {

inline bool IsTerminal(std::FILE* file) {
  return isatty(fileno(file)) != 0;
}

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SYSTEM_H_
