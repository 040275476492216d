// The JSON form of a configuration. An input is a document.
#include <string>
#include <string_view>

#include "common/config.h"
#include "support/input.h"
#include "support/records.h"
#include "support/refusals.h"
#include "support/require.h"

namespace perilink::fuzz {
namespace {

void Check(std::string_view text) {
  const tools::ConfigFile loaded = tools::ConfigFromJson(tools::ParseJson<tools::InputJson>(text));
  const int indent = static_cast<int>(text.size() % 4) - 1;
  const std::string json =
      tools::ConfigToJson(loaded.record, loaded.known, loaded.model).dump(indent);
  const tools::ConfigFile again = tools::LoadConfig(json);
  Require(!again.from_image && again.model == loaded.model, "a configuration is one of its model");
  Require((again.known & ~loaded.known).none(), "nothing is known that was not told");
  Require(again.unknown.empty(), "what is written has nothing beside its fields");
  Require(tools::ConfigToJson(again.record, again.known, again.model).dump(indent) == json,
          "a configuration survives its JSON");
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  const ExactCopy copy({data, size});
  try {
    Check({reinterpret_cast<const char*>(copy.data()), copy.size()});
  } catch (const perilink::tools::ConfigError& error) {
    RequireOneLine(error);
  }
  return 0;
}
