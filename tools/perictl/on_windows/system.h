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
#include <string>

namespace perictl {

// No rules of the system's device manager say who may open a device.
inline constexpr bool kHasUdev = false;

// Always empty: whoever is logged in may open a device.
std::string MissingPermission(const std::string& path);

inline bool IsTerminal(std::FILE* file) {
  return _isatty(_fileno(file)) != 0;
}

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SYSTEM_H_
