// A configuration in words: descriptions of models put to use, and fields that are set by name. An
// input is a text, tried as a description and as "path=value".
#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/config.h"
#include "common/config_members.h"
#include "support/input.h"
#include "support/refusals.h"
#include "support/require.h"
#include "words/vocabulary.h"

namespace perilink::fuzz {
namespace {

using tools::ConfigError;

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

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  static const auto& words = *new perilink::tools::Vocabulary;
  const ExactCopy copy({data, size});
  const std::string_view text(reinterpret_cast<const char*>(copy.data()), copy.size());
  CheckModel(text);
  CheckAssignment(words, text);
  return 0;
}
