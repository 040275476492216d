// What the system tells about HID nodes and USB devices that come and go.
#ifndef PERILINK_PLATFORM_SRC_HIDRAW_DEVICE_MONITOR_H_
#define PERILINK_PLATFORM_SRC_HIDRAW_DEVICE_MONITOR_H_

#include <memory>
#include <optional>
#include <string>

struct udev_monitor;

namespace perilink::platform {

struct DeviceEvent {
  enum Kind {
    kNodeAdded,
    kNodeRemoved,
    kUsbAdded,  // its interfaces are yet to come
    kUsbBound,  // all that belongs to it has been announced
    kUsbRemoved,
    kMissed,  // events were lost: only a scan tells what is present
  };
  Kind kind;
  std::string folder;   // in /sys
  std::string product;  // of a USB device: its ids, as UsbNotice takes them
};

// Listens from its making on. Used by one thread at a time.
class DeviceMonitor {
 public:
  DeviceMonitor();
  // To wait for input on; -1 when the system lets this process hear nothing.
  int fd() const;
  // The next event, nothing when there is none now. Never waits.
  std::optional<DeviceEvent> Next();
  // The events come from the kernel itself, where no device manager runs: whoever sets a new node's
  // permissions may not have done so yet. A device manager's own events come afterwards.
  bool early() const { return early_; }

 private:
  struct Release {
    void operator()(udev_monitor* monitor) const;
  };
  bool early_;
  std::unique_ptr<udev_monitor, Release> monitor_;
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_HIDRAW_DEVICE_MONITOR_H_
