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
#include <iostream>
#include <string>

#include "console.h"

namespace perictl {

// No rules of the system's device manager say who may open a device.
inline constexpr bool kHasUdev = false;

// Always empty: whoever is logged in may open a device.
std::string MissingPermission(const std::string& path);

inline bool IsTerminal(std::FILE* file) {
  return _isatty(_fileno(file)) != 0;
}

inline HANDLE ConsoleOf(std::FILE* file) {
  return GetStdHandle(file == stderr ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
}

// Columns of the terminal; 0 when it does not tell.
inline unsigned TerminalColumns(std::FILE* file) {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(ConsoleOf(file), &info)) return 0;
  return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
}

// Whether the terminal understands escape sequences, which older ones don't and newer ones do when
// asked.
inline bool TakesEscapes(std::FILE* file) {
  constexpr DWORD kProcessing = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  DWORD mode = 0;
  return GetConsoleMode(ConsoleOf(file), &mode) &&
         SetConsoleMode(ConsoleOf(file), mode | kProcessing);
}

struct Consoles {
  ConsoleStream output{std::cout, STD_OUTPUT_HANDLE};
  ConsoleStream errors{std::cerr, STD_ERROR_HANDLE};
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SYSTEM_H_
