// Compare and update. An input describes what a device holds, what it shall hold, and changes of
// that which a host makes in its record (support/images.h).
#include "protocol/compare.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "perilink/config_layout.h"
#include "perilink/protocol_data.h"
#include "sim/flash_image.h"
#include "sim/report.h"
#include "support/images.h"
#include "support/records.h"
#include "support/require.h"

namespace perilink::fuzz {
namespace {

constexpr size_t kImage = PERILINK_FLASH_IMAGE_SIZE;

// Fields that differ are written as the public table has them, each by itself and in its order;
// then come the slots. What is no field stays as it was.
std::vector<FlashWrite> Compare(ProtocolData& record, ProtocolData& previous) {
  ProtocolData expected = previous;
  const std::vector<FlashWrite> writes = CompareProtocolData(record, previous);
  auto write = writes.begin();
  for (const ConfigGroup& group : kConfigGroups) {
    for (size_t i = 0; i < size_t{group.count} * group.field_count; ++i) {
      const ConfigField& field = group.fields[i % group.field_count];
      const size_t entry = i / group.field_count;
      const size_t at = group.record_offset + entry * group.record_stride + field.record_offset;
      const uint8_t* const value = &record.report_rate + at;
      uint8_t* const old_value = &expected.report_rate + at;
      if (std::memcmp(value, old_value, field.width) == 0) continue;
      std::memcpy(old_value, value, field.width);
      sim::Bytes bytes(value, value + field.width);
      if (field.rule == FieldRule::kNormalizedSwitch) bytes[0] = bytes[0] != 0 ? 1 : 0;
      bytes.push_back(sim::CheckOf(bytes));
      Require(write != writes.end() &&
                  write->address == field.flash_address + entry * field.flash_stride &&
                  std::ranges::equal(write->bytes(), bytes),
              "a field that differs is written");
      ++write;
    }
  }
  Require(std::memcmp(&previous, &expected, offsetof(ProtocolData, shortcuts)) == 0,
          "the previous record takes the new fields, and no more");
  for (size_t least = sim::ShortcutAddress(0); write != writes.end(); ++write) {
    Require(write->address >= least && write->address < sim::MacroAddress(sim::kSlotCount),
            "slots are written in their order, and fields that are as they were are not");
    least = write->address + size_t{1};
  }
  for (const ProtocolData* it : {&record, &previous})
    for (const ShortcutKey& shortcut : it->shortcuts)
      Require(shortcut.count <= 6 && shortcut.count != 1, "a shortcut is sound or is emptied");
  return writes;
}

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
  const std::vector<FlashWrite> writes = Compare(record, previous);
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
  ProtocolData same = record;
  ProtocolData copy = record;
  Require(Compare(same, copy).empty(), "equal records give no writes");
  ProtocolData previous = Parse(held_image);
  ExactCopy image({held_image, kImage});
  Apply(Compare(record, previous), {image.data(), kImage});
  Require(Compare(record, previous).empty(), "a second compare finds nothing to write");

  // The other way round, from what no device can hold.
  ProtocolData back = Parse(held_image);
  Apply(Compare(back, record), {image.data(), kImage});
  Require(Compare(back, record).empty(), "nor one against what the host had");
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
