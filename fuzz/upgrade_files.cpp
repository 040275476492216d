// Upgrade files: the library's parser, its cutting of images, and perictl's check of a file, which
// must agree with it. An input makes a file: flags (bit 0: two images, bit 1: no checksum is made
// right, bit 2: its end is cut off, bit 3: the changes are those of the second image, bits 4 to 7:
// their number), the lengths of both payloads, the gap between the images, and for each change its
// address (2), its length and its bytes; then how much is cut off (2).
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "perictl/exit_codes.h"
#include "perictl/firmware/upgrade_file.h"
#include "perictl/terminal/text.h"
#include "perilink/upgrade.h"
#include "platform/ansi_text.h"
#include "platform/win32.h"
#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "support/input.h"
#include "support/require.h"
#include "support/world.h"
#include "upgrade/file_split.h"
#include "upgrade/log.h"
#include "upgrade/upgrade_record.h"

namespace perilink::fuzz {
namespace {

using sim::kUpgradeHeaderSize;
using Bytes = std::span<const uint8_t>;

// ---- One image ---------------------------------------------------------------------------------

// Each up to its end, or all of its field.
void RequireTexts(const UsbUpgradeFile& record, const UpgradeFileHeader& header) {
  const std::pair<const TextField&, const std::wstring&> texts[] = {
      {header.chip_name, record.chip_name},
      {header.file_id, record.file_id},
      {header.boot_input_key, record.boot_input_key},
      {header.boot_output_key, record.boot_output_key},
      {header.normal_input_key, record.normal_input_key},
      {header.normal_output_key, record.normal_output_key},
      {header.sensor_name, record.sensor_name},
      {header.product_name, record.product_name}};
  for (const auto& [field, text] : texts)
    Require(text == NarrowToWide(std::string(field, strnlen(field, sizeof(field)))),
            "a text is what its field holds");
}

// The start command goes first. The others carry the payload, the whole of it and nothing else,
// each at its address, which wraps; behind the payload they are what the first one is.
void RequirePackets(const UsbUpgradeFile& record, const UpgradeFileHeader& header, Bytes payload) {
  constexpr size_t kPart = 32;
  Require(record.packets.size() == 1 + (payload.size() + kPart - 1) / kPart,
          "as many packets as it takes");
  sim::Bytes wanted(PERILINK_PACKET_SIZE);
  const UpgradeFileCommand& start = header.start_command;
  std::copy_n(start.data, std::min<size_t>(start.length, sizeof(start.data)), wanted.begin());
  const uint8_t* const sample = header.packet_template.data;
  uint32_t address = 0;
  for (size_t i = 5; i < 9; ++i)
    address = address << 8 | sample[i];
  for (size_t i = 0; i < record.packets.size(); ++i) {
    const UpgradePacket& packet = record.packets[i];
    const bool last = i + 1 == record.packets.size();
    if (i > 0) {
      const Bytes part =
          payload.subspan(kPart * (i - 1)).first(std::min(kPart, payload.size() - kPart * (i - 1)));
      std::fill_n(wanted.begin(), 17, uint8_t{0});
      wanted[0] = sample[0];
      wanted[1] = 0xB1;
      wanted[2] = last ? 0xC1 : 0xC0;
      wanted[3] = static_cast<uint8_t>(part.size());
      for (size_t j = 0; j < 4; ++j)
        wanted[5 + j] = static_cast<uint8_t>(address >> (24 - 8 * j));
      std::fill_n(wanted.begin() + 17, kPart, uint8_t{0xFF});
      std::ranges::copy(part, wanted.begin() + 17);
      address += kPart;
    }
    Require(std::ranges::equal(wanted, packet.data), "a packet carries its part");
    Require(packet.pending == 1 && packet.is_last == (last ? 1 : 0), "the last packet is marked");
  }
}

void CheckImage(Bytes image) {
  UsbUpgradeFile record;
  const ExactCopy copy(image);
  ParseUpgradeImage(record, copy.data(), nullptr, 1000, copy.size());
  Require(record.valid, "an image that was found parses");
  const UpgradeFileHeader header = ReadImageHeader(image.data());
  RequireTexts(record, header);
  RequirePackets(record, header, image.subspan(kUpgradeHeaderSize));
}

// ---- The file ----------------------------------------------------------------------------------

// The managed split gives the same image, in an array of its own.
void RequireManagedSplit(const ExactCopy& file, int32_t which, Bytes image) {
  SAFEARRAY* const array =
      CS_UsbUpgrade_FileSplit(file.data(), static_cast<uint32_t>(file.size()), which);
  Require(array != nullptr, "the managed split gives an array");
  LONG last = 0;
  void* bytes = nullptr;
  Require(
      SafeArrayGetUBound(array, 1, &last) == S_OK && static_cast<size_t>(last + 1) == image.size(),
      "the array is as long as the image");
  Require(SafeArrayAccessData(array, &bytes) == S_OK, "the array can be read");
  Require(image.empty() || std::memcmp(bytes, image.data(), image.size()) == 0,
          "the array holds the image");
  SafeArrayUnaccessData(array);
  SafeArrayDestroy(array);
}

// A header with the right checksum; then the whole image, if it is there.
bool HasHeader(Bytes file, size_t offset) {
  if (offset > file.size() || file.size() - offset < kUpgradeHeaderSize) return false;
  const UpgradeFileHeader header = ReadImageHeader(file.data() + offset);
  return header.checksum ==
         sim::UpgradeFileBuilder::ChecksumOf(file.subspan(offset), header.checked_length);
}
Bytes ImageAt(Bytes file, size_t offset) {
  if (!HasHeader(file, offset)) return {};
  const size_t length =
      kUpgradeHeaderSize + size_t{ReadImageHeader(file.data() + offset).payload_length};
  if (length > file.size() - offset) return {};
  return file.subspan(offset, length);
}

// The wide split is told no length: for files in which everything that the headers name is there.
void CheckWideSplit(const ExactCopy& file, int32_t which, Bytes image) {
  ExactCopy out({}, std::max<size_t>(image.size(), 2), 0xEE);
  uint32_t length = 0xEE;
  const bool found = UsbUpgrade_FileSplit(file.data(), 0, out.data(), &length, which);
  Require(found == !image.empty() && length == image.size(), "the wide split finds the same");
  const sim::Bytes expected =
      found ? sim::Bytes(image.begin(), image.end()) : sim::Bytes{0x00, 0xEE};
  Require(std::ranges::equal(out.span(), expected), "the wide split gives the same");
}

void CheckSplit(const ExactCopy& file, int32_t which, Bytes expected) {
  const Bytes image = FindImage(file.data(), file.size(), which);
  Require(image.data() == expected.data() && image.size() == expected.size(),
          "an image that is whole and has its checksum is found, and no other");
  RequireManagedSplit(file, which, image);
  if (!image.empty()) CheckImage(image);
}

// ---- perictl's reader --------------------------------------------------------------------------

// Through a file, as `perictl upgrade` reads it.
perictl::UpgradeFile ReadThroughFile(Bytes bytes) {
  static const int descriptor = memfd_create("upgrade", MFD_CLOEXEC);
  Require(
      descriptor >= 0 && ftruncate(descriptor, 0) == 0 &&
          pwrite(descriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
      "a file can be made");
  return perictl::ReadUpgradeFile("/proc/self/fd/" + std::to_string(descriptor));
}

void RequireSameImages(const perictl::UpgradeFile& a, const perictl::UpgradeFile& b) {
  Require(a.bytes == b.bytes && a.problem == b.problem && a.images.size() == b.images.size(),
          "a file reads as its bytes do");
}

void CheckReader(Bytes bytes, Bytes main, Bytes slave) {
  const perictl::UpgradeFile file =
      perictl::CheckUpgradeFile(std::vector<uint8_t>(bytes.begin(), bytes.end()));
  RequireSameImages(file, ReadThroughFile(bytes));
  Require(file.images.size() <= 2, "a file has at most two images");
  for (const perictl::UpgradeImage& image : file.images) {
    const std::string text = perictl::SafeText(perictl::TextOf(image.header.product_name));
    Require(std::ranges::none_of(text, [](char c) { return static_cast<uint8_t>(c) < 0x20; }),
            "a text that is shown steers no terminal");
    Require(image.PacketCount() >= 1, "an image has its start packet");
  }
  bool refused = false;
  try {
    perictl::RequireSound(file, "file");
  } catch (const perictl::Failure& failure) {
    refused = true;
    Require(failure.code() == perictl::ExitCode::kDamagedFile, "a file is refused as damaged");
    Require(std::strchr(failure.what(), '\n') == nullptr, "a file is refused in one line");
  }
  Require(refused == !file.problem.empty(), "a file with a problem is refused");
  if (refused) return;

  // What perictl sends, the library takes, and takes the same way.
  Require(main.size() == file.images[0].Size(), "the library finds the main image");
  const bool two = file.images[0].header.slave_offset != 0;
  Require(two == (file.images.size() == 2) && two == !slave.empty(),
          "the library finds the slave image");
  if (two) Require(slave.size() == file.images[1].Size(), "the library finds the slave's end");
}

// ---- The input ---------------------------------------------------------------------------------

void Store(std::span<uint8_t> file, size_t offset, uint32_t number) {
  std::memcpy(file.data() + offset, &number, sizeof(number));
}

// Most changes break the checksum. This repairs it, or there would be little to see behind it.
void SealImage(std::span<uint8_t> file, size_t offset) {
  if (offset > file.size() || file.size() - offset < kUpgradeHeaderSize) return;
  const std::span<uint8_t> image = file.subspan(offset);
  uint32_t checked_length = 0;
  std::memcpy(&checked_length, image.data() + 4, sizeof(checked_length));
  Store(image, 0, sim::UpgradeFileBuilder::ChecksumOf(image, checked_length));
}

sim::Bytes TakeFile(Input& input) {
  const uint8_t flags = input.Byte();
  const size_t payload = input.Byte();
  const size_t slave_payload = input.Byte();
  const size_t gap = input.Byte() % 16;
  const size_t slave = kUpgradeHeaderSize + payload + gap;
  const bool two = (flags & 1) != 0;
  sim::Bytes file(two ? slave + kUpgradeHeaderSize + slave_payload : slave - gap);
  for (size_t i = 0; i < file.size(); ++i)
    file[i] = static_cast<uint8_t>(i * 7);
  const auto make_image = [&](size_t offset, size_t length) {
    std::fill_n(file.begin() + static_cast<ptrdiff_t>(offset), kUpgradeHeaderSize, uint8_t{0});
    Store(file, offset + 4, kUpgradeHeaderSize);
    Store(file, offset + 8, static_cast<uint32_t>(length));
  };
  make_image(0, payload);
  if (two) {
    make_image(slave, slave_payload);
    Store(file, 12, static_cast<uint32_t>(slave));
  }
  for (int changes = flags >> 4; changes > 0; --changes) {
    // Most of a header block is read by nobody.
    const size_t address = input.Below(1024) + (two && (flags & 8) != 0 ? slave : 0);
    const auto bytes = input.Bytes(input.Byte());
    const size_t count = std::min(bytes.size(), file.size() - address);
    std::copy_n(bytes.begin(), count, file.begin() + static_cast<ptrdiff_t>(address));
  }
  if ((flags & 2) == 0) {
    if (two) SealImage(file, slave);
    SealImage(file, 0);
  }
  // As often as not, to its end.
  if ((flags & 4) != 0) file.resize(file.size() - std::min<size_t>(file.size(), input.Word()));
  return file;
}

void Check(const ExactCopy& file) {
  const Bytes main = ImageAt(file.span(), 0);
  const size_t offset = main.empty() ? 0 : ReadImageHeader(file.data()).slave_offset;
  const Bytes slave = offset == 0 ? Bytes() : ImageAt(file.span(), offset);
  CheckSplit(file, 0, main);
  for (const int32_t which : {1, -1})
    CheckSplit(file, which, slave);
  const bool has_header = file.size() >= kUpgradeHeaderSize;
  if (main.empty() ? has_header && !HasHeader(file.span(), 0) : offset == 0 || !slave.empty()) {
    CheckWideSplit(file, 0, main);
    CheckWideSplit(file, 1, slave);
  }
  CheckReader(file.span(), main, slave);
  if (file.size() < kUpgradeHeaderSize) return;
  SAFEARRAY* const devices = CS_UsbUpgrade_FindBootDevices(file.data());
  Require(devices != nullptr, "a search gives an array");
  SafeArrayDestroy(devices);
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  perilink::fuzz::EnterWorld();
  // For the keys that a header brings to search for.
  static perilink::sim::Mouse mouse;
  mouse.PlugInBootMode();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  Input input(data, size);
  Check(ExactCopy(TakeFile(input)));
  perilink::ResetUpgradeLog();
  return 0;
}
