#include "registry_tree.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "path.h"
#include "perilink_platform/registry.h"
#include "utf8.h"

namespace perilink::platform {
namespace {

constexpr std::string_view kFirstLine = "perilink registry 1";
constexpr size_t kLongestPart = 255;

std::string Quoted(std::wstring_view text) {
  std::string quoted = "\"";
  for (const wchar_t unit : text) {
    const auto c = static_cast<char32_t>(unit);
    char bytes[16];
    if (c == '\\' || c == '"') {
      quoted += '\\';
      quoted += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7F || !IsScalar(c)) {
      std::snprintf(bytes, sizeof(bytes), "\\x{%x}", static_cast<unsigned>(c));
      quoted += bytes;
    } else {
      char utf8[4];
      quoted.append(utf8, static_cast<size_t>(EncodeUtf8(c, utf8)));
    }
  }
  return quoted + '"';
}

// Each Take function takes something off the front of `line`; false if it isn't there.
bool TakeLiteral(std::string_view& line, std::string_view literal) {
  if (line.substr(0, literal.size()) != literal) return false;
  line.remove_prefix(literal.size());
  return true;
}

template <typename Number>
bool TakeNumber(std::string_view& line, int base, Number& number) {
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number, base);
  if (error != std::errc()) return false;
  line.remove_prefix(static_cast<size_t>(end - line.data()));
  return true;
}

bool TakeQuoted(std::string_view& line, std::wstring& text) {
  text.clear();
  if (!TakeLiteral(line, "\"")) return false;
  while (!line.empty()) {
    if (TakeLiteral(line, "\"")) return true;
    uint32_t code = 0;
    if (TakeLiteral(line, "\\x{")) {
      if (!TakeNumber(line, 16, code) || !TakeLiteral(line, "}")) return false;
      text += static_cast<wchar_t>(code);
      continue;
    }
    if (line.front() == '\\') line.remove_prefix(1);
    if (line.empty()) return false;
    const auto* const begin = reinterpret_cast<const uint8_t*>(line.data());
    const uint8_t* next = begin;
    text += static_cast<wchar_t>(TakeUtf8(next, begin + line.size()));
    line.remove_prefix(static_cast<size_t>(next - begin));
  }
  return false;
}

bool TakeBytes(std::string_view& line, std::vector<uint8_t>& data) {
  if (line.size() % 2 != 0) return false;
  while (!line.empty()) {
    std::string_view pair = line.substr(0, 2);
    uint8_t byte = 0;
    if (!TakeNumber(pair, 16, byte) || !pair.empty()) return false;
    data.push_back(byte);
    line.remove_prefix(2);
  }
  return true;
}

std::string ValueLine(const RegistryValue& value) {
  std::string line = "value " + Quoted(value.name);
  if (value.type == REG_SZ && value.data.size() % sizeof(wchar_t) == 0) {
    std::wstring text(value.data.size() / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(text.data(), value.data.data(), value.data.size());
    return line + " text " + Quoted(text);
  }
  line += ' ' + std::to_string(value.type) + ' ';
  for (const uint8_t byte : value.data) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", byte);
    line += digits;
  }
  return line;
}

bool TakeValue(std::string_view line, RegistryValue& value) {
  if (!TakeQuoted(line, value.name)) return false;
  if (TakeLiteral(line, " text ")) {
    std::wstring text;
    value.type = REG_SZ;
    if (!TakeQuoted(line, text)) return false;
    value.data.resize(text.size() * sizeof(wchar_t));
    if (!text.empty()) std::memcpy(value.data.data(), text.data(), value.data.size());
    return line.empty();
  }
  return TakeLiteral(line, " ") && TakeNumber(line, 10, value.type) && TakeLiteral(line, " ") &&
         TakeBytes(line, value.data);
}

}  // namespace

bool IsKeyPath(std::wstring_view path) {
  while (true) {
    const size_t end = std::min(path.find(L'\\'), path.size());
    if (end == 0 || end > kLongestPart) return false;
    if (end == path.size()) return true;
    path.remove_prefix(end + 1);
  }
}

const RegistryNode* RegistryTree::Find(const std::wstring& path) const {
  static const RegistryNode* const without_values = new RegistryNode;
  const std::wstring lower_path = LowerAscii(path);
  const auto found = nodes_.find(lower_path);
  if (found != nodes_.end()) return &found->second;
  // One below it begins with its path.
  const std::wstring below = lower_path + L'\\';
  const auto next = nodes_.lower_bound(below);
  const bool exists = path.empty() || (next != nodes_.end() && next->first.starts_with(below));
  return exists ? without_values : nullptr;
}

RegistryNode& RegistryTree::Ensure(const std::wstring& path) {
  return nodes_.try_emplace(LowerAscii(path), RegistryNode{path, {}}).first->second;
}

std::string RegistryTree::ToText() const {
  std::string text = std::string(kFirstLine) + '\n';
  for (const auto& [lower_path, node] : nodes_) {
    text += "key " + Quoted(node.path) + '\n';
    for (const auto& [lower_name, value] : node.values)
      text += ValueLine(value) + '\n';
  }
  return text;
}

bool RegistryTree::FromText(std::string_view text) {
  nodes_.clear();
  if (!TakeLiteral(text, kFirstLine) || !TakeLiteral(text, "\n")) return false;
  RegistryNode* node = nullptr;
  // A last line without its end has been cut: it doesn't count.
  for (size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    // Values below a damaged key line belong to no key.
    if (!TakeLine(text.substr(0, end), node) && text.substr(0, 3) == "key") node = nullptr;
    text.remove_prefix(end + 1);
  }
  return true;
}

bool RegistryTree::TakeLine(std::string_view line, RegistryNode*& node) {
  if (TakeLiteral(line, "key ")) {
    std::wstring path;
    if (!TakeQuoted(line, path) || !line.empty()) return false;
    if (!path.empty() && !IsKeyPath(path)) return false;
    node = &Ensure(path);
    return true;
  }
  RegistryValue value;
  if (node == nullptr || !TakeLiteral(line, "value ") || !TakeValue(line, value)) return false;
  const std::wstring lower_name = LowerAscii(value.name);
  node->values[lower_name] = std::move(value);
  return true;
}

}  // namespace perilink::platform
