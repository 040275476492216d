// A configuration image through the parsers and the converters of its parts. An input describes the
// image (support/images.h).
#include <algorithm>
#include <cstring>

#include "perilink/config_layout.h"
#include "perilink/protocol_data.h"
#include "sim/report.h"
#include "support/images.h"
#include "support/records.h"
#include "support/require.h"

namespace perilink::fuzz {
namespace {

bool IsSwitch(const ConfigField& field) {
  return field.rule == FieldRule::kSwitch || field.rule == FieldRule::kNormalizedSwitch;
}

// What a field becomes by the public table: its value, its fallback, or what it was.
void RequireField(const uint8_t* stored, const ConfigField& field, const uint8_t* before,
                  const uint8_t* after, uint8_t level_count) {
  bool accepted = sim::CheckOf({stored, field.width}) == stored[field.width];
  if (field.rule == FieldRule::kBelowLevelCount) accepted = accepted && *stored < level_count;
  const uint8_t* wanted = accepted ? stored : field.keeps ? before : field.fallback.data();
  if (IsSwitch(field)) {
    Require(*after == (*wanted != 0 ? 1 : 0), "a switch is taken as 0 or 1");
  } else {
    Require(std::memcmp(after, wanted, field.width) == 0, "a field is what its table says");
  }
}

void RequireFields(const uint8_t* image, ProtocolData before, ProtocolData after) {
  for (const ConfigGroup& group : kConfigGroups) {
    for (size_t i = 0; i < size_t{group.count} * group.field_count; ++i) {
      const ConfigField& field = group.fields[i % group.field_count];
      const size_t entry = i / group.field_count;
      const size_t at = group.record_offset + entry * group.record_stride + field.record_offset;
      RequireField(image + field.flash_address + entry * field.flash_stride, field,
                   &before.report_rate + at, &after.report_rate + at, after.dpi_level_count);
    }
  }
}

void CheckParsers(const uint8_t* image) {
  ProtocolData filled;
  std::memset(&filled, 0xA5, sizeof(filled));
  for (const ProtocolData& before : {ProtocolData{}, filled}) {
    const ProtocolData parsed = Parse(image, before);
    RequireFields(image, before, parsed);
    RequireInRange(Canonical(parsed));
    Require(Same(Parse(image, parsed), parsed), "a second parse changes nothing");

    const ExactCopy block({image, PERILINK_SETTINGS_BLOCK_SIZE});
    ProtocolData settings = before;
    MouseConfigParser(block.data(), &settings);
    ProtocolData expected = before;
    const ConfigField& last = kSettings.back();
    std::copy_n(&parsed.report_rate, last.record_offset + last.width, &expected.report_rate);
    Require(Same(settings, expected), "the settings are those of the whole parse, and no more");
  }
  RequireInRange(Parse(image));
}

void CheckConverters(const uint8_t* image) {
  const ProtocolData parsed = Parse(image);
  // Each finds 0xA5, and leaves it where it has nothing to say.
  const auto read = [image](auto convert, size_t address, size_t size, auto record) {
    std::memset(&record, 0xA5, sizeof(record));
    convert(ExactCopy({image + address, size}).data(), &record);
    return record;
  };
  const auto same = [](const auto& a, const auto& b) { return !std::memcmp(&a, &b, sizeof(a)); };
  Require(same(read(BufferToDPILed, 76, 8, DPILed{}), parsed.dpi_led), "one indicator, two ways");
  Require(same(read(BufferToLedBar, 160, 9, LedBar{}), parsed.led_bar), "one bar, two ways");
  Require(same(read(BufferToKeyFunMap, 96, 4, KeyFun{}), parsed.key_functions[0]),
          "one key, two ways");
  DPILevel level;
  std::memset(&level, 0xA5, sizeof(level));
  level.color = parsed.dpi_levels[0].color;
  Require(same(read(BufferToDPIColor, 44, 4, DPILevel{}), level), "one colour, two ways");
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  Input input(data, size);
  const ExactCopy image = Configuration(TakeImage(input));
  CheckParsers(image.data());
  CheckConverters(image.data());
  return 0;
}
