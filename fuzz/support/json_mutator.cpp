// Mutates inputs that are JSON as the documents that they are.
#include <array>
#include <cstring>
#include <random>
#include <string>

#include "common/escaped_text.h"
#include "common/json_text.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace perilink::fuzz {
namespace {

using tools::Json;
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
