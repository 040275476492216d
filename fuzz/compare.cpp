// Compare and update. An input describes what a device holds, what it shall hold, and changes of
// that which a host makes in its record (support/images.h).
#include "protocol/compare.h"

#include <array>
#include <vector>

#include "perilink/protocol_data.h"
#include "support/images.h"
#include "support/records.h"
#include "support/require.h"

namespace perilink::fuzz {
namespace {

constexpr size_t kImage = PERILINK_FLASH_IMAGE_SIZE;

// Writes what an update wants written into the image, each byte at most once.
void Apply(const std::vector<FlashWrite>& writes, std::span<uint8_t> image) {
  std::array<bool, kImage> written{};
  for (const FlashWrite& write : writes) {
    Require(write.length >= 2 && write.length <= write.data.size(), "a write is 2 to 383 bytes");
    Require(size_t{write.address} + write.length <= image.size(), "a write lies in the image");
    for (size_t i = 0; i < write.length; ++i) {
      Require(!written[write.address + i], "no byte is written twice");
      written[write.address + i] = true;
      image[write.address + i] = write.data[i];
    }
  }
}

// The level that a device holds and a parse did not take may count once there are more levels.
bool LevelIsLeftOver(const uint8_t* image, const ProtocolData& held, const ProtocolData& wanted) {
  return held.current_dpi_level == wanted.current_dpi_level && image[4] != held.current_dpi_level;
}

// A device that gets the writes holds the record.
void CheckUpdate(const uint8_t* held_image, const uint8_t* wanted_image) {
  const ProtocolData held = Parse(held_image);
  const ProtocolData wanted = Parse(wanted_image);
  ProtocolData record = wanted;
  ProtocolData previous = held;
  const std::vector<FlashWrite> writes = CompareProtocolData(record, previous);
  Require(Same(record, wanted), "a compare leaves a sound record alone");
  Require(Same(Canonical(previous), Canonical(wanted)), "the previous record takes the new values");

  ExactCopy image({held_image, kImage});
  Apply(writes, {image.data(), kImage});
  ProtocolData read_back = Canonical(Parse(image.data(), held));
  if (LevelIsLeftOver(held_image, held, wanted)) {
    read_back.current_dpi_level = wanted.current_dpi_level;
  }
  Require(Same(read_back, Canonical(wanted)), "a device that was updated holds the record");
}

// Whatever a host makes of its record.
void CheckHostsRecord(const uint8_t* held_image, ProtocolData record) {
  ProtocolData previous = Parse(held_image);
  ExactCopy image({held_image, kImage});
  Apply(CompareProtocolData(record, previous), {image.data(), kImage});
  Require(CompareProtocolData(record, previous).empty(), "a second compare finds nothing to write");

  // The other way round, from what no device can hold.
  ProtocolData back = Parse(held_image);
  Apply(CompareProtocolData(back, record), {image.data(), kImage});
  Require(CompareProtocolData(back, record).empty(), "nor one against what the host had");
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  Input input(data, size);
  const ExactCopy held = Configuration(TakeImage(input));
  const ExactCopy wanted = Configuration(TakeImage(input));
  CheckUpdate(held.data(), wanted.data());
  CheckUpdate(wanted.data(), held.data());
  ProtocolData record = Parse(wanted.data());
  TakeChanges(input, record);
  CheckHostsRecord(held.data(), record);
  return 0;
}
