#include "common/json_text.h"

#include <unordered_set>
#include <vector>

#include "common/escaped_text.h"

namespace perilink::tools {
namespace {

// Far deeper than any document of ours, and far from the depth at which a copy fills the stack.
constexpr int kMostDepth = 100;
constexpr size_t kLongestQuote = 80;

}  // namespace

// A plain parser silently drops one of two members with the same name.
template <typename Document>
Document ParseJson(std::string_view text) {
  std::vector<std::unordered_set<std::string>> open;
  const auto watch = [&](int depth, typename Document::parse_event_t event, Document& parsed) {
    using Event = typename Document::parse_event_t;
    if (depth > kMostDepth) throw ConfigError("lists stand in lists, too deep for any use");
    if (event == Event::object_start) open.emplace_back();
    if (event == Event::object_end) open.pop_back();
    if (event == Event::key) {
      const auto& name = parsed.template get_ref<const std::string&>();
      if (!open.back().insert(name).second) throw ConfigError(Quotable(name) + ": stands twice");
    }
    return true;
  };
  try {
    return Document::parse(text, watch);
  } catch (const typename Document::parse_error& error) {
    const std::string_view what = error.what();
    throw ConfigError("not JSON: " + EscapeText(what.substr(what.find("] ") + 2)));
  }
}

template Json ParseJson<Json>(std::string_view text);
template InputJson ParseJson<InputJson>(std::string_view text);

std::string Quotable(std::string_view text) {
  if (text.size() <= kLongestQuote) return EscapeText(text);
  return EscapeText(text.substr(0, kLongestQuote)) + "...";
}

}  // namespace perilink::tools
