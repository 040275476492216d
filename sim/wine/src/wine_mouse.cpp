// Plugs a virtual mouse into Wine's HID stack, runs a command, and takes the mouse away again:
//   wine_mouse.exe COMMAND...
// The exit status is the command's; 2 without one, 125 where the mouse can't be plugged in, 127
// where the command doesn't start.
#include <windows.h>

#include <cstdio>
#include <exception>
#include <string>

#include "sim/wine_device.h"

namespace {

// The command line behind this program's own name, as its user wrote it.
std::wstring Command() {
  const std::wstring line = GetCommandLineW();
  const bool quoted = line.starts_with(L'"');
  const size_t end = quoted ? line.find(L'"', 1) + 1 : line.find(L' ');
  const size_t begin = end < line.size() ? line.find_first_not_of(L' ', end) : line.npos;
  return begin == line.npos ? L"" : line.substr(begin);
}

int Run(std::wstring command) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                      &startup, &process)) {
    std::fprintf(stderr, "wine_mouse: the command doesn't start (error %lu)\n", GetLastError());
    return 127;
  }
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD status = 0;
  GetExitCodeProcess(process.hProcess, &status);
  return static_cast<int>(status);
}

}  // namespace

int main() {
  const std::wstring command = Command();
  if (command.empty()) {
    std::fputs("usage: wine_mouse COMMAND...\n", stderr);
    return 2;
  }
  try {
    perilink::sim::WineDevice mouse;
    mouse.Plug();
    if (!mouse.AwaitArrival()) {
      std::fputs("wine_mouse: the mouse was plugged in and doesn't appear\n", stderr);
      return 125;
    }
    return Run(command);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "wine_mouse: %s\n", failure.what());
    return 125;
  }
}
