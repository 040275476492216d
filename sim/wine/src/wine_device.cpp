#include "sim/wine_device.h"

#include <memory>
#include <string>
#include <utility>

#include "driver.h"
#include "sim/real_time_world.h"
#include "wine_port.h"

namespace perilink::sim {
namespace {

// Access to nothing: the system's own readers of pointers and keyboards may have it open already.
bool CanOpen(const std::string& path) {
  const HANDLE file = CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  CloseHandle(file);
  return true;
}

}  // namespace

World& WineWorld() {
  static World* const world = new RealTimeWorld;
  return *world;
}

WineDevice::WineDevice(DeviceOptions options)
    : Device(std::move(options), WineWorld(), std::make_unique<WinePort>(OpenDriver())) {}

bool WineDevice::AwaitArrival(uint32_t time_ms) const {
  const ULONGLONG end = GetTickCount64() + time_ms;
  const UsbShape& present = shape(mode());
  for (size_t i = 0; i < present.interfaces.size(); ++i) {
    for (size_t k = 0; k < present.interfaces[i].collections.size(); ++k) {
      const std::string path = "\\\\?\\hid#" + present.Key({i, k}) + "#" + present.serial +
                               "#{4d1e55b2-f16f-11cf-88cb-001111000030}";
      while (!CanOpen(path)) {
        if (GetTickCount64() > end) return false;
        Sleep(2);
      }
    }
  }
  return true;
}

}  // namespace perilink::sim
