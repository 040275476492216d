// There is no virtual bus on Windows: devices are real.
#include "virtual_devices.h"

namespace perictl {

std::vector<std::string> VirtualModels() {
  return {};
}
std::string DefaultVirtualModel() {
  return "";
}
std::string VirtualFaultHelp() {
  return "";
}
std::string CheckVirtualFaults(const std::string&) {
  return "";
}
void StartVirtualTime() {}
void PlugVirtualDevice(const VirtualChoice&) {}
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
