// Configuration files and the other texts that people write: a configuration's JSON, its image, a
// field's path with a value, key events, escaped names. An input is a text, tried as all of them.
#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "common/config.h"
#include "common/config_parts.h"
#include "common/escaped_text.h"
#include "common/events_text.h"
#include "perilink/protocol_data.h"
#include "support/input.h"
#include "support/records.h"
#include "support/require.h"

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
  const tools::LoadedConfig loaded = tools::LoadConfig(Image(record));
  Require(loaded.from_image, "an image is taken for an image");
  Require(loaded.failed_checks.empty(), "an image that was made passes its checks");
  const ProtocolData canonical = tools::Canonical(record);
  const ProtocolData read_back = tools::Canonical(loaded.record);
  Require(Same(read_back, canonical), "a configuration survives its image");
  const std::string text = tools::ConfigToJson(read_back).dump();
  Require(text == tools::ConfigToJson(canonical).dump(), "its JSON is the same again");
  Require(Same(tools::ConfigFromText(text), canonical), "and reads as the same configuration");

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

void CheckRecord(const ProtocolData& record, int indent) {
  const std::string json = tools::ConfigToJson(record).dump(indent);
  Require(Same(tools::ConfigFromText(json), record), "a configuration survives its JSON");
  Require(!tools::ConfigText(record).empty(), "a configuration can be shown");
  if (IsHoldable(record)) CheckImage(record);
}

void CheckFile(std::string_view text) {
  try {
    const tools::LoadedConfig loaded = tools::LoadConfig(text);
    if (loaded.from_image) RequireInRange(loaded.record);
    CheckRecord(loaded.record, static_cast<int>(text.size() % 4) - 1);
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

// "path=value", as `perictl config set` takes it.
void CheckAssignment(std::string_view text) {
  const size_t equals = std::min(text.find('='), text.size());
  const std::string_view path = text.substr(0, equals);
  ProtocolData record{};
  try {
    const tools::Extent extent = tools::FindExtent(path);
    Require(extent.offset <= sizeof(record) && extent.size <= sizeof(record) - extent.offset,
            "a field lies in the record");
    tools::GetConfigField(record, path);
    if (equals == text.size()) return;
    const Json value = Json::parse(text.substr(equals + 1), nullptr, false);
    if (value.is_discarded()) return;
    const ProtocolData before = record;
    tools::SetConfigField(record, path, value);
    const auto first = &before.report_rate;
    const auto second = &record.report_rate;
    Require(std::equal(first, first + extent.offset, second) &&
                std::equal(first + extent.offset + extent.size, first + sizeof(record),
                           second + extent.offset + extent.size),
            "a field that is set leaves the others alone");
    CheckRecord(record, -1);
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
  if (size > kLongestPhrase) return 0;
  CheckEvents(text);
  CheckEscapes(text);
  CheckAssignment(text);
  return 0;
}
