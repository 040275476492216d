// A virtual device with its receiver: HID interfaces on the portable platform's bus, firmware,
// flash, battery, boot loader and faults.
//
//   sim::Mouse mouse;                         // unplugged
//   mouse.Plug();                             // its interfaces appear
//   mouse.faults().Drop(sim::Next(2));        // its next two replies are lost
//   ... use the library with mouse.CommandPath() ...
//   mouse.Requests()                          // what the host wrote, with times
//
// A device's own functions, its battery's and its faults' take the device lock and may be called
// from any thread, in the real and in the virtual world. Its firmware, flash and boot loader take
// no lock: in real mode, hold a DeviceGuard (device_guard.h) while touching them. References to the
// parts stay valid for the device's life. Destroying a device unplugs it.
#ifndef PERILINK_SIM_DEVICE_H_
#define PERILINK_SIM_DEVICE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "perilink_platform/types.h"
#include "sim/battery.h"
#include "sim/boot_loader.h"
#include "sim/faults.h"
#include "sim/firmware.h"
#include "sim/flash_image.h"
#include "sim/report.h"

namespace perilink::sim {

struct DeviceOptions {
  uint16_t vendor_id = 0x1234;
  uint16_t product_id = 0xABCD;
  uint16_t version_number = 0x0100;   // of the HID attributes; the firmware has its own
  std::string instance = "1a2b3c4d";  // in the paths; devices of one kind need different ones
  int interface_number = 1;           // of the command interface
  int collection = 5;
  bool asleep = false;
  FirmwareOptions firmware;
  BatteryOptions battery;
  FlashImage flash = FlashImage::Default();
  BootOptions boot;
};

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
  explicit Device(DeviceOptions options);
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
  // Called under the device lock after every change of mode; for demos and tests.
  void OnModeChange(std::function<void(Mode)> observer);

  // Asleep, the receiver still answers its own commands and says that the device is not on-line;
  // the device's commands get no answer.
  void SetAsleep(bool asleep);
  // What the device sends by itself. Nothing is sent in another mode than normal, or asleep.
  void SendEvent(uint8_t flags);
  void SendReport(std::span<const uint8_t> report);
  // A charger is connected or taken away: the battery charges or not, and the device sends a
  // battery event (flags 0x40).
  void SetCharging(bool charging);

  // Where the host finds it. Keys are the parts of the paths that a host looks for.
  std::wstring CommandPath() const;
  std::string CommandPathNarrow() const;
  std::string CommandKey() const;
  std::string BootInputKey() const;
  std::string BootOutputKey() const;
  const Bytes& ResetCommand() const { return boot_options().reset_command; }
  std::wstring BootInputPath() const;
  std::wstring BootOutputPath() const;
  std::vector<std::wstring> Paths() const;  // of the interfaces present now

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
  size_t Opens() const;           // opens of its interfaces so far
  size_t OpenNow() const;         // not yet closed

 private:
  struct Interfaces;  // the HID side, with the calls that the bus makes

  DWORD OnReport(std::span<const uint8_t> bytes, bool feature);
  DWORD OnInterfaceOpen();
  void HandleCommand(Exchange& exchange);
  void HandleBootPacket(Exchange& exchange);
  bool ResetsToBootMode(const Exchange& exchange) const;
  void Send(const Exchange& exchange);
  void Deliver(std::span<const uint8_t> report);
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
  Battery battery_;
  Firmware firmware_;
  BootLoader boot_loader_;
  Faults faults_;
  Faults boot_faults_;
  std::unique_ptr<Interfaces> interfaces_;

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
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_DEVICE_H_
