// Builds upgrade files: for virtual devices, and deliberately broken ones for tests.
//
//   sim::Mouse mouse;
//   const sim::Bytes file =
//       sim::UpgradeFileBuilder(sim::ImageFor(mouse, sim::MakeVirtualFirmware(0x0103, 40'000)))
//           .Build();
#ifndef PERILINK_SIM_UPGRADE_FILE_H_
#define PERILINK_SIM_UPGRADE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "sim/device.h"
#include "sim/report.h"

namespace perilink::sim {

inline constexpr size_t kUpgradeHeaderSize = 8192;

// A command that the file carries: 64 bytes, of which the first two say how it is sent.
struct UpgradeCommand {
  uint8_t length = 0;    // bytes to send
  bool feature = false;  // as a feature report
  Bytes data;            // up to 62 bytes; more are dropped
};

// One image: an 8192-byte header block and the payload. Texts are cut to their 64 bytes; a text of
// 64 bytes or more fills its field and has no terminator.
struct UpgradeImage {
  std::string file_id = "virtual upgrade";
  std::string ic_name = "VIRTUAL";
  std::string boot_input;  // keys: the parts of the device paths that the host looks for
  std::string boot_output;
  std::string normal_input;
  std::string normal_output;
  std::string sensor_name = "none";
  std::string product_name = "Virtual device";
  UpgradeCommand reset;   // into boot mode; its echo is awaited when data byte 5 is not 0
  UpgradeCommand start;   // the first packet
  UpgradeCommand packet;  // of the others: byte 0, and in bytes 5..8 the start address
  Bytes payload;

  // What the header says; set them to say something else than the truth.
  uint32_t checked_length = kUpgradeHeaderSize;
  std::optional<uint32_t> checksum;
  std::optional<uint32_t> payload_length;
  std::optional<uint32_t> slave_offset;
};

// An image that fits the device: its keys, reset command, report length and report id, a start
// packet for the payload at the address. `feature` sends reset command and packets as feature
// reports.
UpgradeImage ImageFor(const Device& device, Bytes payload, uint32_t address = 0x00010000,
                      bool feature = false);

class UpgradeFileBuilder {
 public:
  explicit UpgradeFileBuilder(UpgradeImage main);
  // A second image, for a second device, behind the main one.
  UpgradeFileBuilder& Slave(UpgradeImage slave);
  // Bytes of 0xFF between the two images.
  UpgradeFileBuilder& Gap(size_t bytes);
  Bytes Build() const;

  // One image alone. `slave_offset` goes into its header unless the image has one of its own.
  static Bytes BuildImage(const UpgradeImage& image, uint32_t slave_offset = 0);
  // The checksum that belongs into the header of the image at the start of `image`.
  static uint32_t ChecksumOf(std::span<const uint8_t> image, uint32_t checked_length);

 private:
  UpgradeImage main_;
  std::optional<UpgradeImage> slave_;
  size_t gap_ = 0;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_UPGRADE_FILE_H_
