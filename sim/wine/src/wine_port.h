// Plugs a virtual device into the bus driver: each collection as a child with a HID stack of its
// own, as Windows splits them, and the whole device as a USB device that notices tell of.
#ifndef PERILINK_SIM_WINE_SRC_WINE_PORT_H_
#define PERILINK_SIM_WINE_SRC_WINE_PORT_H_

#include <map>
#include <thread>

#include "driver.h"
#include "sim/device.h"

namespace perilink::sim {

class WinePort final : public Port {
 public:
  explicit WinePort(Driver driver);
  ~WinePort() override;

  void Attach(Device& device, const UsbShape& shape) override;
  void Detach() override;
  void SendInput(CollectionAt from, std::span<const uint8_t> report) override;

 private:
  void AwaitLeaving() const;
  void Serve();
  uint32_t Hand(const HidBusReport& written);

  const Driver driver_;
  // With the world locked:
  Device* device_ = nullptr;
  const UsbShape* shape_ = nullptr;
  ULONG last_number_ = 0;
  std::map<ULONG, CollectionAt> children_;  // that are plugged in, by number; the USB device is 0
  std::thread server_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_WINE_SRC_WINE_PORT_H_
