// Devices that come and go, as hosts of different rights and in different surroundings see it.
#include <linux/uhid.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

#include "handle.h"
#include "notices.h"
#include "perilink_platform/hid_bus.h"

namespace perilink::testing {
namespace {

constexpr wchar_t kCommands[] = L"&mi_01&col05#";
constexpr int kPlugs = 3;
constexpr char kRules[] = "/run/udev/rules.d/70-perilink.rules";

Bytes Frame(uint8_t second) {
  Bytes frame(17);
  frame[0] = 8;
  frame[1] = second;
  return frame;
}

UsbDevice::Answer Echo(UsbDevice& device, size_t interface_number, const Bytes& report) {
  device.Send(interface_number, report);
  return UsbDevice::Answer::kTake;
}

bool Exchanges(Handle& handle, uint8_t second = 3) {
  return handle.Write(Frame(second)) == 0 && handle.Read() == Frame(second);
}

class Arrival : public ::testing::Test {
 protected:
  static void AllowNobody() {
    WriteText(kRules,
              "SUBSYSTEM==\"hidraw\", KERNELS==\"*:1234:*\", MODE=\"0660\", "
              "GROUP=\"nogroup\"\n");
    ASSERT_EQ(std::system("udevadm control --reload"), 0);
  }
  // The device manager is still telling of the test before.
  void SetUp() override {
    ASSERT_TRUE(WaitForNodes(0));
    ASSERT_EQ(std::system("udevadm settle"), 0);
  }
  void TearDown() override {
    WriteText("/proc/sys/net/core/rmem_max", "212992");
    unlink(kRules);
    EXPECT_EQ(std::system("udevadm control --reload"), 0);
  }
  void PlugOnce() {
    device_.Plug();
    ASSERT_TRUE(WaitForNodes(3));
  }

  UsbDevice device_{{}, MouseInterfaces(), [this](size_t number, UsbDevice::Type, const Bytes& r) {
                      return Echo(device_, number, r);
                    }};
};

// Container: another mount namespace, in which no device manager shows.
bool HideDeviceManager() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("none", "/run/udev", "tmpfs", 0, nullptr) == 0;
}

// Follows the device through some plugs; everything of it is there at each arrival and opens.
int FollowPlugs(Child& self) {
  Notices notices;
  int complete = 0;
  notices.on_arrival = [&] {
    complete += Paths().size() == 7 && Handle(PathWith(kCommands)).IsOpen() &&
                Handle(PathWith(L"&mi_02#")).IsOpen();
  };
  std::wstring name;
  for (int plug = 1; plug <= kPlugs; ++plug) {
    self.Ready();
    NEED(notices.Await(true));
    NEED(complete == plug);
    NEED(name.empty() || notices.last.name == name);
    name = notices.last.name;
    NEED(name.find(L"\\\\?\\usb#vid_1234&pid_abcd#") == 0);
    Handle commands(PathWith(kCommands));
    NEED(Exchanges(commands));
    self.Ready();
    NEED(notices.Await(false));
    NEED(notices.last.name == name);
    NEED(Paths().empty());
    NEED(commands.Read().empty() && commands.error() == ERROR_DEVICE_NOT_CONNECTED);
  }
  return 0;
}

TEST_F(Arrival, IsToldWhenADeviceCanBeOpened) {
  const struct {
    const char* what;
    bool device_manager;
  } rows[] = {{"an ordinary user", true}, {"an ordinary user in a container", false}};
  for (const auto& row : rows) {
    if (row.device_manager) AllowNobody();
    Child host([&](Child& self) {
      NEED(row.device_manager || HideDeviceManager());
      BecomeNobody();
      return FollowPlugs(self);
    });
    host.Go();
    for (int plug = 0; plug < kPlugs && host.AwaitReady(); ++plug) {
      PlugOnce();
      // Who looks after a container's nodes comes a moment after the kernel.
      for (const std::string& node : Nodes()) {
        if (!row.device_manager) chmod(node.c_str(), 0666);
      }
      EXPECT_TRUE(host.AwaitReady());
      device_.Unplug();
      ASSERT_TRUE(WaitForNodes(0));
    }
    EXPECT_TRUE(host.Ends()) << row.what;
    unlink(kRules);
    EXPECT_EQ(std::system("udevadm control --reload"), 0);
  }
}

TEST_F(Arrival, NeedsPermission) {
  Child host([](Child& self) {
    BecomeNobody();
    NEED(Eventually([] { return Paths().size() == 7; }));
    const std::wstring path = PathWith(kCommands);
    const auto start = Clock::now();
    for (int i = 0; i < 3; ++i)
      NEED(Handle(path).error() == ERROR_ACCESS_DENIED);
    NEED(Since(start) < milliseconds(2500));  // not tried again for a second, as in a container
    NEED(platform::HidNodeOf(path) == Nodes()[1]);
    self.Ready();
    NEED(Eventually([&] { return Handle(path).IsOpen(); }));
    return 0;
  });
  PlugOnce();
  host.Go();
  // The rule takes effect without a replug.
  EXPECT_TRUE(host.AwaitReady());
  AllowNobody();
  EXPECT_EQ(std::system("udevadm trigger --action=add --subsystem-match=hidraw"), 0);
  EXPECT_TRUE(host.Ends());
  device_.Unplug();
}

// Another network namespace: no event comes at all. Handles notice all the same.
TEST_F(Arrival, RemovalIsSeenWithoutEvents) {
  Child host([](Child& self) {
    NEED(unshare(CLONE_NEWNET) == 0);
    Handle commands(PathWith(kCommands));
    NEED(Exchanges(commands));
    self.Ready();
    NEED(commands.Read().empty() && commands.error() == ERROR_DEVICE_NOT_CONNECTED);
    NEED(Eventually([] { return PathWith(kCommands).empty(); }));
    return 0;
  });
  PlugOnce();
  host.Go();
  EXPECT_TRUE(host.AwaitReady());
  device_.Unplug();
  EXPECT_TRUE(host.Ends());
}

// While the host sleeps, more events come than are kept for it.
TEST_F(Arrival, MissedEventsAreMadeUpFor) {
  WriteText("/proc/sys/net/core/rmem_max", "8192");
  Child host([](Child& self) {
    NEED(HideDeviceManager());
    BecomeNobody();  // whose buffer is that small
    Notices notices;
    self.Ready();
    NEED(notices.Await(true, L"pid_abcd"));
    raise(SIGSTOP);
    NEED(notices.Await(true, L"pid_beef"));
    const std::vector<std::wstring> paths = Paths();
    NEED(paths.size() == 1 && paths[0].find(L"pid_beef") != std::wstring::npos);
    return 0;
  });
  host.Go();
  ASSERT_TRUE(host.AwaitReady());
  PlugOnce();
  int status = 0;
  waitpid(host.pid(), &status, WUNTRACED);
  const std::string uevent = "/sys/class/hidraw/" + Nodes()[0].substr(5) + "/uevent";
  for (int i = 0; i < 60; ++i)
    WriteText(uevent, "change");
  device_.Unplug();
  ASSERT_TRUE(WaitForNodes(0));
  UsbDevice other({0x1234, 0xBEEF, 1, 1}, {{kBootDescriptor}});
  other.Plug();
  ASSERT_TRUE(WaitForNodes(1));
  kill(host.pid(), SIGCONT);
  EXPECT_TRUE(host.Ends());
}

// The driver of an interface that was bound already: its node comes after the device's arrival.
TEST_F(Arrival, IsToldAgainOfALateNode) {
  Notices notices;
  PlugOnce();
  ASSERT_TRUE(notices.Await(true));
  const std::string hid =
      std::filesystem::canonical("/sys/class/hidraw/" + Nodes()[1].substr(5) + "/device")
          .parent_path()
          .filename();
  WriteText("/sys/bus/usb/drivers/usbhid/unbind", hid);
  ASSERT_TRUE(Eventually([] { return Paths().size() == 2; }));
  WriteText("/sys/bus/usb/drivers/usbhid/bind", hid);
  EXPECT_TRUE(notices.Await(true));
  EXPECT_EQ(Paths().size(), 7u);
}

// A device that no bus of the machine carries, as a Bluetooth stack makes them.
class UhidDevice {
 public:
  UhidDevice() : fd_(open("/dev/uhid", O_RDWR | O_CLOEXEC)) {
    uhid_event event{};
    event.type = UHID_CREATE2;
    uhid_create2_req& create = event.u.create2;
    std::strcpy(reinterpret_cast<char*>(create.phys), "00:11:22:33:44:55");
    std::strcpy(reinterpret_cast<char*>(create.uniq), "66:77:88:99:aa:bb");
    std::copy(kCommandDescriptor.begin(), kCommandDescriptor.end(), create.rd_data);
    create.rd_size = static_cast<uint16_t>(kCommandDescriptor.size());
    create.bus = 5;  // Bluetooth
    create.vendor = 0x1234;
    create.product = 0xABCE;
    Write(event);
    thread_ = std::thread([this] { Serve(); });
  }
  ~UhidDevice() {
    uhid_event event{};
    event.type = UHID_DESTROY;
    Write(event);
    thread_.join();
    close(fd_);
  }

 private:
  void Write(const uhid_event& event) {
    [[maybe_unused]] const ssize_t count = write(fd_, &event, sizeof event);
  }
  // Sends back what it is sent.
  void Serve() {
    uhid_event event{};
    while (read(fd_, &event, sizeof event) > 0 && event.type != UHID_STOP) {
      uhid_event answer{};
      if (event.type == UHID_OUTPUT) {
        answer.type = UHID_INPUT2;
        answer.u.input2.size = event.u.output.size;
        std::memcpy(answer.u.input2.data, event.u.output.data, event.u.output.size);
        Write(answer);
      } else if (event.type == UHID_SET_REPORT) {
        answer.type = UHID_SET_REPORT_REPLY;
        answer.u.set_report_reply.id = event.u.set_report.id;
        Write(answer);
      }
    }
  }

  const int fd_;
  std::thread thread_;
};

TEST_F(Arrival, OfADeviceWithoutUsb) {
  Notices notices;
  std::wstring path;
  for (int plug = 0; plug < 2; ++plug) {
    auto device = std::make_unique<UhidDevice>();
    ASSERT_TRUE(notices.Await(true));
    ASSERT_EQ(Paths().size(), 5u);
    EXPECT_TRUE(path.empty() || path == PathWith(L"&col05#")) << "the same after a return";
    path = PathWith(L"\\\\?\\hid#vid_1234&pid_abce&col05#7&");
    Handle commands(path);
    EXPECT_TRUE(Exchanges(commands));
    EXPECT_EQ(commands.SetFeature(Frame(4)), 0u);
    HIDD_ATTRIBUTES attributes{};
    ASSERT_TRUE(HidD_GetAttributes(commands.get(), &attributes));
    EXPECT_EQ(attributes.ProductID, 0xABCE);
    EXPECT_EQ(attributes.VersionNumber, 0);
    device.reset();
    EXPECT_TRUE(notices.Await(false));
    EXPECT_TRUE(commands.Read().empty());
    EXPECT_EQ(commands.error(), ERROR_DEVICE_NOT_CONNECTED);
  }
}

}  // namespace
}  // namespace perilink::testing
