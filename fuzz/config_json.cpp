// Configuration files and the other texts that people write: a configuration's JSON, its image, a
// description of a model, a field's path with a value, key events, escaped names. An input is a
// text, tried as all of them.
#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <string_view>

#include "common/config.h"
#include "common/config_members.h"
#include "common/config_parts.h"
#include "common/escaped_text.h"
#include "perilink/protocol_data.h"
#include "support/input.h"
#include "support/records.h"
#include "support/require.h"
#include "words/events_text.h"
#include "words/vocabulary.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace perilink::fuzz {
namespace {

using tools::ConfigError;
using tools::Json;

constexpr size_t kLongestPhrase = 400;

void RequireOneLine(const ConfigError& error) {
  const std::string_view what = error.what();
  const auto steers = [](char c) { return (c >= 0 && c < 0x20) || c == 0x7F; };
  Require(!what.empty() && std::none_of(what.begin(), what.end(), steers),
          "a refusal is a line that can be printed");
  Json(what).dump();  // throws unless it is UTF-8
}

// ---- Configurations ----------------------------------------------------------------------------

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

  // The library writes what turns any other configuration into this one.
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

void CheckRecord(const ProtocolData& record, const tools::KnownBytes& known, int indent) {
  const std::string json = tools::ConfigToJson(record, known).dump(indent);
  const tools::ConfigFile file = tools::LoadConfig(json);
  Require(tools::ConfigToJson(file.record, file.known).dump(indent) == json,
          "a configuration survives its JSON");
  Require((file.known & ~known).none(), "nothing is known that was not told");
  Require(!tools::Vocabulary().Values(record, known).empty(), "a configuration can be shown");
  const tools::Vocabulary words;
  Require(words.Changes(record, known, record, known).empty(), "it does not differ from itself");
  if (IsHoldable(record)) CheckImage(record);
}

void CheckFile(std::string_view text) {
  try {
    const tools::ConfigFile loaded = tools::LoadConfig(text);
    if (loaded.from_image) RequireInRange(loaded.record);
    CheckRecord(loaded.record, loaded.known, static_cast<int>(text.size() % 4) - 1);
  } catch (const ConfigError& error) {
    RequireOneLine(error);
  }
}

// ---- Phrases -----------------------------------------------------------------------------------

bool SameEvents(const std::vector<KeyEvent>& a, const std::vector<KeyEvent>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(KeyEvent)) == 0);
}

void CheckEvents(std::string_view text) {
  try {
    const std::vector<KeyEvent> events = tools::EventsFromText(text);
    Require(SameEvents(tools::EventsFromText(tools::EventsToText(events)), events),
            "events survive their text");
  } catch (const ConfigError& error) {
    RequireOneLine(error);
  }
}

void CheckEscapes(std::string_view text) {
  const std::vector<uint8_t> bytes(text.begin(), text.end());
  const std::string escaped = tools::EscapeText(bytes);
  Require(tools::UnescapeText(escaped) == bytes, "any bytes survive their text");
  Json(escaped).dump();  // throws unless it is UTF-8
  const auto unescaped = tools::UnescapeText(text);
  if (!unescaped) return;
  Require(tools::UnescapeText(tools::EscapeText(*unescaped)) == unescaped, "and so once more");
}

// "path=value", as `perictl set` takes it.
void CheckAssignment(const tools::Vocabulary& words, std::string_view text) {
  const size_t equals = std::min(text.find('='), text.size());
  const std::string_view path = text.substr(0, equals);
  ProtocolData record{};
  try {
    words.Find(path, record, tools::AllBytes());
    if (equals == text.size()) return;
    const ProtocolData before = record;
    const tools::Extent extent = words.Assign(record, path, text.substr(equals + 1));
    Require(extent.offset <= sizeof(record) && extent.size <= sizeof(record) - extent.offset,
            "a field lies in the record");
    for (const tools::Difference& it : tools::ConfigDifferences(before, record)) {
      const tools::Place place = tools::FindPlace(it.field);
      // The length of a name or of events stands before it.
      Require(
          place.offset + place.size > extent.offset && place.offset < extent.offset + extent.size,
          "a field that is set leaves the others alone");
    }
    words.Values(record, tools::AllBytes());
    CheckRecord(record, tools::AllBytes(), -1);
  } catch (const ConfigError& error) {
    RequireOneLine(error);
  }
}

// A description that is taken can be used, on any bytes.
void CheckModel(std::string_view text) {
  try {
    const tools::Model model = tools::ParseModel(text);
    tools::RequireUsableNames(model);
    const tools::Vocabulary words(&model);
    ProtocolData record{};
    for (uint8_t& byte : std::span(tools::BytesOf(record), sizeof record))
      byte =
          static_cast<uint8_t>(text.size() + static_cast<size_t>(&byte - tools::BytesOf(record)));
    for (const tools::Value& value : words.Values(record, tools::AllBytes())) {
      Require(!value.name.empty() && !value.text.empty(), "a value has a name and a text");
      tools::ToJson(value).dump();
      if (value.undescribed || value.raw.is_array() || value.value.is_null()) continue;
      ProtocolData again{};
      words.Assign(again, value.name, value.text);
    }
    // One field, chosen by the input.
    const std::vector<std::string> names = words.Names();
    for (const char* word : {"0", "1.5", "0x12", "on", "red"})
      CheckAssignment(words, names[text.size() % names.size()] + "=" + word);
  } catch (const ConfigError& error) {
    RequireOneLine(error);
  }
}

// ---- Mutation ----------------------------------------------------------------------------------

using Random = std::minstd_rand;

Json OtherValue(Random& random) {
  static const std::array<Json, 32> values = {0,     1,           2,           3,
                                              6,     7,           15,          16,
                                              30,    31,          70,          71,
                                              255,   256,         65535,       65536,
                                              -1,    4294967295u, 4294967296u, 1.5,
                                              1e300, "",          "\\x00",     "\\xff",
                                              "\\",  "name",      Json(),      Json::array(),
                                              true,  INT64_MIN,   UINT64_MAX,  Json::object()};
  return values[random() % values.size()];
}

// Somewhere in the document.
Json& SomeValue(Json& document, Random& random) {
  Json* value = &document;
  while (value->is_structured() && !value->empty() && random() % 16 != 0) {
    auto child = value->begin();
    std::advance(child, static_cast<ptrdiff_t>(random() % value->size()));
    value = &*child;
  }
  return *value;
}

void ChangeDocument(Json& document, Random& random) {
  Json& value = SomeValue(document, random);
  if (value.is_string() && random() % 2 == 0) {
    std::string text = value.get<std::string>();
    text.resize(text.size() + 8);
    text.resize(
        LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(text.data()), text.size() - 8, text.size()));
    value = tools::EscapeText(std::string_view(text));
  } else if (value.is_number_integer() && random() % 2 == 0) {
    value = random() % 256;
  } else if (value.is_array() && random() % 4 != 0) {
    // One entry more or less, as counts of events go.
    if (value.empty() || random() % 2 == 0) {
      value.push_back(value.empty()
                          ? Json{{"kind", 0}, {"code", 1}, {"keys", {4, 0}}, {"delay", 10}}
                          : value.back());
    } else {
      value.erase(random() % value.size());
    }
  } else {
    value = OtherValue(random);
  }
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size,
                                          unsigned seed) {
  using namespace perilink::fuzz;
  Random random(seed);
  if (random() % 4 == 0) return LLVMFuzzerMutate(data, size, max_size);
  Json document = Json::parse(data, data + size, nullptr, false);
  if (document.is_discarded()) return LLVMFuzzerMutate(data, size, max_size);
  for (size_t changes = 1 + random() % 3; changes > 0; --changes)
    ChangeDocument(document, random);
  const std::string text = document.dump();
  if (text.size() > max_size) return LLVMFuzzerMutate(data, size, max_size);
  std::memcpy(data, text.data(), text.size());
  return text.size();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  const ExactCopy copy({data, size});
  const std::string_view text(reinterpret_cast<const char*>(copy.data()), copy.size());
  CheckFile(text);
  CheckModel(text);
  if (size > kLongestPhrase) return 0;
  CheckEvents(text);
  CheckEscapes(text);
  CheckAssignment(perilink::tools::Vocabulary(), text);
  return 0;
}
