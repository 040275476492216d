// What the machine's bus makes of report descriptors and of /sys, without a kernel to ask.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "hidraw/sysfs_node.h"
#include "support/report_descriptors.h"
#include "support/temporary_folder.h"

namespace perilink::platform {
namespace {

namespace fs = std::filesystem;
using testing::kBootDescriptor;
using testing::kCommandDescriptor;
using testing::kMouseDescriptor;
using Bytes = std::vector<uint8_t>;

// A line per collection, "page:usage", with ids and length of every kind that it has.
std::string Told(const Bytes& bytes) {
  const ReportDescriptor descriptor = ParseReportDescriptor(bytes);
  std::string told;
  for (const HidCollection& collection : descriptor.collections) {
    char text[40];
    std::snprintf(text, sizeof text, "%x:%x", collection.usage_page, collection.usage);
    told += text;
    for (size_t kind = 0; kind < kReportKinds; ++kind) {
      const CollectionReports& reports = collection.reports[kind];
      if (reports.length == 0) continue;
      told += std::string(" ") + "iof"[kind];
      for (size_t id = 0; id < 256; ++id)
        if (reports.ids.test(id)) told += std::to_string(id) + ",";
      told += std::to_string(reports.length) + (descriptor.numbered[kind] ? "n" : "");
    }
    told += "\n";
  }
  return told;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(ReportDescriptor, TellsCollectionsAndTheirReports) {
  const Bytes in_eight = {0x75, 8, 0x95, 1, 0x81, 2};
  const Bytes open = {0x06, 0, 0xFF, 0x09, 1, 0xA1, 1};
  const struct {
    const char* what;
    Bytes bytes;
    const char* told;
  } rows[] = {
      {"nothing", {}, ""},
      {"a mouse", kMouseDescriptor, "1:2 i0,9\n"},
      {"a mouse with commands", kCommandDescriptor,
       "1:6 i1,9n o1,2n\nc:1 i2,3n\n1:80 i3,2n\nff01:1 i6,8n\nff02:1 i8,17n o8,17n f8,17n\n"},
      {"a boot loader", kBootDescriptor, "ff00:1 i0,64 o0,64 f0,64\n"},
      {"a usage with its page", {0x0B, 5, 0, 0x0D, 0xFF, 0xA1, 1, 0xC0}, "ff0d:5\n"},
      {"the usage before it says nothing", open + Bytes{0xC0, 0xA1, 1, 0xC0}, "ff00:1\nff00:0\n"},
      {"bits that fill no byte", open + Bytes{0x75, 3, 0x95, 3, 0x81, 2, 0xC0}, "ff00:1 i0,3\n"},
      {"two ids, the longer counts",
       open + Bytes{0x85, 1} + in_eight + Bytes{0x85, 2} + in_eight + in_eight + Bytes{0xC0},
       "ff00:1 i1,2,3n\n"},
      {"one report in two collections",
       open + Bytes{0x85, 1} + in_eight + Bytes{0xC0} + open + in_eight + Bytes{0xC0},
       "ff00:1 i1,3n\nff00:1 i1,3n\n"},
      {"push and pop", open + in_eight + Bytes{0xA4, 0x75, 16, 0xB4} + in_eight, "ff00:1 i0,3\n"},
      {"a long item is passed over", open + Bytes{0xFE, 2, 0xF0, 0xC0, 0xC0} + in_eight,
       "ff00:1 i0,2\n"},
      {"a long item cut off", open + Bytes{0xFE, 9, 0xF0} + in_eight, "ff00:1\n"},
      {"an item cut off", open + in_eight + Bytes{0x96, 1}, "ff00:1 i0,2\n"},
      {"an end without a beginning", Bytes{0xC0} + open, ""},
      {"pop without push", Bytes{0xB4} + open, ""},
      {"id 0", open + Bytes{0x85, 0} + in_eight, "ff00:1\n"},
      {"pushed too deep", open + Bytes{0xA4, 0xA4, 0xA4, 0xA4, 0xA4} + in_eight, "ff00:1\n"},
      {"a field beyond any report",
       open + Bytes{0x77, 255, 255, 255, 255, 0x97, 255, 255, 255, 255, 0x81, 2} + in_eight,
       "ff00:1\n"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Told(row.bytes), row.told) << row.what;
}

// A folder that looks like /sys.
class Sys : public ::testing::Test {
 protected:
  void AddUsb(const std::string& device, const char* interfaces, const char* version) {
    folder_.Store(device + "/bNumInterfaces", std::string(interfaces));
    folder_.Store(device + "/bcdDevice", std::string(version));
    folder_.Store(device + "/uevent", "DEVTYPE=usb_device\nPRODUCT=1234/abcd/123\n");
  }
  void AddNode(const std::string& hid, const std::string& name, const std::string& uevent,
               const Bytes& descriptor) {
    folder_.Store(hid + "/uevent", uevent);
    folder_.Store(hid + "/report_descriptor", descriptor);
    const fs::path node = root_ / hid / "hidraw" / name;
    fs::create_directories(node);
    fs::create_directories(root_ / "class" / "hidraw");
    fs::create_directory_symlink("../..", node / "device");
    fs::create_directory_symlink(node, root_ / "class" / "hidraw" / name);
  }
  // The only node's.
  SysfsNode Described() {
    std::vector<SysfsNode> nodes = DescribeAllNodes(root_);
    return nodes.size() == 1 ? nodes[0] : SysfsNode{};
  }

  const testing::TemporaryFolder folder_;
  const fs::path& root_ = folder_.path();
};

// A path without what its place makes of it.
std::string Shape(const std::wstring& path) {
  std::string text(path.begin(), path.end());
  return text.replace(text.find("#7&") + 3, 8, "HASH");
}

TEST_F(Sys, DescribesDevices) {
  const std::string on_usb = "DRIVER=x\nHID_ID=0003:00001234:0000ABCD\nHID_PHYS=usb-1/input1\n";
  const struct {
    const char* what;
    const char* port;
    const char* interfaces;
    std::string uevent;
    Bytes descriptor;
    const char* ids;  // null: no path
    uint16_t version;
  } rows[] = {
      {"one interface", "1-1", " 1\n", on_usb, kBootDescriptor, "vid_1234&pid_abcd", 0x0123},
      {"of several", "1-1", " 3\n", on_usb, kMouseDescriptor, "vid_1234&pid_abcd&mi_11", 0x0123},
      {"elsewhere", "1-2", " 3\n", on_usb, kMouseDescriptor, "vid_1234&pid_abcd&mi_11", 0x0123},
      {"a Bluetooth device below a USB adapter", "1-1", " 2\n",
       "HID_ID=0005:00001234:0000ABCE\nHID_PHYS=a\nHID_UNIQ=b\n", kBootDescriptor,
       "vid_1234&pid_abce", 0},
      {"no ids", "1-1", " 1\n", "DRIVER=x\n", kBootDescriptor, nullptr, 0},
  };
  std::set<std::wstring> all;
  for (const auto& row : rows) {
    fs::remove_all(root_);
    const std::string usb = std::string("devices/usb1/") + row.port;
    AddUsb(usb, row.interfaces, "0123\n");
    folder_.Store(usb + "/i/bInterfaceNumber", "0b\n");
    AddNode(usb + "/i/0003:1234:ABCD.0007", "hidraw3", row.uevent, row.descriptor);
    const SysfsNode node = Described();
    EXPECT_EQ(node.paths.size(), row.ids == nullptr ? 0u : 1u) << row.what;
    for (const std::wstring& path : node.paths) {
      EXPECT_EQ(Shape(path), "\\\\?\\hid#" + std::string(row.ids) +
                                 "#7&HASH&0&0000#{4d1e55b2-f16f-11cf-88cb-001111000030}");
      EXPECT_TRUE(all.insert(path).second) << row.what;
    }
    EXPECT_EQ(node.attributes.version, row.version) << row.what;
  }
}

// Whatever of a device has gone meanwhile, the rest is found.
TEST_F(Sys, PassesOverWhatIsIncomplete) {
  AddNode("devices/a/b", "hidraw0", "HID_ID=0018:00001234:0000ABCD", kBootDescriptor);
  AddNode("devices/c/d", "hidraw1", "HID_ID=0018:00001234:0000ABCD", kBootDescriptor);
  AddNode("devices/e/f", "hidraw2", "HID_ID=0018:00001234:0000ABCD", kBootDescriptor);
  fs::remove(root_ / "devices/c/d/report_descriptor");
  fs::remove_all(root_ / "devices/e");
  EXPECT_EQ(Described().device_file, "/dev/hidraw0");
}

}  // namespace
}  // namespace perilink::platform
