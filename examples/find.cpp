// The same host in C++, built with the library's own compiler.
#include <perilink/perilink.h>

#include <cstdio>

int main() {
  std::vector<std::wstring> paths;
  UsbFinder_FindHidDevicesByDefaultDeviceId(L"1234", L"abcd", paths);
  for (const std::wstring& path : paths) {
    BatteryLevel battery{};
    if (!UsbFinder_GetBatteryLevel(path, &battery)) continue;
    std::printf("%ls has version %04x and %d %% left\n", path.c_str(),
                static_cast<unsigned>(UsbFinder_GetVersion(path)), battery.level);
  }
  if (paths.empty()) std::puts("no such device");
  return paths.empty() ? 1 : 0;
}
