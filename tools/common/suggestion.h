// "Did you mean": the word that somebody may have wanted to type.
#ifndef PERILINK_TOOLS_COMMON_SUGGESTION_H_
#define PERILINK_TOOLS_COMMON_SUGGESTION_H_

#include <span>
#include <string>
#include <string_view>

namespace perilink::tools {

// The candidate that differs from the word by the fewest letters, if those are few; else empty.
std::string NearestWord(std::string_view word, std::span<const std::string> candidates);

// "; did you mean 'set'?", or nothing.
std::string DidYouMean(std::string_view word, std::span<const std::string> candidates);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_SUGGESTION_H_
