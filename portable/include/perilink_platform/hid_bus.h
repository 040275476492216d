// The bus of HID interfaces behind the portable platform's SetupAPI, HidD_ and file calls.
//
// HidBus is what the platform's calls need of a bus. It has two fillings: the virtual bus, which
// simulated devices are plugged into, and the bus of the machine's devices, over the kernel's
// hidraw nodes. A process in real mode sees the machine's devices first, then those of its virtual
// bus; in virtual mode, or when it asked for that (world.h), the virtual bus alone. Nothing above
// HidBus may assume either.
//
// Locking: buses and connections are called without the device lock of world.h and take it as they
// need it. Opening, writing and setting a feature may wait for a device, up to five seconds; the
// rest never does. Sinks and virtual interfaces are called with the device lock held, scheduled
// events run under it too, and none of them may block.
#ifndef PERILINK_PLATFORM_HID_BUS_H_
#define PERILINK_PLATFORM_HID_BUS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "perilink_platform/types.h"

namespace perilink::platform {

struct HidAttributes {
  uint16_t vendor_id = 0;
  uint16_t product_id = 0;
  uint16_t version = 0;
};

// Where an open interface delivers what its device sends; implemented by the file object that
// opened it. Each open of an interface has its own sink and its own queue of reports behind it.
// Nothing is thrown: a report that there is no memory for is lost.
class HidInputSink {
 public:
  virtual ~HidInputSink() = default;
  // One input report, report id first. Wakes the oldest pending read, or is queued for the next; a
  // read gets it with the interface's input report length, cut or padded with zeros.
  virtual void OnInputReport(std::span<const uint8_t> report) = 0;
  // The interface has gone: pending reads fail, every later call fails with
  // ERROR_DEVICE_NOT_CONNECTED.
  virtual void OnRemoved() = 0;
};

// One open of one interface. Destroying it closes it; nobody may be in one of its functions then.
class HidConnection {
 public:
  virtual ~HidConnection() = default;
  // Both take a report, report id first, and return 0 or a Windows error code. The device has the
  // report when they return.
  virtual DWORD WriteOutputReport(std::span<const uint8_t> report) = 0;
  virtual DWORD SetFeatureReport(std::span<const uint8_t> report) = 0;
  virtual HidAttributes Attributes() const = 0;
  // Bytes of the longest input report, report id included: a read with a smaller buffer fails.
  virtual size_t InputReportLength() const = 0;
};

class HidBus {
 public:
  virtual ~HidBus() = default;
  // Device paths of the interfaces now present, in enumeration order.
  virtual std::vector<std::wstring> PresentInterfaces() = 0;
  // Opens an interface; paths are compared without regard to case, as the system does. `access` is
  // any of GENERIC_READ and GENERIC_WRITE, or 0 for a connection that is only asked for its
  // attributes. The sink may be called before this has returned, until the connection is destroyed.
  // On failure returns a Windows error code (ERROR_FILE_NOT_FOUND for an absent path) and stores
  // nothing.
  virtual DWORD Open(const std::wstring& path, DWORD access, HidInputSink& sink,
                     std::unique_ptr<HidConnection>& connection) = 0;
};

// One HID interface (top-level collection) of a simulated device. The device owns it and keeps it
// alive while it is plugged in.
class VirtualHidInterface {
 public:
  virtual ~VirtualHidInterface() = default;
  virtual std::wstring Path() const = 0;
  virtual HidAttributes Attributes() const = 0;
  virtual size_t InputReportLength() const = 0;
  virtual size_t OutputReportLength() const = 0;   // 0: no output report, writes fail
  virtual size_t FeatureReportLength() const = 0;  // 0: no feature report
  // What the host writes: 0, or the Windows error code that the write fails with. As on Windows, a
  // report shorter than its declared length has been padded with zeros and a longer one refused
  // before the device sees it. With ERROR_IO_PENDING the device holds the report: the write goes on
  // until the interface vanishes.
  virtual DWORD OnOutputReport(std::span<const uint8_t> report) = 0;
  virtual DWORD OnFeatureReport(std::span<const uint8_t> report) = 0;
  // An open of this interface was made or closed (for fault injection and for tests that count).
  virtual DWORD OnOpen() { return 0; }
  virtual void OnClose() {}
};

// The bus of simulated devices. All functions take the device lock themselves and may be called
// from any thread, and from inside device code.
class VirtualBus : public HidBus {
 public:
  // The interface appears at the end of the enumeration order.
  virtual void Plug(VirtualHidInterface& hid_interface) = 0;
  // The interface vanishes: every open of it is told.
  virtual void Unplug(VirtualHidInterface& hid_interface) = 0;
  // An input report of the interface, to every open of it. Ignored when it is not plugged in.
  virtual void Deliver(VirtualHidInterface& hid_interface, std::span<const uint8_t> report) = 0;
  // Broadcasts the arrival or removal of a USB device (not of one HID interface) to the windows
  // that registered for device-interface notifications.
  virtual void BroadcastUsbChange(const std::wstring& usb_device_path, bool arrived) = 0;
  // Now open connections, over all interfaces.
  virtual size_t OpenConnections() const = 0;
};

// The process's bus of simulated devices.
VirtualBus& Bus();

// The device file ("/dev/hidraw3") behind the path of an interface of the machine's; empty for any
// other path. For hosts that explain why a device can't be opened.
std::string HidNodeOf(const std::wstring& path);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_HID_BUS_H_
