// The HID interfaces that are present, and what their paths tell:
//
//   \\?\hid#vid_1234&pid_abcd&mi_01&col05#7&1a2b3c4d&0&0004#{4d1e55b2-f16f-11cf-88cb-001111000030}
#ifndef PERILINK_TOOLS_PERICTL_SELECTION_INTERFACES_H_
#define PERILINK_TOOLS_PERICTL_SELECTION_INTERFACES_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "words/model.h"

namespace perictl {

// A list that the narrow family returned: copied, and released in the library's way.
std::vector<std::string> TakeList(char** list, uint32_t count);

// In the system's order.
std::vector<std::string> AllInterfaces();

// What stands behind the first "#": "vid_1234&pid_abcd&mi_01&col05".
std::string KeyOf(const std::string& path);
// What tells devices of a kind apart, without the collection: "7&1a2b3c4d&0".
std::string InstanceOf(const std::string& path);
std::optional<perilink::tools::DeviceId> IdOf(const std::string& path);
bool TakesCommands(const std::string& path);
// Upper and lower case are the same in paths.
bool HoldsKey(const std::string& path, const std::string& key);

struct DeviceIds {
  uint16_t vendor = 0;
  uint16_t product = 0;
  uint16_t version = 0;
};
// What the interface itself tells. Nothing when it can't be opened.
std::optional<DeviceIds> ReadIds(const std::string& path);

// Why an interface can't be opened, as far as it can be told, in a line for the user: what to do
// about it included.
std::string WhyLocked(const std::string& path);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SELECTION_INTERFACES_H_
