#include "sim/upgrade_file.h"

#include <algorithm>
#include <utility>

#include "byte_order.h"

namespace perilink::sim {
namespace {

constexpr size_t kTextSize = 64;
constexpr size_t kCommandSize = 64;
constexpr size_t kCommandData = 62;

void StoreLittleEndian(Bytes& image, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i)
    image[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

void StoreText(Bytes& image, size_t at, const std::string& text) {
  std::copy_n(text.begin(), std::min(text.size(), kTextSize),
              image.begin() + static_cast<ptrdiff_t>(at));
}

void StoreCommand(Bytes& image, size_t at, const UpgradeCommand& command) {
  static_assert(kCommandSize == kCommandData + 2);
  image[at] = command.length;
  image[at + 1] = command.feature ? 1 : 0;
  std::copy_n(command.data.begin(), std::min(command.data.size(), kCommandData),
              image.begin() + static_cast<ptrdiff_t>(at + 2));
}

}  // namespace

UpgradeImage ImageFor(const Device& device, Bytes payload, uint32_t address, bool feature) {
  const BootOptions& boot = device.boot_options();
  UpgradeImage image;
  image.normal_input = image.normal_output = device.CommandKey();
  image.boot_input = device.BootInputKey();
  image.boot_output = device.BootOutputKey();
  image.product_name = device.options().firmware.product_text;

  const Bytes& reset = device.ResetCommand();
  image.reset = {static_cast<uint8_t>(reset.size()), feature, reset};

  const auto length = static_cast<uint8_t>(boot.report_length);
  Bytes packet(9);
  packet[0] = boot.report_id;
  StoreBigEndian(packet, 5, address);
  image.packet = {length, feature, packet};

  Bytes start = packet;
  start.resize(13);
  start[1] = boot::kStart;
  StoreBigEndian(start, 9, static_cast<uint32_t>(payload.size()));
  image.start = {static_cast<uint8_t>(start.size()), feature, start};
  image.payload = std::move(payload);
  return image;
}

UpgradeFileBuilder::UpgradeFileBuilder(UpgradeImage main) : main_(std::move(main)) {}

UpgradeFileBuilder& UpgradeFileBuilder::Slave(UpgradeImage slave) {
  slave_ = std::move(slave);
  return *this;
}

UpgradeFileBuilder& UpgradeFileBuilder::Gap(size_t bytes) {
  gap_ = bytes;
  return *this;
}

Bytes UpgradeFileBuilder::Build() const {
  const size_t behind_main = kUpgradeHeaderSize + main_.payload.size() + gap_;
  Bytes file = BuildImage(main_, slave_ ? static_cast<uint32_t>(behind_main) : 0);
  if (!slave_) return file;
  file.resize(behind_main, 0xFF);
  const Bytes slave = BuildImage(*slave_);
  file.insert(file.end(), slave.begin(), slave.end());
  return file;
}

Bytes UpgradeFileBuilder::BuildImage(const UpgradeImage& image, uint32_t slave_offset) {
  Bytes bytes(kUpgradeHeaderSize);
  const auto payload_length = static_cast<uint32_t>(image.payload.size());
  StoreLittleEndian(bytes, 4, image.checked_length);
  StoreLittleEndian(bytes, 8, image.payload_length.value_or(payload_length));
  StoreLittleEndian(bytes, 12, image.slave_offset.value_or(slave_offset));
  StoreText(bytes, 23, image.file_id);
  StoreText(bytes, 87, image.ic_name);
  StoreText(bytes, 151, image.boot_input);
  StoreText(bytes, 215, image.boot_output);
  StoreText(bytes, 279, image.normal_input);
  StoreText(bytes, 343, image.normal_output);
  StoreCommand(bytes, 407, image.reset);
  StoreCommand(bytes, 471, image.start);
  StoreCommand(bytes, 535, image.packet);
  StoreText(bytes, 599, image.sensor_name);
  StoreText(bytes, 663, image.product_name);
  StoreLittleEndian(bytes, 0, image.checksum.value_or(ChecksumOf(bytes, image.checked_length)));
  bytes.insert(bytes.end(), image.payload.begin(), image.payload.end());
  return bytes;
}

uint32_t UpgradeFileBuilder::ChecksumOf(std::span<const uint8_t> image, uint32_t checked_length) {
  if (checked_length > kUpgradeHeaderSize) return 0;
  uint32_t checksum = 0x55555555;
  for (size_t i = 8; i < checked_length; ++i)
    checksum -= image[i];
  return checksum;
}

}  // namespace perilink::sim
