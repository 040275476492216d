// The boot loader of a virtual device: takes a firmware in packets and checks it.
//
// Packets are reports whose byte 1 says what they are. The loader's replies carry the packet's
// byte 0 (the report id) and are padded with zeros to the report's length.
//
//   start packet  byte 1 is 0xB0; bytes 5..8 the address, bytes 9..12 the length of the firmware,
//                 high byte first (a length of 0: unknown). Erases the old firmware. Replies:
//                 0xB0 at once, and 5B B5 01 01 when the memory is erased.
//   data packet   byte 1 is 0xB1; byte 2 is 0xC0, or 0xC1 on the last; byte 3 the number of payload
//                 bytes (1 to 32); bytes 5..8 their address; bytes 17.. the payload. Reply: the
//                 packet itself, as an echo.
//   after the last packet: 5B B5 88 00 when the firmware is complete and sound, and the device
//                 restarts with it; else an error, and the device stays in boot mode.
//   error         5A A5 and one of the codes below.
#ifndef PERILINK_SIM_BOOT_LOADER_H_
#define PERILINK_SIM_BOOT_LOADER_H_

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/faults.h"
#include "sim/report.h"

namespace perilink::sim {

struct BootOptions {
  uint16_t product_id = 0xB007;  // the device's own vendor id stays
  // Packets are written to interface 1 and answered on interface 0, instead of one for both.
  bool separate_interfaces = false;
  uint8_t report_id = 0x00;
  size_t report_length = 64;  // at least 17
  // The request that resets the device into boot mode, compared byte for byte, sent as an output
  // report or as a feature report. Empty: the update-mode command (0x0D) with one data byte, so
  // that its length byte asks for an echo. The plain 0x0D command resets the device in any case.
  Bytes reset_command;
  bool echo_reset = true;
  // Firmware without a valid header is taken too; it leaves the version as it was.
  bool accept_any_firmware = false;
  uint64_t reset_micros = 20'000;    // from the reset command until the device disappears
  uint64_t appear_micros = 300'000;  // until its boot-mode interfaces appear
  uint64_t erase_micros = 50'000;
  uint64_t packet_micros = 1'000;  // from a packet to its echo
  uint64_t verify_micros = 20'000;
  // From the report of the end until the device disappears. What its host has not read by then is
  // lost, so it gives a busy host time.
  uint64_t leave_micros = 200'000;
  uint64_t restart_micros = 300'000;  // from the end until the new firmware's interfaces appear
};

class BootLoader {
 public:
  enum Error : uint8_t {
    kNotStarted = 1,   // a data packet before the start packet
    kBadPacket = 2,    // length or address out of range
    kIncomplete = 3,   // bytes are missing after the last packet
    kBadFirmware = 4,  // header, length or sum is wrong
  };
  static constexpr size_t kMaxFirmware = 16u << 20;

  explicit BootLoader(BootOptions options);

  // The replies to one packet. When the last one has been sent, Finished() says whether the device
  // restarts with the new firmware.
  std::vector<Outgoing> OnPacket(std::span<const uint8_t> packet);
  bool Finished() const { return finished_; }
  // The device was reset into boot mode: nothing has been received.
  void Restart();

  // The firmware received: bytes from Address() on, 0xFF where nothing arrived.
  const Bytes& Received() const { return received_; }
  uint32_t Address() const { return address_; }
  // Its version, when it is finished and has one.
  std::optional<uint16_t> Version() const { return version_; }
  // Whether the old firmware has been erased and no new one is complete.
  bool FirmwareErased() const { return erased_; }

  const BootOptions& options() const { return options_; }

 private:
  std::vector<Outgoing> OnStart(std::span<const uint8_t> packet);
  std::vector<Outgoing> OnData(std::span<const uint8_t> packet);
  bool StoreData(std::span<const uint8_t> packet);
  Bytes Finish(std::span<const uint8_t> packet);
  Bytes Reply(std::span<const uint8_t> packet, std::initializer_list<uint8_t> from_byte_1) const;

  BootOptions options_;
  bool started_ = false;
  bool erased_ = false;
  bool finished_ = false;
  uint32_t address_ = 0;
  uint32_t expected_length_ = 0;
  Bytes received_;
  std::vector<bool> arrived_;
  std::optional<uint16_t> version_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_BOOT_LOADER_H_
