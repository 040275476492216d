// A hidraw node as /sys describes it, and the device paths that its collections get from that. No
// device is opened.
#ifndef PERILINK_PLATFORM_SRC_HIDRAW_SYSFS_NODE_H_
#define PERILINK_PLATFORM_SRC_HIDRAW_SYSFS_NODE_H_

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "hidraw/report_descriptor.h"
#include "perilink_platform/hid_bus.h"

namespace perilink::platform {

// What is told about a whole device when it comes or goes.
struct DeviceNotice {
  std::wstring name;   // "\\?\usb#vid_1234&pid_abcd#..."
  std::string folder;  // of the USB device in /sys; empty for a device on another bus
};

struct SysfsNode {
  std::string folder;  // in /sys: .../0003:1234:ABCD.0007/hidraw/hidraw3; no other node ever has it
  std::string device_file;  // "/dev/hidraw3"
  // Where it is plugged in: the same after a replug. Nodes are listed in this order.
  std::string place;
  HidAttributes attributes;
  std::string hardware;  // "vid_1234&pid_abcd&mi_01"
  ReportDescriptor descriptor;
  std::vector<std::wstring> paths;  // one per collection
  DeviceNotice device;
};

// Makes the paths, and the notice of a device that is on no USB bus, from the place.
void NamePaths(SysfsNode& node);

// Describes the node behind a folder of /sys or a link to one. Nothing if it isn't there, is no HID
// device or goes away meanwhile.
std::optional<SysfsNode> DescribeNode(const std::filesystem::path& folder);

// Those that are present, in no particular order. `sys` is "/sys" unless a test brings its own.
std::vector<SysfsNode> DescribeAllNodes(const std::filesystem::path& sys = "/sys");

// The notice about the USB device in a folder of /sys whose ids are `product`, as the kernel writes
// them: "1234/abcd/123", hexadecimal without leading zeros. Without a name if they are malformed.
DeviceNotice UsbNotice(const std::string& folder, const std::string& product);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_HIDRAW_SYSFS_NODE_H_
