// Upgrade files: the library's parser, its cutting of images, and perictl's check of a file, which
// must agree with it. An input is a file.
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

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

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

// ---- Mutation ----------------------------------------------------------------------------------

uint32_t ReadNumber(const uint8_t* bytes) {
  uint32_t number = 0;
  std::memcpy(&number, bytes, sizeof(number));
  return number;
}

// Most changes break the checksum. This repairs it, or there would be little to see behind it.
void SealImage(std::span<uint8_t> file, size_t offset) {
  if (offset > file.size() || file.size() - offset < kUpgradeHeaderSize) return;
  const std::span<uint8_t> image = file.subspan(offset);
  const uint32_t checksum =
      sim::UpgradeFileBuilder::ChecksumOf(image, ReadNumber(image.data() + 4));
  std::memcpy(image.data(), &checksum, sizeof(checksum));
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size,
                                          unsigned seed) {
  using namespace perilink::fuzz;
  size = LLVMFuzzerMutate(data, size, max_size);
  const std::span<uint8_t> file(data, size);
  if (size < kUpgradeHeaderSize || seed % 4 == 0) return size;
  // As often as not, a payload that reaches to the end of the file.
  const auto rest = static_cast<uint32_t>(size - kUpgradeHeaderSize);
  if (seed % 4 == 1) std::memcpy(data + 8, &rest, sizeof(rest));
  if (seed % 4 != 1) SealImage(file, ReadNumber(data + 12));
  SealImage(file, 0);
  return size;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  perilink::fuzz::EnterWorld();
  // For the keys that a header brings to search for.
  static perilink::sim::Mouse mouse;
  mouse.PlugInBootMode();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  const ExactCopy file({data, size});
  const Bytes main = CheckSplit(file, 0);
  const Bytes slave = CheckSplit(file, 1);
  Require(slave.empty() || !main.empty(), "no slave image without its main image");
  if (!main.empty() &&
      (!slave.empty() || perilink::ReadImageHeader(file.data()).slave_offset == 0)) {
    RequireWideSplit(file, 0, main);
    if (!slave.empty()) RequireWideSplit(file, 1, slave);
  }
  CheckReader(file.span(), main, slave);
  if (size >= kUpgradeHeaderSize) {
    SAFEARRAY* const devices = CS_UsbUpgrade_FindBootDevices(file.data());
    Require(devices != nullptr, "a search gives an array");
    SafeArrayDestroy(devices);
  }
  perilink::ResetUpgradeLog();
  return 0;
}
