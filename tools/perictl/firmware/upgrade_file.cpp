#include "firmware/upgrade_file.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

#include "common/files.h"
#include "exit_codes.h"
#include "terminal/text.h"

namespace perictl {
namespace {

static_assert(std::endian::native == std::endian::little);

constexpr uint32_t kLongestCommand = sizeof(UpgradeFileCommand::data);
// Far beyond any firmware; an endless file is not read to its end.
constexpr size_t kLongestUpgradeFile = size_t{256} << 20;

std::string CheckHeader(const UpgradeImage& image) {
  const UpgradeFileHeader& header = image.header;
  if (header.checked_length > PERILINK_UPGRADE_HEADER_SIZE) {
    return "claims to have checked " + std::to_string(header.checked_length) +
           " bytes of its header, which has " + std::to_string(PERILINK_UPGRADE_HEADER_SIZE);
  }
  if (!image.ChecksumIsRight()) {
    return "has the wrong checksum: it is " + Hex32(header.checksum) + " and should be " +
           Hex32(image.right_checksum);
  }
  return "";
}

std::string CheckLength(const char* what, uint32_t length, uint32_t least, uint32_t most) {
  if (length >= least && length <= most) return "";
  return std::string("has ") + what + " of " + std::to_string(length) + " bytes; " +
         std::to_string(least) + " to " + std::to_string(most) + " are possible";
}

std::string CheckCommands(const UpgradeFileHeader& header) {
  // A shorter packet would go out without the end of its payload.
  const uint32_t payload = std::min<uint32_t>(header.payload_length, PERILINK_PACKET_PAYLOAD_SIZE);
  const uint32_t least_packet = payload == 0 ? 1 : PERILINK_PACKET_PAYLOAD_OFFSET + payload;
  for (const std::string& problem :
       {CheckLength("a reset command", header.reset_command.length, 1, kLongestCommand),
        CheckLength("a start command", header.start_command.length, 1, kLongestCommand),
        CheckLength("packets", header.packet_template.length, least_packet,
                    PERILINK_PACKET_SIZE)}) {
    if (!problem.empty()) return problem;
  }
  return "";
}

std::string CheckKeys(const UpgradeFileHeader& header) {
  const struct {
    const char* name;
    const UpgradeText& key;
  } keys[] = {{"boot-mode input", header.boot_input_key},
              {"boot-mode output", header.boot_output_key},
              {"normal input", header.normal_input_key},
              {"normal output", header.normal_output_key}};
  for (const auto& [name, key] : keys) {
    if (TextOf(key).empty()) return std::string("names no ") + name + " interface";
  }
  return "";
}

std::string CheckSize(const UpgradeImage& image, size_t file_size) {
  const uint64_t end = image.offset + image.Size();
  if (end <= file_size) return "";
  return "is cut off: it ends at byte " + std::to_string(end) + " and the file at byte " +
         std::to_string(file_size);
}

std::string CheckImage(const UpgradeImage& image, size_t file_size) {
  for (const auto& check : {CheckHeader(image), CheckSize(image, file_size),
                            CheckCommands(image.header), CheckKeys(image.header)}) {
    if (!check.empty()) return "the " + image.name + " image " + check;
  }
  return "";
}

std::string CheckSlaveOffset(const UpgradeImage& main, size_t file_size) {
  const uint32_t offset = main.header.slave_offset;
  const std::string place = "the slave image is said to start at byte " + std::to_string(offset);
  if (offset < main.Size()) return place + ", inside the main image";
  if (offset >= file_size || file_size - offset < PERILINK_UPGRADE_HEADER_SIZE) {
    return place + ", which leaves no room for its header in a file of " +
           std::to_string(file_size) + " bytes";
  }
  return "";
}

UpgradeImage ReadImage(const std::vector<uint8_t>& file, const char* name, uint32_t offset) {
  const auto bytes = std::span(file).subspan(offset, PERILINK_UPGRADE_HEADER_SIZE);
  UpgradeImage image;
  image.name = name;
  image.offset = offset;
  std::memcpy(&image.header, bytes.data(), sizeof image.header);
  image.right_checksum = Perilink_UpgradeChecksum(bytes.data(), image.header.checked_length);
  return image;
}

}  // namespace

std::string_view TextOf(const UpgradeText& field) {
  const char* const end = std::find(std::begin(field), std::end(field), '\0');
  return {field, static_cast<size_t>(end - field)};
}

uint64_t UpgradeImage::Size() const {
  return PERILINK_UPGRADE_HEADER_SIZE + uint64_t{header.payload_length};
}

uint32_t UpgradeImage::PacketCount() const {
  const uint32_t length = header.payload_length;
  return 1 + length / PERILINK_PACKET_PAYLOAD_SIZE +
         (length % PERILINK_PACKET_PAYLOAD_SIZE != 0 ? 1 : 0);
}

uint32_t UpgradeImage::StartAddress() const {
  uint32_t address = 0;
  for (const uint8_t byte :
       std::span(header.packet_template.data).subspan(PERILINK_PACKET_ADDRESS_OFFSET, 4))
    address = address << 8 | byte;
  return address;
}

UpgradeFile CheckUpgradeFile(std::vector<uint8_t> bytes) {
  UpgradeFile file;
  file.bytes = std::move(bytes);
  const size_t size = file.bytes.size();
  if (size < PERILINK_UPGRADE_HEADER_SIZE) {
    file.problem = "it has " + std::to_string(size) + " bytes, and the header alone takes " +
                   std::to_string(PERILINK_UPGRADE_HEADER_SIZE);
    return file;
  }
  file.images.push_back(ReadImage(file.bytes, "main", 0));
  file.problem = CheckImage(file.images[0], size);
  const uint32_t slave_offset = file.images[0].header.slave_offset;
  if (!file.problem.empty() || slave_offset == 0) return file;
  file.problem = CheckSlaveOffset(file.images[0], size);
  if (!file.problem.empty()) return file;
  file.images.push_back(ReadImage(file.bytes, "slave", slave_offset));
  file.problem = CheckImage(file.images[1], size);
  return file;
}

UpgradeFile ReadUpgradeFile(const std::string& name) {
  const std::string content = perilink::tools::ReadWholeFile(name, kLongestUpgradeFile);
  return CheckUpgradeFile({content.begin(), content.end()});
}

std::span<const uint8_t> PayloadOf(const UpgradeFile& file, const UpgradeImage& image) {
  const std::span bytes(file.bytes);
  const size_t start = std::min(bytes.size(), size_t{image.offset} + PERILINK_UPGRADE_HEADER_SIZE);
  return bytes.subspan(start, std::min<size_t>(bytes.size() - start, image.header.payload_length));
}

void SetNormalKeys(UpgradeFile& file, const std::string& input, const std::string& output) {
  UpgradeImage& image = file.images.front();
  const auto set = [](UpgradeText& field, const std::string& key) {
    std::fill(std::begin(field), std::end(field), '\0');
    std::copy(key.begin(), key.end(), field);
  };
  set(image.header.normal_input_key, input);
  set(image.header.normal_output_key, output);
  std::memcpy(file.bytes.data(), &image.header, sizeof image.header);
  image.right_checksum = Perilink_UpgradeChecksum(file.bytes.data(), image.header.checked_length);
  image.header.checksum = image.right_checksum;
  std::memcpy(file.bytes.data(), &image.header, sizeof image.header);
}

void RequireSound(const UpgradeFile& file, const std::string& name) {
  if (file.problem.empty()) return;
  throw Failure(ExitCode::kDamagedFile, name + " is not a sound upgrade file: " + file.problem);
}

}  // namespace perictl
