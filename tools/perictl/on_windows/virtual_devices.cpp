// There is no virtual bus on Windows: devices are real.
#include "virtual_devices.h"

namespace perictl {

std::vector<std::string> VirtualModels() {
  return {};
}
std::vector<std::string> VirtualFaults() {
  return {};
}
std::string DefaultVirtualModel() {
  return "";
}
void PlugVirtualDevice(const VirtualChoice&) {}

}  // namespace perictl
