// The text that the registry is kept as. The first byte of an input chooses what the rest is: a
// text (even), or the registry's contents, a list of values (odd): type, path of the key, name,
// bytes.
#include <algorithm>
#include <string>

#include "registry_tree.h"
#include "support/input.h"
#include "support/require.h"

namespace perilink::fuzz {
namespace {

using platform::RegistryTree;
using platform::RegistryValue;

// Lines that say nothing, each in a way of its own.
constexpr std::string_view kDamaged[] = {
    "?",
    "key \"\\\\",
    "value \"x\" text \"no end",
    "value \"x\" text \"\\x{zz}\"",
    "value \"x\" 1 0g",
    "value \"x\" 1 012",
    "value \"x\" 99999999999 00",
};

void CheckText(std::string_view text) {
  RegistryTree tree;
  if (tree.FromText(text)) {
    const std::string written = tree.ToText();
    RegistryTree again;
    Require(again.FromText(written), "a registry that was written can be read");
    Require(again.ToText() == written, "nothing of a registry is lost");
    for (const std::string_view line : kDamaged) {
      Require(again.FromText(written + std::string(line) + "\n") && again.ToText() == written,
              "a damaged line costs no more than itself");
    }
    // A line without its end has been cut off.
    again.FromText(written.substr(0, written.size() - 1));
    Require(written.starts_with(again.ToText()), "what stands before a cut is there");
  } else {
    Require(tree.ToText() == RegistryTree().ToText(), "a file of another form gives nothing");
  }
}

// Characters of any kind: of ASCII, of other scripts, and none at all.
std::wstring TakeName(Input& input) {
  std::wstring name;
  for (const uint32_t byte : input.Bytes(input.Byte() % 24))
    name += static_cast<wchar_t>(byte << (byte < 0xC0 ? 0 : byte < 0xE0 ? 10 : 24));
  return name;
}

wchar_t Raised(wchar_t c) {
  return c >= L'a' && c <= L'z' ? c - (L'a' - L'A') : c;
}
wchar_t Lowered(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? c + (L'a' - L'A') : c;
}

// The way of the last value through the text: its name, its type and its bytes are the same again.
void CheckContents(Input& input) {
  RegistryTree tree;
  std::wstring path;
  std::wstring lower_name;
  RegistryValue value;
  while (!input.Empty()) {
    const uint8_t head = input.Byte();
    path = TakeName(input);
    if (!platform::IsKeyPath(path)) path = L"Key";
    value.name = TakeName(input);
    value.type = head % 12;
    const auto bytes = input.Bytes(head / 4);
    value.data.assign(bytes.begin(), bytes.end());
    lower_name = value.name;
    std::ranges::transform(lower_name, lower_name.begin(), Lowered);
    tree.Ensure(path).values[lower_name] = value;
  }
  const std::string text = tree.ToText();
  RegistryTree again;
  Require(again.FromText(text), "a registry that was written can be read");
  Require(again.ToText() == text, "nothing of a registry is lost");
  std::ranges::transform(path, path.begin(), Raised);
  const auto* const node = again.Find(path);
  Require(node != nullptr, "a key is found, whatever its case");
  if (path.empty()) return;  // nothing was stored
  const auto found = node->values.find(lower_name);
  Require(found != node->values.end() && found->second.name == value.name &&
              found->second.type == value.type && found->second.data == value.data,
          "a value is what was stored");
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  Input input(data, size);
  if ((input.Byte() & 1) != 0) {
    CheckContents(input);
    return 0;
  }
  const ExactCopy text(input.Bytes(size));
  CheckText({reinterpret_cast<const char*>(text.data()), text.size()});
  return 0;
}
