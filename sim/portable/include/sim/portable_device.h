// A virtual device on the portable platform's bus, in the real and in the virtual world: the
// library in the same process finds it. sim::Mouse and sim::Keyboard are the two models of it.
#ifndef PERILINK_SIM_PORTABLE_DEVICE_H_
#define PERILINK_SIM_PORTABLE_DEVICE_H_

#include <string>
#include <vector>

#include "sim/device.h"

namespace perilink::sim {

// The platform's clock, its device events and its device lock. Lives until the process has ended.
World& PlatformWorld();

class PortableDevice : public Device {
 public:
  explicit PortableDevice(DeviceOptions options);

  // Where the host finds it, plugged in or not.
  std::wstring CommandPath() const;
  std::string CommandPathNarrow() const;
  std::wstring BootInputPath() const;
  std::wstring BootOutputPath() const;
  std::vector<std::wstring> Paths() const;  // of the interfaces present now
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_PORTABLE_DEVICE_H_
