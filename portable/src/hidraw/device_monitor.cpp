#include "hidraw/device_monitor.h"

#include <libudev.h>
#include <unistd.h>

#include <cerrno>

namespace perilink::platform {
namespace {

// A hub with many devices comes and goes at once.
constexpr int kReceiveBuffer = 1 << 20;

std::string Text(const char* text) {
  return text == nullptr ? "" : text;
}

std::optional<DeviceEvent::Kind> KindOf(const std::string& action, bool usb) {
  if (action == "add") return usb ? DeviceEvent::kUsbAdded : DeviceEvent::kNodeAdded;
  if (action == "remove") return usb ? DeviceEvent::kUsbRemoved : DeviceEvent::kNodeRemoved;
  if (action == "bind" && usb) return DeviceEvent::kUsbBound;
  return std::nullopt;
}

}  // namespace

void DeviceMonitor::Release::operator()(udev_monitor* monitor) const {
  udev_monitor_unref(monitor);
}

DeviceMonitor::DeviceMonitor() : early_(access("/run/udev/control", F_OK) != 0) {
  udev* const context = udev_new();
  if (context == nullptr) return;
  monitor_.reset(udev_monitor_new_from_netlink(context, early_ ? "kernel" : "udev"));
  udev_unref(context);  // the monitor holds it
  if (monitor_ == nullptr) return;
  // Where it may not be that large, events can be missed, which is noticed.
  udev_monitor_set_receive_buffer_size(monitor_.get(), kReceiveBuffer);
  udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), "hidraw", nullptr);
  udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), "usb", "usb_device");
  if (udev_monitor_enable_receiving(monitor_.get()) < 0) monitor_.reset();
}

int DeviceMonitor::fd() const {
  return monitor_ == nullptr ? -1 : udev_monitor_get_fd(monitor_.get());
}

std::optional<DeviceEvent> DeviceMonitor::Next() {
  while (monitor_ != nullptr) {
    errno = 0;
    const std::unique_ptr<udev_device, decltype(&udev_device_unref)> received(
        udev_monitor_receive_device(monitor_.get()), udev_device_unref);
    udev_device* const device = received.get();
    if (device == nullptr) {
      if (errno == ENOBUFS) return DeviceEvent{DeviceEvent::kMissed, "", ""};
      return std::nullopt;
    }
    const bool usb = Text(udev_device_get_subsystem(device)) == "usb";
    const std::optional<DeviceEvent::Kind> kind = KindOf(Text(udev_device_get_action(device)), usb);
    DeviceEvent event{kind.value_or(DeviceEvent::kMissed), Text(udev_device_get_syspath(device)),
                      Text(udev_device_get_property_value(device, "PRODUCT"))};
    if (kind) return event;
  }
  return std::nullopt;
}

}  // namespace perilink::platform
