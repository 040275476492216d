// A USB device in software, plugged into the kernel it runs on: a composite device whose interfaces
// are HID interfaces. The kernel enumerates it, makes its hidraw nodes and announces them, as it
// does with any other.
//
// The kernel's virtual host controller (vhci-hcd) takes one end of a socket pair and speaks the
// USB/IP protocol over it; the other end is served here. So what the device does, stalls, delays,
// short reports, an unplug at any moment, is the program's own code. Needs root and that
// controller.
#ifndef PERILINK_SIM_USB_DEVICE_H_
#define PERILINK_SIM_USB_DEVICE_H_

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "sim/report.h"

namespace perilink::sim {

struct UsbInterface {
  Bytes report_descriptor;
  bool out_endpoint = false;  // without one, output reports come as control requests
};

struct UsbIdentity {
  uint16_t vendor_id = 0x1234;
  uint16_t product_id = 0xABCD;
  uint16_t version = 0x0123;
  int port = 0;  // of the virtual controller, 0 to 7
};

// Whether this process may plug devices into the kernel.
bool CanPlugIntoKernel();

class UsbDevice {
 public:
  enum class Type : uint8_t { kInput = 1, kOutput = 2, kFeature = 3 };
  enum class Answer {
    kTake,
    kStall,
    kHold,  // the device is busy: the write stays pending until the host or an unplug ends it
  };
  // A report that the host has written, as it is on the wire: its id first, if reports have ids.
  // Runs on the device's own thread.
  using Handler = std::function<Answer(size_t interface_number, Type type, const Bytes& report)>;

  UsbDevice(const UsbIdentity& identity, std::vector<UsbInterface> interfaces,
            Handler handler = {});
  ~UsbDevice() { Unplug(); }
  UsbDevice(const UsbDevice&) = delete;
  UsbDevice& operator=(const UsbDevice&) = delete;

  // Both return before the kernel has seen to it. Not from the handler; in turn. Plug throws
  // std::runtime_error when the device can't be plugged in.
  void Plug();
  void Unplug();
  // The first half of an unplug: what has been written is answered, then the kernel sees it go.
  // Waits for nothing; from the handler too.
  void PullOut();
  // An input report, as it is on the wire. Waits in the device until the host fetches it.
  void Send(size_t interface_number, Bytes report);

 private:
  struct Request {
    uint32_t sequence;
    uint32_t length;
  };
  struct Header;

  void Serve(int socket);
  void OnSubmit(const Header& header, const Bytes& data);
  void OnUnlink(const Header& header);
  void OnWrite(Request request, size_t interface_number, Type type, const Bytes& report);
  void OnControl(const Header& header, const Bytes& data);
  bool Descriptor(unsigned type, unsigned index, Bytes& descriptor) const;
  Bytes Configuration() const;
  void Complete(Request request, int error, std::span<const uint8_t> data, size_t length);
  void SendAll(const void* data, size_t size, std::span<const uint8_t> more = {});

  const UsbIdentity identity_;
  const std::vector<UsbInterface> interfaces_;
  const Handler handler_;
  std::thread thread_;

  std::mutex mutex_;  // for all below
  int socket_ = -1;
  bool pulled_out_ = false;
  std::map<size_t, std::deque<Request>> polls_;  // of the host, by interface: not yet answered
  std::map<size_t, std::deque<Bytes>> reports_;  // not yet fetched
  std::deque<Request> held_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_USB_DEVICE_H_
