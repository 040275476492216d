// A configuration record through all that the tools make of one: JSON, words, an image, and the
// writes that bring it into a device. An input chooses one of these, describes an image
// (support/images.h), which parts of it are not known (a count, and so many parts, 2 each), and
// changes of the record.
#include <algorithm>
#include <string>
#include <vector>

#include "common/config.h"
#include "common/config_members.h"
#include "common/config_parts.h"
#include "support/images.h"
#include "support/records.h"
#include "support/require.h"
#include "words/vocabulary.h"

namespace perilink::fuzz {
namespace {

using tools::ConfigError;

std::string Image(const ProtocolData& record) {
  std::string image(PERILINK_FLASH_IMAGE_SIZE, '\xFF');
  for (const tools::ConfigPart& part : tools::ConfigParts()) {
    const std::vector<uint8_t> bytes = tools::EncodedPart(record, part);
    std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<ptrdiff_t>(part.address));
  }
  return image;
}

bool IsHoldable(const ProtocolData& record) {
  try {
    tools::RequireHoldable(record);
    return true;
  } catch (const ConfigError&) {
    return false;
  }
}

// What a device that holds the record gives back is the record.
void CheckImage(const ProtocolData& record) {
  const tools::ConfigFile loaded = tools::LoadConfig(Image(record));
  Require(loaded.from_image, "an image is taken for an image");
  Require(loaded.failed_checks.empty(), "an image that was made passes its checks");
  const ProtocolData canonical = tools::Canonical(record);
  const ProtocolData read_back = tools::Canonical(loaded.record);
  Require(Same(read_back, canonical), "a configuration survives its image");
  const std::string text = tools::ConfigToJson(read_back).dump();
  Require(text == tools::ConfigToJson(canonical).dump(), "its JSON is the same again");
  Require(Same(tools::LoadConfig(text).record, canonical), "and reads as the same configuration");
}

// The library writes what turns any other configuration into this one.
void CheckWrites(const ProtocolData& record) {
  tools::DeviceConfig device =
      tools::DeviceConfigFromImage(std::vector<uint8_t>(PERILINK_FLASH_IMAGE_SIZE, 0xFF));
  const auto any = [](const tools::ConfigPart&) { return true; };
  const tools::ConfigUpdate update = tools::PlanUpdate(device, record, any);
  Require(!update.writes.empty(), "an erased device needs writing");
  for (const tools::ConfigPart& part : update.writes) {
    const std::vector<uint8_t> bytes = tools::EncodedPart(record, part);
    Require(part.address + bytes.size() <= device.image.size(), "a part lies in the image");
    std::copy(bytes.begin(), bytes.end(),
              device.image.begin() + static_cast<ptrdiff_t>(part.address));
  }
  device = tools::DeviceConfigFromImage(device.image);
  Require(tools::PlanUpdate(device, record, any).writes.empty(), "after the writes none is left");
}

// Changes what no file can hold.
void Fit(const std::vector<tools::Member>& members, uint8_t* bytes) {
  for (const tools::Member& member : members) {
    for (size_t i = 0; i < member.count; ++i) {
      uint8_t* const at = bytes + member.offset + i * member.size;
      if (!member.members.empty()) Fit(member.members, at);
      if (member.kind != tools::MemberKind::kNumber) continue;
      uint32_t number = tools::ReadNumber(at, member.size);
      if (number > member.most) number %= member.most + 1;
      if (member.measures == "events" && number == 1) number = 0;
      tools::WriteNumber(at, member.size, number);
    }
  }
}

void CheckJson(const ProtocolData& record, const tools::KnownBytes& known) {
  const std::string json = tools::ConfigToJson(record, known).dump();
  const tools::ConfigFile file = tools::LoadConfig(json);
  Require(tools::ConfigToJson(file.record, file.known).dump() == json,
          "a configuration survives its JSON");
  Require((file.known & ~known).none(), "nothing is known that was not told");
}

void CheckWords(const ProtocolData& record, const tools::KnownBytes& known) {
  static const auto& words = *new tools::Vocabulary;
  Require(!words.Values(record, known).empty(), "a configuration can be shown");
  Require(words.Changes(record, known, record, known).empty(), "it does not differ from itself");
}

// One of them for an input: each costs as much as a hundred parsers.
void Check(uint8_t choice, const ProtocolData& record, const tools::KnownBytes& known) {
  switch (choice % 4) {
    case 0:
      return CheckJson(record, known);
    case 1:
      return CheckWords(record, known);
    case 2:
      if (IsHoldable(record)) CheckImage(record);
      return;
    default:
      if (IsHoldable(record)) CheckWrites(record);
  }
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  Input input(data, size);
  const uint8_t choice = input.Byte();
  const ExactCopy image = Configuration(TakeImage(input));
  ProtocolData record = Parse(image.data());
  RequireInRange(record);
  perilink::tools::KnownBytes known = perilink::tools::AllBytes();
  const auto& parts = perilink::tools::ConfigParts();
  for (int unknown = input.Byte() % 8; unknown > 0; --unknown)
    known &= ~PartBytes(parts[input.Below(parts.size())]);
  TakeChanges(input, record);
  Fit(perilink::tools::RecordMembers(), &record.report_rate);
  Check(choice, record, known);
  return 0;
}
