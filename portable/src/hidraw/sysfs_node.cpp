#include "hidraw/sysfs_node.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "file_descriptor.h"

namespace perilink::platform {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kUsbBus = 3;
constexpr char kHidClass[] = "{4d1e55b2-f16f-11cf-88cb-001111000030}";
constexpr char kUsbClass[] = "{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
constexpr size_t kLargestAttribute = 64 * 1024;

// An attribute of a device, without the line's end; nothing if it can't be read. No stream is used:
// reading an attribute of a device that goes fails in ways that make one throw.
std::optional<std::string> ReadAttribute(const fs::path& file) {
  const FileDescriptor attribute(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!attribute.valid()) return std::nullopt;
  std::string text;
  char part[4096];
  ssize_t count = 0;
  do {
    count = read(attribute.get(), part, sizeof part);
    if (count > 0) text.append(part, static_cast<size_t>(count));
  } while (count == sizeof part && text.size() < kLargestAttribute);
  if (count < 0) return std::nullopt;
  return text;
}

unsigned long ReadNumber(const fs::path& file, int base) {
  const std::optional<std::string> text = ReadAttribute(file);
  return text ? std::strtoul(text->c_str(), nullptr, base) : 0;
}

// The value of "NAME=value" in an uevent's lines; empty without one.
std::string ValueOf(std::string_view lines, std::string_view name) {
  while (!lines.empty()) {
    const std::string_view line = lines.substr(0, lines.find('\n'));
    if (line.size() > name.size() && line.starts_with(name) && line[name.size()] == '=')
      return std::string(line.substr(name.size() + 1));
    lines.remove_prefix(std::min(line.size() + 1, lines.size()));
  }
  return {};
}

// FNV-1a: short, and the same in every process.
uint32_t Hash(std::string_view text) {
  uint32_t hash = 2166136261u;
  for (const char c : text)
    hash = (hash ^ static_cast<uint8_t>(c)) * 16777619u;
  return hash;
}

std::string Printed(const char* format, unsigned long number) {
  char text[24];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

std::string IdText(const HidAttributes& ids) {
  return "vid_" + Printed("%04lx", ids.vendor_id) + "&pid_" + Printed("%04lx", ids.product_id);
}

DeviceNotice NoticeOf(const HidAttributes& ids, const std::string& place,
                      const std::string& folder) {
  const std::string name =
      "\\\\?\\usb#" + IdText(ids) + "#7&" + Printed("%08lx", Hash(place)) + "#" + kUsbClass;
  return {std::wstring(name.begin(), name.end()), folder};
}

// The folder's number: none is given a second time, though a device that comes to the place of
// another one gets a folder of the same name.
std::optional<ino_t> NumberOf(const fs::path& folder) {
  struct stat status {};
  return stat(folder.c_str(), &status) == 0 ? std::optional(status.st_ino) : std::nullopt;
}

// What a whole USB device says.
struct UsbDevice {
  ino_t number = 0;
  unsigned long interfaces = 0;  // 0: it is none
  uint16_t version = 0;
  DeviceNotice notice;
};

UsbDevice ReadUsbDevice(const fs::path& folder, ino_t number) {
  UsbDevice device;
  device.number = number;
  device.interfaces = ReadNumber(folder / "bNumInterfaces", 10);
  if (device.interfaces == 0) return device;
  device.version = static_cast<uint16_t>(ReadNumber(folder / "bcdDevice", 16));
  device.notice =
      UsbNotice(folder, ValueOf(ReadAttribute(folder / "uevent").value_or(""), "PRODUCT"));
  return device;
}

// A HID device's place on a USB bus.
struct UsbPlace {
  fs::path interface_folder;  // empty on another bus
  unsigned long interface_number = 0;
  UsbDevice device;
};

// `seen` is the device that was read last: one that has many nodes is read once.
UsbPlace FindUsbPlace(const fs::path& hid, UsbDevice& seen) {
  UsbPlace place;
  for (fs::path above = hid.parent_path(); above.has_relative_path(); above = above.parent_path()) {
    if (place.interface_folder.empty()) {
      const std::optional<std::string> number = ReadAttribute(above / "bInterfaceNumber");
      if (!number) continue;
      place.interface_folder = above;
      place.interface_number = std::strtoul(number->c_str(), nullptr, 16);
      continue;
    }
    const std::optional<ino_t> number = NumberOf(above);
    if (!number) return {};
    if (seen.interfaces == 0 || seen.number != *number) seen = ReadUsbDevice(above, *number);
    if (seen.interfaces == 0) continue;
    place.device = seen;
    return place;
  }
  return {};
}

// "&mi_01" of a device with several interfaces.
std::string InterfaceText(const UsbPlace& usb) {
  return usb.device.interfaces < 2 ? "" : "&mi_" + Printed("%02lu", usb.interface_number);
}

}  // namespace

void NamePaths(SysfsNode& node) {
  const std::string instance = "#7&" + Printed("%08lx", Hash(node.place)) + "&0&";
  const size_t count = node.descriptor.collections.size();
  node.paths.clear();
  for (size_t i = 0; i < count; ++i) {
    const std::string collection = count > 1 ? "&col" + Printed("%02lu", i + 1) : "";
    const std::string path = "\\\\?\\hid#" + node.hardware + collection + instance +
                             Printed("%04lx", i) + "#" + kHidClass;
    node.paths.emplace_back(path.begin(), path.end());
  }
  if (node.device.folder.empty()) node.device = NoticeOf(node.attributes, node.place, "");
}

DeviceNotice UsbNotice(const std::string& folder, const std::string& product) {
  unsigned vendor_id = 0;
  unsigned product_id = 0;
  if (std::sscanf(product.c_str(), "%x/%x/", &vendor_id, &product_id) != 2) return {};
  return NoticeOf({static_cast<uint16_t>(vendor_id), static_cast<uint16_t>(product_id), 0}, folder,
                  folder);
}

namespace {

std::optional<SysfsNode> Describe(const fs::path& link, UsbDevice& seen) {
  std::error_code error;
  const fs::path target = fs::read_symlink(link, error);
  const fs::path folder = error ? link : (link.parent_path() / target).lexically_normal();
  const fs::path hid = folder.parent_path().parent_path();
  const std::optional<std::string> uevent = ReadAttribute(hid / "uevent");
  const std::optional<std::string> descriptor = ReadAttribute(hid / "report_descriptor");
  if (!uevent || !descriptor) return std::nullopt;
  unsigned bus = 0;
  unsigned vendor_id = 0;
  unsigned product_id = 0;
  if (std::sscanf(ValueOf(*uevent, "HID_ID").c_str(), "%x:%x:%x", &bus, &vendor_id, &product_id) !=
      3)
    return std::nullopt;

  SysfsNode node;
  node.folder = folder;
  node.device_file = "/dev/" + folder.filename().string();
  node.attributes.vendor_id = static_cast<uint16_t>(vendor_id);
  node.attributes.product_id = static_cast<uint16_t>(product_id);
  node.descriptor = ParseReportDescriptor(
      {reinterpret_cast<const uint8_t*>(descriptor->data()), descriptor->size()});
  const UsbPlace usb = bus == kUsbBus ? FindUsbPlace(hid, seen) : UsbPlace{};
  // Devices that a driver makes of one interface's reports share that interface, and have places of
  // their own.
  node.place = usb.interface_folder == hid.parent_path()
                   ? usb.interface_folder.string()
                   : ValueOf(*uevent, "HID_PHYS") + ValueOf(*uevent, "HID_UNIQ");
  if (node.place.empty()) node.place = hid;
  node.attributes.version = usb.device.version;
  node.device = usb.device.notice;
  node.hardware = IdText(node.attributes) + InterfaceText(usb);
  NamePaths(node);
  // What was read of a device that went meanwhile is not to be relied on.
  return fs::exists(folder, error) ? std::optional(std::move(node)) : std::nullopt;
}

}  // namespace

std::optional<SysfsNode> DescribeNode(const fs::path& folder) {
  UsbDevice seen;
  return Describe(folder, seen);
}

std::vector<SysfsNode> DescribeAllNodes(const fs::path& sys) {
  std::vector<SysfsNode> nodes;
  UsbDevice seen;
  std::error_code error;
  for (fs::directory_iterator entry(sys / "class" / "hidraw", error), end; !error && entry != end;
       entry.increment(error)) {
    if (std::optional<SysfsNode> node = Describe(entry->path(), seen))
      nodes.push_back(*std::move(node));
  }
  return nodes;
}

}  // namespace perilink::platform
