// The bus that the scenarios run on. Every program of them brings one of its own: the portable
// platform's virtual bus, a Linux kernel's USB, Wine's HID stack. What a scenario says holds on
// each; where a bus differs, it is told here how.
#ifndef PERILINK_TESTS_SCENARIOS_BUS_H_
#define PERILINK_TESTS_SCENARIOS_BUS_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "sim/device.h"

namespace perilink::testing {

// A device on the bus, unplugged.
std::unique_ptr<sim::Device> NewDevice(sim::DeviceOptions options = sim::MouseOptions());

// How much this process holds of what the library must give back: handles, threads and the like.
std::vector<uint64_t> Held();

// At the notice of an arrival everything of the device can be opened. Windows announces a USB
// device before the HID devices that its interfaces become.
extern const bool kArrivesComplete;

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SCENARIOS_BUS_H_
