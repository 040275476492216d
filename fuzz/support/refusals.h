// How the tools refuse what people write.
#ifndef PERILINK_FUZZ_SUPPORT_REFUSALS_H_
#define PERILINK_FUZZ_SUPPORT_REFUSALS_H_

#include <algorithm>
#include <string_view>

#include "common/json_text.h"
#include "support/require.h"

namespace perilink::fuzz {

inline void RequireOneLine(const tools::ConfigError& error) {
  const std::string_view what = error.what();
  const auto steers = [](char c) { return (c >= 0 && c < 0x20) || c == 0x7F; };
  Require(!what.empty() && std::none_of(what.begin(), what.end(), steers),
          "a refusal is a line that can be printed");
  tools::Json(what).dump();  // throws unless it is UTF-8
}

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_REFUSALS_H_
