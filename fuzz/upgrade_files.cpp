// Upgrade files: the library's parser, its cutting of images, and perictl's check of a file, which
// must agree with it. An input makes a file: flags (bit 0: two images, bit 1: no checksum is made
// right, bit 2: its end is cut off, bit 3: the changes are those of the second image, bits 4 to 7:
// their number), the lengths of both payloads, the gap between the images, and for each change its
// address (2), its length and its bytes; then how much is cut off (2).
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "perictl/exit_codes.h"
#include "perictl/firmware/upgrade_file.h"
#include "perictl/terminal/text.h"
#include "perilink/upgrade.h"
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

void RequireTexts(const UsbUpgradeFile& record) {
  for (const std::wstring* text :
       {&record.chip_name, &record.file_id, &record.boot_input_key, &record.boot_output_key,
        &record.normal_input_key, &record.normal_output_key, &record.sensor_name,
        &record.product_name})
    Require(text->size() <= sizeof(TextField), "a text is no longer than its field");
}

// The packets carry the payload, the whole of it and nothing else.
void RequirePackets(const UsbUpgradeFile& record, Bytes payload) {
  constexpr size_t kPart = PERILINK_PACKET_PAYLOAD_SIZE;
  Require(record.packets.size() == 1 + (payload.size() + kPart - 1) / kPart,
          "as many packets as it takes");
  for (size_t i = 0; i < record.packets.size(); ++i) {
    const UpgradePacket& packet = record.packets[i];
    const bool last = i + 1 == record.packets.size();
    Require(packet.pending == 1 && packet.is_last == (last ? 1 : 0), "the last packet is marked");
    if (i == 0) continue;
    const Bytes part =
        payload.subspan(kPart * (i - 1), std::min(kPart, payload.size() - kPart * (i - 1)));
    Require(packet.data[PERILINK_PACKET_LENGTH_OFFSET] == part.size(),
            "a packet says how much it carries");
    Require(std::equal(part.begin(), part.end(), packet.data + PERILINK_PACKET_PAYLOAD_OFFSET),
            "a packet carries its part");
  }
}

void RequireSoundImage(Bytes image) {
  Require(image.size() >= kUpgradeHeaderSize, "an image has a header");
  const UpgradeFileHeader header = ReadImageHeader(image.data());
  Require(image.size() == kUpgradeHeaderSize + header.payload_length, "an image has its payload");
  Require(header.checksum == sim::UpgradeFileBuilder::ChecksumOf(image, header.checked_length),
          "an image has its checksum");
  UsbUpgradeFile record;
  const ExactCopy copy(image);
  ParseUpgradeImage(record, copy.data(), nullptr, 1000, copy.size());
  Require(record.valid, "an image that was found parses");
  RequireTexts(record);
  RequirePackets(record, image.subspan(kUpgradeHeaderSize));
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

// The wide split is told no length: for files in which everything that the header names was found.
void RequireWideSplit(const ExactCopy& file, int32_t which, Bytes image) {
  ExactCopy out({}, image.size());
  uint32_t length = 0;
  Require(UsbUpgrade_FileSplit(file.data(), 0, out.data(), &length, which), "the wide split finds");
  Require(length == image.size() && std::ranges::equal(out.span(), image),
          "the wide split gives the same image");
}

Bytes CheckSplit(const ExactCopy& file, int32_t which) {
  const Bytes image = FindImage(file.data(), file.size(), which);
  RequireManagedSplit(file, which, image);
  if (image.empty()) return image;
  const auto offset = static_cast<size_t>(image.data() - file.data());
  Require(offset <= file.size() && image.size() <= file.size() - offset,
          "an image lies in its file");
  RequireSoundImage(image);
  return image;
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
  const Bytes main = CheckSplit(file, 0);
  const Bytes slave = CheckSplit(file, 1);
  Require(slave.empty() || !main.empty(), "no slave image without its main image");
  if (!main.empty() && (!slave.empty() || ReadImageHeader(file.data()).slave_offset == 0)) {
    RequireWideSplit(file, 0, main);
    if (!slave.empty()) RequireWideSplit(file, 1, slave);
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
