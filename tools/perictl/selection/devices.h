// The devices that are plugged in, and which of them is meant.
//
// A device is found by the interface that takes its commands, as `perictl list` shows it, with a
// number and a short name. The options of Selection narrow the choice down; all that are given must
// hold. Where several devices are left, a command that reads takes the first and names the others,
// a command that writes refuses.
#ifndef PERILINK_TOOLS_PERICTL_SELECTION_DEVICES_H_
#define PERILINK_TOOLS_PERICTL_SELECTION_DEVICES_H_

#include <optional>
#include <string>
#include <vector>

#include "terminal/report.h"
#include "words/model.h"

namespace perictl {

struct Context;

struct Selection {
  std::string device;     // a number or short name from the list, or empty
  std::string vendor_id;  // four hexadecimal digits, or empty
  std::string product_id;
  std::string path;
  std::string key;        // a part of the path
  bool keyboard = false;  // speak to it as to a keyboard, whatever its description says
  bool mouse = false;     // as to a mouse

  bool Any() const {
    return !(device.empty() && vendor_id.empty() && product_id.empty() && path.empty() &&
             key.empty());
  }
};

struct DeviceEntry {
  std::string path;                             // of the interface that takes its commands
  std::optional<perilink::tools::DeviceId> id;  // as the path tells it
  const perilink::tools::Model* model = nullptr;
  size_t number = 0;  // in the list, from 1; 0: it stands in no list
  std::string name;   // short; unique in the list
  bool is_virtual = false;
  bool in_boot_mode = false;
  bool keyboard = false;                // its frames carry the keyboard's mark
  std::vector<std::string> interfaces;  // the paths that are its, as far as they can be told apart

  // "Virtual mouse", or "1234:abcd" without a description.
  std::string Product() const;
  std::string IdText() const;
  // "virtual-mouse (1234:abcd, virtual)"
  std::string Title() const;
};

// {"number", "name", "product", "id", "path", "virtual"}: the same wherever a device is named.
Json ToJson(const DeviceEntry& device);
void AddDevice(Report& report, const DeviceEntry& device);

// All that could be chosen.
std::vector<DeviceEntry> ListDevices(const Context& context);

// Those that the selection leaves, in the list's order, without those that wait in boot mode.
std::vector<DeviceEntry> SelectedDevices(const Context& context);
// The same with them: what the list shows.
std::vector<DeviceEntry> ListedDevices(const Context& context);
// The same, of which there is at least one: throws Failure(kNoDevice).
std::vector<DeviceEntry> RequireDevices(const Context& context);

// The first of them, after naming the others, and the only one, or Failure(kSeveral). The process
// speaks to it from now on.
DeviceEntry DeviceToRead(const Context& context);
DeviceEntry DeviceToWrite(const Context& context);

// Makes the process speak to this device as to what it is. It speaks to one at a time.
void Address(const DeviceEntry& device);

// The paths that the selection's conditions leave among all interfaces, whether they take commands
// or not; all when there are none.
std::vector<std::string> SelectedInterfaces(const Context& context);

// "with id 1234:0001": what the selection asks for; "" when it asks for nothing.
std::string Describe(const Selection& selection);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SELECTION_DEVICES_H_
