// The simulated devices, on the bus that the library sees in this build.
#include "virtual_devices.h"

#include <map>
#include <memory>

#include "sim/keyboard.h"
#include "sim/mouse.h"

namespace perictl {
namespace {

namespace sim = perilink::sim;

using Fault = void (*)(sim::Device& device);

const std::map<std::string, Fault>& Faults() {
  static const std::map<std::string, Fault> faults = {
      {"absent", [](sim::Device& device) { device.Unplug(); }},
      {"asleep", [](sim::Device& device) { device.SetAsleep(true); }},
      {"silent", [](sim::Device& device) { device.faults().Silence(); }},
      {"nonsense", [](sim::Device& device) { device.faults().CorruptChecksum(sim::Always()); }},
      // Answers two requests and is gone.
      {"vanishing", [](sim::Device& device) { device.faults().UnplugAfter(sim::At(3)); }},
  };
  return faults;
}

}  // namespace

std::vector<std::string> VirtualModels() {
  return {"mouse", "keyboard"};
}

std::vector<std::string> VirtualFaults() {
  std::vector<std::string> names;
  for (const auto& [name, fault] : Faults())
    names.push_back(name);
  return names;
}

std::string DefaultVirtualModel() {
  return "mouse";
}

void PlugVirtualDevice(const VirtualChoice& choice) {
  static std::unique_ptr<sim::Device> device;
  if (choice.model == "keyboard") {
    device = std::make_unique<sim::Keyboard>();
  } else {
    device = std::make_unique<sim::Mouse>();
  }
  device->Plug();
  if (!choice.fault.empty()) Faults().at(choice.fault)(*device);
}

}  // namespace perictl
