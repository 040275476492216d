// Devices that are simulated in this process, where the build has them.
#ifndef PERILINK_TOOLS_PERICTL_SELECTION_VIRTUAL_DEVICES_H_
#define PERILINK_TOOLS_PERICTL_SELECTION_VIRTUAL_DEVICES_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace perictl {

// Devices that are simulated in this process, instead of the real ones.
struct VirtualChoice {
  std::string models;  // "mouse", "mouse,keyboard", or empty for the real devices
  std::string fault;   // what happens to the first, as --virtual-fault takes it, or empty
  std::string memory;  // the file that holds the image of its configuration, or empty
  bool virtual_time = false;
};

// What --virtual can choose; empty in a build that reaches real devices only.
std::vector<std::string> VirtualModels();

// What --virtual-fault takes, for its help, and what is wrong with what it was given: one line, or
// empty.
std::string VirtualFaultHelp();
std::string CheckVirtualFaults(const std::string& faults);

// Makes time virtual: what waits takes no time. Before everything else, if at all.
void StartVirtualTime();

// Hides the machine's devices and plugs these in; they stay until the process ends. What is saved
// about them goes with it.
void PlugVirtualDevices(const VirtualChoice& choice);

// An upgrade file with a small firmware for the first, one version on from its own; empty when
// there is no such device.
std::vector<uint8_t> VirtualUpgradeFile();

// The image of its configuration, or of a keyboard's layers.
void SetVirtualMemory(std::span<const uint8_t> bytes);
std::vector<uint8_t> VirtualMemory();

// Makes these faults happen to it, times counted from now. False when there is no such device.
bool HappenToVirtualDevice(const std::string& faults);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SELECTION_VIRTUAL_DEVICES_H_
