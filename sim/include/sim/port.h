// Where a virtual device is plugged in: what an adapter to a bus implements.
//
//   device  ->  port     Attach, Detach, SendInput: the device comes, goes, sends a report
//   port    ->  device   OnOutputReport, OnFeatureReport, OnOpen, OnClose (device.h): what the host
//                        does with it
//
// The device calls its port with the world locked. A port must not block there, nor wait for a
// thread of its own that may be calling the device: that thread waits for the lock. The port may
// call the device on any thread, and from inside the device's calls.
//
// A device owns its port and destroys it, detached, before the rest of itself and without the lock:
// a port that has threads ends them in its destructor.
#ifndef PERILINK_SIM_PORT_H_
#define PERILINK_SIM_PORT_H_

#include <cstdint>
#include <span>

#include "sim/usb_shape.h"

namespace perilink::sim {

class Device;

class Port {
 public:
  virtual ~Port() = default;

  // The device appears. It has the same shape every time that it comes in the same mode, and the
  // shape stays valid as long as the port.
  virtual void Attach(Device& device, const UsbShape& shape) = 0;
  // It vanishes: every open of it ends, and what it has sent may be lost. Called only when
  // attached.
  virtual void Detach() = 0;
  // It sends an input report, id byte first, which may be shorter or longer than declared. Called
  // only when attached.
  virtual void SendInput(CollectionAt from, std::span<const uint8_t> report) = 0;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_PORT_H_
