// Descriptions of models. An input is a document.
#include <algorithm>
#include <string>
#include <string_view>

#include "support/input.h"
#include "support/refusals.h"
#include "support/require.h"
#include "words/model.h"

namespace perilink::fuzz {
namespace {

using tools::FieldWords;
using tools::Model;

bool SameFields(const FieldWords& a, const FieldWords& b) {
  return a.path == b.path && a.name == b.name && a.in_parts == b.in_parts &&
         a.parts.size() == b.parts.size();
}

void Check(std::string_view text) {
  const Model model = tools::ParseModel(text);
  Require(!model.id.empty(), "a model has an id");
  for (const FieldWords& field : model.fields) {
    Require(!field.parts.empty() || field.in_parts, "a field has words");
    const auto is_its = [&](const tools::Describable& it) { return it.path == field.path; };
    Require(std::ranges::any_of(tools::Describables(), is_its), "what is described exists");
  }
  // A document is the same however it is laid out.
  const std::string other = tools::Json::parse(text).dump(static_cast<int>(text.size() % 3));
  if (other.size() > tools::kLongestModel) return;
  const Model again = tools::ParseModel(other);
  Require(again.id == model.id && again.name == model.name && again.keyboard == model.keyboard &&
              again.ids == model.ids && again.boot_ids == model.boot_ids &&
              again.aliases == model.aliases &&
              std::ranges::equal(again.fields, model.fields, SameFields),
          "a description survives its layout");
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
