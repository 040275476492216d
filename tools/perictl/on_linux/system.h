// The system's records that a host of the library may look into, and its terminal.
#ifndef PERILINK_TOOLS_PERICTL_SYSTEM_H_
#define PERILINK_TOOLS_PERICTL_SYSTEM_H_

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "perilink_platform/win32.h"

namespace perictl {

// Whether rules of the system's device manager say who may open a device.
inline constexpr bool kHasUdev = true;

// What to do about a device that is there and may not be opened by this user; empty if that isn't
// so.
std::string MissingPermission(const std::string& path);

inline bool IsTerminal(std::FILE* file) {
  return isatty(fileno(file)) != 0;
}

// Columns of the terminal; 0 when it does not tell.
inline unsigned TerminalColumns(std::FILE* file) {
  winsize size{};
  return ioctl(fileno(file), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0u;
}

// Whether the terminal understands escape sequences.
inline bool TakesEscapes(std::FILE*) {
  return true;
}

// A terminal takes UTF-8 as it is.
struct Consoles {
  Consoles() {}
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SYSTEM_H_
