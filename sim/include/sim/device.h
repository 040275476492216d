// A virtual device with its receiver: firmware, flash, battery, boot loader and faults, and what
// happens to a device: plugging, sleep, the change to boot mode and back. It knows no bus and no
// system: reports go in and come out, a world gives it time (world.h), a port gives it a bus
// (port.h). sim::Mouse and sim::Keyboard are devices on the portable platform's bus.
//
//   sim::Mouse mouse;                         // unplugged
//   mouse.Plug();                             // its interfaces appear
//   mouse.faults().Drop(sim::Next(2));        // its next two replies are lost
//   ... use the library with mouse.CommandPath() ...
//   mouse.Requests()                          // what the host wrote, with times
//
// A device's own functions, its battery's and its faults' lock its world and may be called from any
// thread. Its firmware, flash and boot loader take no lock: hold Lock() while touching them, unless
// no other thread is there. References to the parts stay valid for the device's life. Destroying a
// device unplugs it.
#ifndef PERILINK_SIM_DEVICE_H_
#define PERILINK_SIM_DEVICE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "sim/battery.h"
#include "sim/boot_loader.h"
#include "sim/device_options.h"
#include "sim/faults.h"
#include "sim/firmware.h"
#include "sim/flash_image.h"
#include "sim/port.h"
#include "sim/report.h"
#include "sim/usb_shape.h"
#include "sim/world.h"

namespace perilink::sim {

enum class Mode {
  kUnplugged,
  kNormal,
  kBoot,
  kChanging,  // plugged in, but between two modes: no interface is present
};

// One report that the host wrote.
struct Request {
  uint64_t at_micros = 0;
  bool feature = false;  // a feature report, not an output report
  bool boot = false;     // written in boot mode
  uint32_t error = 0;    // what the write failed with; 0: the device has it
  Bytes bytes;           // report id first
  uint8_t command() const { return bytes.size() > 1 ? bytes[1] : uint8_t{0}; }
};

class Device {
 public:
  // Unplugged. The world outlives the device.
  Device(DeviceOptions options, World& world, std::unique_ptr<Port> port);
  virtual ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Plugged in, the device runs its firmware, or its boot loader when the firmware was erased by an
  // upgrade that did not end. Both do nothing when it is plugged in already.
  void Plug();
  void PlugInBootMode();
  // Its interfaces vanish; replies under way are lost, and what firmware keeps in RAM.
  void Unplug();
  // Unplugs it now and plugs it in again after the delay.
  void ReplugAfter(uint64_t delay_micros);
  Mode mode() const;
  // Called with the world locked after every change of mode; for demos and tests.
  void OnModeChange(std::function<void(Mode)> observer);
  // While this is held nothing happens to the device by another hand. Nobody may wait meanwhile.
  [[nodiscard]] std::unique_lock<World> Lock() const { return std::unique_lock(world_); }

  // Asleep, the receiver still answers its own commands and says that the device is not on-line;
  // the device's commands get no answer.
  void SetAsleep(bool asleep);
  // What the device sends by itself. Nothing is sent in another mode than normal, or asleep.
  void SendEvent(uint8_t flags);
  void SendReport(std::span<const uint8_t> report);
  // A charger is connected or taken away: the battery charges or not, and the device sends a
  // battery event (flags 0x40).
  void SetCharging(bool charging);

  // The parts of the paths that a host looks for, as in "vid_1234&pid_abcd&mi_01&col05".
  std::string CommandKey() const { return normal_shape_.Key(normal_shape_.output); }
  std::string BootInputKey() const { return boot_shape_.Key(boot_shape_.input); }
  std::string BootOutputKey() const { return boot_shape_.Key(boot_shape_.output); }
  const Bytes& ResetCommand() const { return boot_options().reset_command; }
  // What a bus shows of it in boot mode, and otherwise; valid for the device's life.
  const UsbShape& shape(Mode mode) const {
    return mode == Mode::kBoot ? boot_shape_ : normal_shape_;
  }

  Firmware& firmware() { return firmware_; }
  BootLoader& boot_loader() { return boot_loader_; }
  Battery& battery() { return battery_; }
  Faults& faults() { return faults_; }            // of the normal firmware
  Faults& boot_faults() { return boot_faults_; }  // of the boot loader
  FlashImage& flash() { return firmware_.flash(); }
  const DeviceOptions& options() const { return options_; }
  const BootOptions& boot_options() const { return boot_loader_.options(); }

  // The host's reports so far, oldest first.
  std::vector<Request> Requests() const;
  size_t CountRequests(uint8_t command) const;
  void ClearRequests();
  void SetLogging(bool logging);  // on by default; long downloads need not be kept
  // Opens of its interfaces so far, and of those the ones not yet closed, on a bus that tells of
  // them.
  size_t Opens() const;
  size_t OpenNow() const;

  // For the port. What the host writes to an interface, id byte first (0 without ids); shorter than
  // declared it has been padded with zeros. Returns 0, or the Windows error that the write fails
  // with: 31 or another by a fault, 1 for a report that the interface has none of, 1167 while
  // unplugged. A reply may come before the return.
  uint32_t OnOutputReport(size_t interface_number, std::span<const uint8_t> report);
  uint32_t OnFeatureReport(size_t interface_number, std::span<const uint8_t> report);
  // An interface is opened: 0, or the Windows error that the opening fails with. Closed: once for
  // every opening that did not fail, at the latest when the port is detached.
  uint32_t OnOpen();
  void OnClose();

 private:
  uint32_t OnReport(size_t interface_number, std::span<const uint8_t> bytes, bool feature);
  void HandleCommand(Exchange& exchange);
  void HandleBootPacket(Exchange& exchange);
  bool ResetsToBootMode(const Exchange& exchange) const;
  void Send(const Exchange& exchange);
  void Deliver(std::span<const uint8_t> report);
  bool IsAttached() const { return mode_ == Mode::kNormal || mode_ == Mode::kBoot; }
  void Show(Mode mode);
  void Hide();
  void ChangeMode(Mode mode, uint64_t hide_at_micros, uint64_t show_after_micros);
  void SetMode(Mode mode);
  // Runs the action unless the device has been unplugged, has changed mode or is gone by then.
  void After(uint64_t delay_micros, std::function<void()> action);
  // The times of one exchange all count from its request: in real time a busy machine may take
  // long over it, and what follows must still come in order.
  void At(uint64_t at_micros, std::function<void()> action);

  DeviceOptions options_;
  World& world_;
  Battery battery_;
  Firmware firmware_;
  BootLoader boot_loader_;
  Faults faults_;
  Faults boot_faults_;
  const UsbShape normal_shape_;
  const UsbShape boot_shape_;

  Mode mode_ = Mode::kUnplugged;
  uint64_t generation_ = 0;         // of the interfaces: what was scheduled for others is void
  uint64_t busy_until_micros_ = 0;  // requests are answered one after another
  bool leaving_ = false;            // reset or restart is under way; requests go unheard
  std::function<void(Mode)> observer_;
  std::vector<Request> requests_;
  bool logging_ = true;
  size_t opens_ = 0;
  size_t closes_ = 0;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  std::unique_ptr<Port> port_;  // last: its threads may call the device until it is destroyed
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_DEVICE_H_
