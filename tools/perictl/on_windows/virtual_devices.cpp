// There is no virtual bus on Windows: devices are real.
#include "selection/virtual_devices.h"

namespace perictl {

std::vector<std::string> VirtualModels() {
  return {};
}
std::string VirtualFaultHelp() {
  return "";
}
std::string CheckVirtualFaults(const std::string&) {
  return "";
}
void StartVirtualTime() {}
void PlugVirtualDevices(const VirtualChoice&) {}
std::vector<uint8_t> VirtualUpgradeFile() {
  return {};
}
void SetVirtualMemory(std::span<const uint8_t>) {}
std::vector<uint8_t> VirtualMemory() {
  return {};
}
bool HappenToVirtualDevice(const std::string&) {
  return false;
}

}  // namespace perictl
