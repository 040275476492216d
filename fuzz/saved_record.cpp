// The text of the saved battery record. An input is the text, a character for each byte.
#include "battery/saved_record.h"

#include <algorithm>
#include <string>

#include "support/input.h"
#include "support/require.h"
#include "support/saved_record.h"

namespace perilink::fuzz {
namespace {

// In the allocation of a text of exactly this length.
SavedRecord Parsed(const std::wstring& text) {
  const auto copy = std::make_unique<wchar_t[]>(text.size());
  std::copy(text.begin(), text.end(), copy.get());
  return ParseSavedRecord({copy.get(), text.size()});
}

void Check(const std::wstring& text) {
  const SavedRecord record = Parsed(text);
  Require(SameRecord(record, ExpectedRecord(text)), "a record is what its text says");
  const std::wstring again = std::to_wstring(record.time) + L'-' + std::to_wstring(record.level);
  Require(SameRecord(Parsed(again), record), "a record survives its text");
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::wstring text(data, data + size);
  perilink::fuzz::Check(text);
  // Digits of other scripts are none.
  std::wstring wide = text;
  std::ranges::transform(wide, wide.begin(), [](wchar_t c) { return c < 0x80 ? c : c * 0x101; });
  perilink::fuzz::Check(wide);
  return 0;
}
