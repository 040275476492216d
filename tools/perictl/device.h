// Finding the device that is meant, and finding out why it can't be used.
#ifndef PERILINK_TOOLS_PERICTL_DEVICE_H_
#define PERILINK_TOOLS_PERICTL_DEVICE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "context.h"
#include "perilink/finder.h"

namespace perictl {

// A list that the narrow family returned: copied, and released in the library's way.
std::vector<std::string> TakeList(char** list, uint32_t count);

std::vector<std::string> AllInterfaces();

struct DeviceIds {
  uint16_t vendor = 0;
  uint16_t product = 0;
  uint16_t version = 0;
};
// Nothing when the interface can't be opened.
std::optional<DeviceIds> ReadIds(const std::string& path);

// The interfaces that the selection names, in the system's order.
std::vector<std::string> MatchingInterfaces(const Selection& selection);

// The first of them. Throws Failure(kNoDevice) when there is none.
std::string SelectDevice(const Context& context);

// Asks whether the device is on line, and returns the whole reply: data bytes 1 to 3 are its
// address. Throws Failure when it is asleep, silent or answers nonsense.
CommandFrame RequireOnline(const std::string& path);

// Throws the Failure that fits a device that has not answered a command as it should.
[[noreturn]] void FailUnanswered(const std::string& path, const std::string& what);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_DEVICE_H_
