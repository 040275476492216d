// Key events and names as people write them. An input is a phrase, tried as both.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "common/escaped_text.h"
#include "support/input.h"
#include "support/refusals.h"
#include "support/require.h"
#include "words/events_text.h"

namespace perilink::fuzz {
namespace {

using tools::ConfigError;
using tools::Json;

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

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  const ExactCopy copy({data, size});
  const std::string_view text(reinterpret_cast<const char*>(copy.data()), copy.size());
  CheckEvents(text);
  CheckEscapes(text);
  return 0;
}
