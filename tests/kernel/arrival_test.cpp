// Devices that come and go, as hosts of different rights and in different surroundings see it.
#include <linux/uhid.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstdlib>
#include <cstring>

#include "machine.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "sim/kernel_device.h"

namespace perilink::testing {
namespace {

constexpr char kRules[] = "/run/udev/rules.d/70-perilink.rules";

class Arrival : public Machine {
 protected:
  void SetUp() override {
    Machine::SetUp();
    unlink(kRules);
    ASSERT_EQ(std::system("udevadm control --reload"), 0);
  }
  static void AllowNobody() {
    WriteText(kRules,
              "SUBSYSTEM==\"hidraw\", KERNELS==\"*:1234:*\", MODE=\"0660\", "
              "GROUP=\"nogroup\"\n");
    ASSERT_EQ(std::system("udevadm control --reload"), 0);
  }
  // As in a container: no device manager shows.
  static void HideDeviceManager() {
    ASSERT_EQ(unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(mount("none", "/run/udev", "tmpfs", 0, nullptr), 0);
  }
  // At each arrival all of the device is there and answers, though its nodes come before they may
  // be opened. Where the arrival too comes before that, opening waits so long for it.
  static void FollowPlugs(milliseconds patience) {
    sim::KernelDevice mouse;
    const AsNobody nobody;
    auto plugged = Clock::now();
    int told = 0;
    int complete = 0;
    int refused = 0;
    Notices notices([&] {
      const auto answers = [] { return UsbFinder_GetVersion(PathWith(kCommandKey)) == 0x0102; };
      ++told;
      complete +=
          Present().size() == 6 &&
          (answers() || (patience.count() > 0 && Since(plugged) > patience && Eventually(answers)));
    });
    for (int plug = 1; plug <= 3; ++plug) {
      plugged = Clock::now();
      mouse.Plug();
      ASSERT_TRUE(notices.Await(true, [&] {
        for (const std::string& node : Nodes())
          refused += access(node.c_str(), F_OK) == 0 && eaccess(node.c_str(), W_OK) != 0;
      }));
      EXPECT_EQ(complete, told);
      mouse.Unplug();
      ASSERT_TRUE(notices.Await(false));
      ASSERT_TRUE(WaitForNodes(0));
    }
    EXPECT_GE(told, 3);
    EXPECT_GT(refused, 0);
  }
};

TEST_F(Arrival, IsToldWhenAnOrdinaryUserCanOpenIt) {
  AllowNobody();
  FollowPlugs(milliseconds(0));
}

TEST_F(Arrival, IsToldInAContainer) {
  AllowNobody();
  HideDeviceManager();
  FollowPlugs(milliseconds(1000));
}

TEST_F(Arrival, NeedsPermission) {
  Plug();
  {
    const AsNobody nobody;
    ASSERT_TRUE(WaitForPaths(7));
    const auto start = Clock::now();
    for (int i = 0; i < 3; ++i) {
      EXPECT_FALSE(Handle(PathWith(kCommandKey)).IsOpen());
      EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    }
    EXPECT_LT(Since(start), milliseconds(2500)) << "a device manager's word is final";
    EXPECT_EQ(platform::HidNodeOf(PathWith(kCommandKey)), Nodes()[1]);
  }
  AllowNobody();
  ASSERT_EQ(std::system("udevadm trigger --action=add --subsystem-match=hidraw"), 0);
  const AsNobody nobody;
  EXPECT_TRUE(Eventually([] { return Handle(PathWith(kCommandKey)).IsOpen(); }));
}

// Another network namespace: no event comes at all. Handles notice all the same.
TEST_F(Arrival, IsNotNeededToSeeARemoval) {
  ASSERT_EQ(unshare(CLONE_NEWNET), 0);
  Plug();
  Handle commands(PathWith(kCommandKey));
  ASSERT_TRUE(commands.IsOpen());
  Unplug();
  EXPECT_TRUE(commands.HasGone());
  EXPECT_TRUE(Eventually([] { return PathWith(kCommandKey).empty(); }));
}

// While the host is held up, more events come than are kept for it.
TEST_F(Arrival, MissedIsMadeUpFor) {
  HideDeviceManager();
  WriteText("/proc/sys/net/core/rmem_max", "8192");
  {
    const AsNobody nobody;  // whose buffer is that small
    EXPECT_TRUE(Present().empty());
  }
  WriteText("/proc/sys/net/core/rmem_max", "212992");
  Notices notices;
  Plug();
  ASSERT_TRUE(notices.Await(true));
  UsbDevice other({0x1234, 0xBEEF, 1, 1}, {{kBootDescriptor}});
  {
    const platform::DeviceGuard held_up;
    for (int i = 0; i < 60; ++i)
      WriteText("/sys/class/hidraw/" + Nodes()[0].substr(5) + "/uevent", "change");
    Unplug();
    other.Plug();
    ASSERT_TRUE(WaitForNodes(1));
  }
  ASSERT_TRUE(notices.Await(false));
  ASSERT_TRUE(notices.Await(true));
  EXPECT_EQ(Present().size(), 1u);
  EXPECT_FALSE(PathWith(L"pid_beef").empty());
}

// The driver of an interface that was bound already: its node comes after the device's arrival.
TEST_F(Arrival, IsToldAgainOfALateNode) {
  Notices notices;
  Plug();
  ASSERT_TRUE(notices.Await(true));
  const std::string hid =
      std::filesystem::canonical("/sys/class/hidraw/" + Nodes()[1].substr(5) + "/device")
          .parent_path()
          .filename();
  WriteText("/sys/bus/usb/drivers/usbhid/unbind", hid);
  ASSERT_TRUE(WaitForPaths(2));
  WriteText("/sys/bus/usb/drivers/usbhid/bind", hid);
  EXPECT_TRUE(notices.Await(true));
  EXPECT_EQ(Present().size(), 7u);
}

// A device that no bus of the machine carries, as a Bluetooth stack makes them.
class UhidDevice {
 public:
  UhidDevice(const char* phys, const char* uniq) : fd_(open("/dev/uhid", O_RDWR | O_CLOEXEC)) {
    uhid_event event{};
    event.type = UHID_CREATE2;
    uhid_create2_req& create = event.u.create2;
    std::strcpy(reinterpret_cast<char*>(create.phys), phys);
    std::strcpy(reinterpret_cast<char*>(create.uniq), uniq);
    std::copy(kCommandDescriptor.begin(), kCommandDescriptor.end(), create.rd_data);
    create.rd_size = static_cast<uint16_t>(kCommandDescriptor.size());
    create.bus = 5;  // Bluetooth
    create.vendor = 0x1234;
    create.product = 0xABCE;
    EXPECT_GT(write(fd_, &event, sizeof event), 0);
  }
  ~UhidDevice() { close(fd_); }
  UhidDevice(const UhidDevice&) = delete;
  UhidDevice& operator=(const UhidDevice&) = delete;

  // Sends back what it has been sent. False when nothing comes for a second.
  bool EchoesSoon() {
    uhid_event event{};
    pollfd wait{fd_, POLLIN, 0};
    do {
      if (poll(&wait, 1, 1000) != 1 || read(fd_, &event, sizeof event) <= 0) return false;
    } while (event.type != UHID_OUTPUT);
    uhid_event answer{};
    answer.type = UHID_INPUT2;
    answer.u.input2.size = event.u.output.size;
    std::memcpy(answer.u.input2.data, event.u.output.data, event.u.output.size);
    return write(fd_, &answer, sizeof answer) > 0;
  }

 private:
  const int fd_;
};

TEST_F(Arrival, OfADeviceWithoutUsb) {
  Notices notices;
  std::wstring path;
  for (int plug = 0; plug < 2; ++plug) {
    auto device = std::make_unique<UhidDevice>("00:11:22:33:44:55", "66:77:88:99:aa:bb");
    ASSERT_TRUE(notices.Await(true));
    ASSERT_EQ(Present().size(), 5u);
    EXPECT_TRUE(path.empty() || path == PathWith(L"&col05#")) << "the same after a return";
    path = PathWith(L"\\\\?\\hid#vid_1234&pid_abce&col05#7&");
    Handle commands(path);
    EXPECT_EQ(commands.Send({8, 3}), 0u);
    EXPECT_TRUE(device->EchoesSoon());
    EXPECT_EQ(commands.Read(), Padded({8, 3}, 17));
    HIDD_ATTRIBUTES attributes{};
    ASSERT_TRUE(commands.handles().GetAttributes(attributes));
    EXPECT_EQ(attributes.ProductID, 0xABCE);
    EXPECT_EQ(attributes.VersionNumber, 0);
    device.reset();
    EXPECT_TRUE(notices.Await(false));
    EXPECT_TRUE(commands.HasGone());
  }
}

// What says where they are says the same of both, or nothing.
TEST_F(Arrival, OfTwins) {
  for (const char* const place : {"00:11:22:33:44:55", ""}) {
    UhidDevice first(place, "");
    UhidDevice second(place, "");
    ASSERT_TRUE(WaitForPaths(10));
    Paths paths;
    UsbFinder_FindHidDevicesByKey(L"&col05#", paths);
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_NE(paths[0], paths[1]);
    // One of them gets it, whichever was given the lower number.
    Handle(paths[0]).Send({8, 1});
    EXPECT_NE(first.EchoesSoon(), second.EchoesSoon());
  }
}

}  // namespace
}  // namespace perilink::testing
