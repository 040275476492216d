#include "common/json_text.h"

#include <unordered_set>
#include <vector>

#include "common/escaped_text.h"

namespace perilink::tools {
namespace {

// Far deeper than any document of ours, and far from the depth at which a copy fills the stack.
constexpr int kMostDepth = 100;
constexpr size_t kLongestQuote = 120;

// Looks at a text without making anything of it. (The parser's own callback, which could do the
// same, walks the whole list again behind each of its entries.)
class Inspector : public nlohmann::json_sax<InputJson> {
 public:
  bool start_object(std::size_t) override {
    open_.emplace_back();
    return Deepen();
  }
  bool key(string_t& name) override {
    if (open_.back().insert(name).second) return true;
    throw ConfigError(Quotable(name) + ": stands twice");
  }
  bool end_object() override {
    open_.pop_back();
    --depth_;
    return true;
  }
  bool start_array(std::size_t) override { return Deepen(); }
  bool end_array() override {
    --depth_;
    return true;
  }
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool parse_error(std::size_t, const std::string&,
                   const nlohmann::detail::exception& error) override {
    const std::string_view what = error.what();
    throw ConfigError("not JSON: " + Quotable(what.substr(what.find("] ") + 2)));
  }

 private:
  bool Deepen() {
    if (++depth_ > kMostDepth) throw ConfigError("lists stand in lists, too deep for any use");
    return true;
  }

  std::vector<std::unordered_set<std::string>> open_;  // the names in each object that is open
  int depth_ = 0;
};

}  // namespace

// A plain parser silently drops one of two members with the same name.
template <typename Document>
Document ParseJson(std::string_view text) {
  Inspector inspector;
  InputJson::sax_parse(text, &inspector);
  return Document::parse(text);
}

template Json ParseJson<Json>(std::string_view text);
template InputJson ParseJson<InputJson>(std::string_view text);

std::string Quotable(std::string_view text) {
  if (text.size() <= kLongestQuote) return EscapeText(text);
  return EscapeText(text.substr(0, kLongestQuote)) + "...";
}

}  // namespace perilink::tools
