// JSON that people and strangers write: read strictly, in a time that grows with its length alone.
#ifndef PERILINK_TOOLS_COMMON_JSON_TEXT_H_
#define PERILINK_TOOLS_COMMON_JSON_TEXT_H_

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace perilink::tools {

// What the tools write: members keep their order.
using Json = nlohmann::ordered_json;
// What they read. Its members are found in logarithmic time, whoever chose their number.
using InputJson = nlohmann::json;

// A file, document or word that makes no sense. One line of printable text; names the field when it
// is about one.
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws ConfigError for what is not JSON, for a name that stands twice in its object, and for
// lists in lists beyond any use. `Document` is Json or InputJson; a Json document takes a time that
// grows with the square of an object's members, so its text must be short.
template <typename Document>
Document ParseJson(std::string_view text);

// Foreign text as a part of a message: printable, and cut off where it is long.
std::string Quotable(std::string_view text);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_JSON_TEXT_H_
