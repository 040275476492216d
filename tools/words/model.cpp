#include "words/model.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <set>

#include "common/config_members.h"
#include "common/suggestion.h"

namespace perilink::tools {
namespace {

constexpr size_t kMostIds = 64;
constexpr size_t kMostChoices = 256;
constexpr size_t kLongestName = 60;

// ---- Describable fields ------------------------------------------------------------------------

// What the direct commands tell, beside the record.
constexpr struct {
  const char* name;
  size_t size;
} kFacts[] = {{"rssi", 1},     {"long_range", 1},     {"device_info", 3},      {"indicator_led", 3},
              {"bar_mode", 7}, {"serial_number", 10}, {"receiver_colours", 10}};

void AddLeaves(const std::vector<Member>& members, const std::string& path,
               std::vector<Describable>& all) {
  for (const Member& member : members) {
    const std::string name = Joined(path, member.name);
    // Events and names are words already.
    if (member.kind == MemberKind::kRecords && MeasureOf(member.members, member.members.back())) {
      continue;
    }
    if (!member.members.empty()) {
      AddLeaves(member.members, name + "[]", all);
    } else {
      all.push_back({name, member.size * member.count, member.kind == MemberKind::kNumber});
    }
  }
}

std::vector<Describable> BuildDescribables() {
  std::vector<Describable> all;
  AddLeaves(RecordMembers(), "", all);
  for (const auto& [name, size] : kFacts)
    all.push_back({name, size, size == 1});
  return all;
}

std::vector<std::string> DescribablePaths() {
  std::vector<std::string> paths;
  for (const Describable& it : Describables())
    paths.push_back(it.path);
  return paths;
}

// ---- Reading a document ------------------------------------------------------------------------

// A value of the document that knows its place in it.
class Node {
 public:
  Node(const Json& value, std::string path) : value_(value), path_(std::move(path)) {}

  [[noreturn]] void Refuse(const std::string& why) const {
    throw ConfigError((path_.empty() ? "" : path_ + ": ") + why);
  }

  void RequireMembers(std::initializer_list<const char*> names) const {
    if (!value_.is_object()) Refuse("an object is wanted");
    const std::vector<std::string> known(names.begin(), names.end());
    for (const auto& item : value_.items()) {
      if (std::find(known.begin(), known.end(), item.key()) == known.end()) {
        Refuse("there is no member '" + Quotable(item.key()) + "' here" +
               DidYouMean(item.key(), known));
      }
    }
  }

  bool Has(const char* name) const { return value_.contains(name); }
  Node operator[](const char* name) const {
    if (!value_.contains(name)) Refuse(std::string("the member '") + name + "' is missing");
    return {value_[name], Joined(path_, name)};
  }

  std::string Text() const {
    if (!value_.is_string()) Refuse("a text is wanted");
    const auto& text = value_.get_ref<const std::string&>();
    if (text.empty() || text.size() > kLongestName) {
      Refuse("a text of 1 to " + std::to_string(kLongestName) + " bytes is wanted");
    }
    if (Quotable(text) != text) Refuse("a text without control characters and \\ is wanted");
    return text;
  }
  std::string TextOr(const char* name, const std::string& otherwise) const {
    return Has(name) ? (*this)[name].Text() : otherwise;
  }
  bool Flag() const {
    if (!value_.is_boolean()) Refuse("true or false is wanted");
    return value_.get<bool>();
  }
  double Number() const {
    if (!value_.is_number()) Refuse("a number is wanted");
    const auto number = value_.get<double>();
    if (!std::isfinite(number) || std::fabs(number) > 1e12) Refuse("a smaller number is wanted");
    return number;
  }
  size_t Whole(size_t most) const {
    if (!value_.is_number_unsigned() || value_.get<uint64_t>() > most) {
      Refuse("a whole number, 0 to " + std::to_string(most) + ", is wanted");
    }
    return value_.get<size_t>();
  }

  std::vector<Node> Entries(size_t most) const {
    if (!value_.is_array()) Refuse("a list is wanted");
    if (value_.empty() || value_.size() > most) {
      Refuse("1 to " + std::to_string(most) + " entries are wanted");
    }
    std::vector<Node> entries;
    for (size_t i = 0; i < value_.size(); ++i)
      entries.emplace_back(value_[i], Indexed(path_, i));
    return entries;
  }
  std::vector<std::pair<std::string, Node>> Members(size_t most) const {
    if (!value_.is_object()) Refuse("an object is wanted");
    if (value_.empty() || value_.size() > most) {
      Refuse("1 to " + std::to_string(most) + " members are wanted");
    }
    std::vector<std::pair<std::string, Node>> members;
    for (const auto& item : value_.items())
      members.emplace_back(item.key(), Node(item.value(), Joined(path_, Quotable(item.key()))));
    return members;
  }
  bool IsList() const { return value_.is_array(); }

 private:
  const Json& value_;
  const std::string path_;
};

// ---- The parts of a description ----------------------------------------------------------------

// Letters, digits and '_': what people type.
std::string RequireName(const std::string& text, const Node& node) {
  const auto odd = [](char c) {
    return !(c >= 'a' && c <= 'z') && !(c >= '0' && c <= '9') && c != '_';
  };
  const bool begins = !text.empty() && text[0] >= 'a' && text[0] <= 'z';
  if (!begins || text.size() > kLongestName || std::any_of(text.begin(), text.end(), odd)) {
    node.Refuse("'" + Quotable(text) + "' is no name: small letters, digits and _ are possible");
  }
  return text;
}

DeviceId ParseId(const Node& node) {
  const std::string text = node.Text();
  const std::optional<uint64_t> vendor = NumberFromText("0x" + text.substr(0, 4));
  const std::optional<uint64_t> product =
      text.size() == 9 && text[4] == ':' ? NumberFromText("0x" + text.substr(5)) : std::nullopt;
  if (!vendor || !product) node.Refuse("'" + text + "' is not VENDOR:PRODUCT, as in 1234:abcd");
  return {static_cast<uint16_t>(*vendor), static_cast<uint16_t>(*product)};
}

std::vector<size_t> ParsePositions(const Node& node, size_t size) {
  std::vector<size_t> positions;
  for (const Node& entry : node.Entries(size)) {
    positions.push_back(entry.Whole(size - 1));
    if (std::count(positions.begin(), positions.end(), positions.back()) > 1) {
      entry.Refuse("the byte stands twice");
    }
  }
  return positions;
}

WordingType ParseType(const Node& node) {
  static const std::vector<std::pair<std::string, WordingType>> types = {
      {"number", WordingType::kNumber},
      {"switch", WordingType::kSwitch},
      {"color", WordingType::kColor},
      {"choice", WordingType::kChoice},
      {"bytes", WordingType::kBytes}};
  const std::string name = node.Text();
  for (const auto& [type_name, type] : types) {
    if (name == type_name) return type;
  }
  node.Refuse("'" + name + "' is not one of number, switch, color, choice and bytes");
}

std::vector<uint8_t> ParseChoiceBytes(const Node& node, size_t count) {
  std::vector<uint8_t> bytes;
  if (node.IsList()) {
    for (const Node& entry : node.Entries(count))
      bytes.push_back(static_cast<uint8_t>(entry.Whole(0xFF)));
    if (bytes.size() != count) node.Refuse(std::to_string(count) + " bytes are wanted");
    return bytes;
  }
  const size_t most = count >= 4 ? 0xFFFFFFFF : (size_t{1} << (8 * count)) - 1;
  uint64_t number = node.Whole(most);
  for (size_t i = 0; i < count; ++i, number >>= 8)
    bytes.push_back(static_cast<uint8_t>(number));
  return bytes;
}

void ParseChoices(const Node& node, Wording& wording) {
  for (const auto& [name, value] : node.Members(kMostChoices)) {
    if (name.empty() || name.size() > kLongestName || Quotable(name) != name) {
      value.Refuse("a choice's name is a short text without control characters and \\");
    }
    wording.choices.push_back({name, ParseChoiceBytes(value, wording.bytes.size())});
    for (const Choice& other : wording.choices) {
      if (&other != &wording.choices.back() && other.bytes == wording.choices.back().bytes) {
        value.Refuse("'" + other.name + "' stands for the same");
      }
    }
  }
}

void ParseNumber(const Node& node, Wording& wording) {
  if (wording.bytes.size() > 4) node.Refuse("a number has at most 4 bytes");
  if (node.Has("scale")) wording.scale = node["scale"].Number();
  if (std::fabs(wording.scale) < 1e-6) node["scale"].Refuse("a number other than 0 is wanted");
  if (node.Has("offset")) wording.offset = node["offset"].Number();
  if (node.Has("min")) wording.least = node["min"].Number();
  if (node.Has("max")) wording.most = node["max"].Number();
  if (wording.least && wording.most && *wording.least > *wording.most) {
    node.Refuse("'min' is above 'max'");
  }
}

// `size`: bytes of the field.
Wording ParseWording(const Node& node, size_t size, bool is_number) {
  Wording wording;
  wording.label = node.TextOr("label", "");
  wording.unit = node.TextOr("unit", "");
  wording.hidden = node.Has("hidden") && node["hidden"].Flag();
  for (size_t i = 0; i < size; ++i)
    wording.bytes.push_back(i);
  if (node.Has("bytes")) wording.bytes = ParsePositions(node["bytes"], size);
  if (node.Has("copies")) {
    for (const Node& entry : node["copies"].Entries(size)) {
      wording.copies.push_back(ParsePositions(entry, size));
      if (wording.copies.back().size() != wording.bytes.size()) {
        entry.Refuse(std::to_string(wording.bytes.size()) + " bytes are wanted, as in 'bytes'");
      }
    }
  }
  wording.type = node.Has("choices") ? WordingType::kChoice
                 : is_number || wording.bytes.size() == 1 || node.Has("unit") || node.Has("max")
                     ? WordingType::kNumber
                     : WordingType::kBytes;
  if (node.Has("type")) wording.type = ParseType(node["type"]);

  const bool has_range =
      node.Has("scale") || node.Has("offset") || node.Has("min") || node.Has("max");
  if (has_range && wording.type != WordingType::kNumber) {
    node.Refuse("'scale', 'offset', 'min' and 'max' are for numbers");
  }
  if (node.Has("choices") != (wording.type == WordingType::kChoice)) {
    node.Refuse("'choices' and the type 'choice' go together");
  }
  if (wording.type == WordingType::kNumber) ParseNumber(node, wording);
  if (wording.type == WordingType::kChoice) ParseChoices(node["choices"], wording);
  if (wording.type == WordingType::kColor && wording.bytes.size() != 3) {
    node.Refuse("a colour has 3 bytes: red, green, blue");
  }
  return wording;
}

FieldWords ParseField(const std::string& path, const Node& node) {
  const std::vector<Describable>& all = Describables();
  const auto field =
      std::find_if(all.begin(), all.end(), [&](const Describable& it) { return it.path == path; });
  if (field == all.end()) {
    node.Refuse("there is no such field" + DidYouMean(path, DescribablePaths()));
  }
  FieldWords words;
  words.path = path;
  if (node.Has("parts")) {
    node.RequireMembers({"name", "parts"});
    words.in_parts = true;
    for (const auto& [name, part] : node["parts"].Members(field->size)) {
      part.RequireMembers({"label", "unit", "hidden", "type", "bytes", "copies", "scale", "offset",
                           "min", "max", "choices"});
      words.parts.push_back(ParseWording(part, field->size, false));
      words.parts.back().name = RequireName(name, part);
    }
  } else {
    node.RequireMembers({"name", "label", "unit", "hidden", "type", "bytes", "copies", "scale",
                         "offset", "min", "max", "choices"});
    words.parts.push_back(ParseWording(node, field->size, field->is_number));
  }
  if (node.Has("name")) words.name = RequireName(node["name"].Text(), node["name"]);
  return words;
}

std::string ParseModelId(const Node& node) {
  const std::string id = node.Text();
  const auto odd = [](char c) {
    return !(c >= 'a' && c <= 'z') && !(c >= '0' && c <= '9') && c != '-';
  };
  const bool has_letter =
      std::any_of(id.begin(), id.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  if (std::any_of(id.begin(), id.end(), odd) || !has_letter) {
    node.Refuse("'" + id + "' is no short name: small letters, digits and - are possible");
  }
  return id;
}

void ParseKeys(const Node& node, KeyNames& keys) {
  for (const auto& [code, page] : node.Members(16)) {
    const std::optional<uint64_t> number = NumberFromText(code);
    if (!number || *number > 15) page.Refuse("a code, 0 to 15, is wanted before the colon");
    const std::optional<UsagePage> known = PageByName(page.Text());
    if (!known) page.Refuse("keyboard, buttons or consumer is wanted");
    keys.Add(static_cast<uint8_t>(*number), *known);
  }
}

void RequireHeader(const Node& root) {
  if (root["format"].Text() != kModelFormat) {
    root["format"].Refuse(std::string("\"") + kModelFormat + "\" is wanted");
  }
  if (root["version"].Whole(1'000'000) != kModelVersion) {
    root["version"].Refuse("only version " + std::to_string(kModelVersion) + " is understood");
  }
}

}  // namespace

const std::vector<Describable>& Describables() {
  static const std::vector<Describable> all = BuildDescribables();
  return all;
}

Model ParseModel(std::string_view text) {
  if (text.size() > kLongestModel) throw ConfigError("too long for a description of a model");
  const Json document = ParseJson<Json>(text);
  const Node root(document, "");
  root.RequireMembers({"format", "version", "model", "name", "kind", "ids", "boot_ids", "fields",
                       "aliases", "keys"});
  RequireHeader(root);
  Model model;
  model.id = ParseModelId(root["model"]);
  model.name = root["name"].Text();
  const std::string kind = root["kind"].Text();
  if (kind != "mouse" && kind != "keyboard") root["kind"].Refuse("mouse or keyboard is wanted");
  model.keyboard = kind == "keyboard";
  for (const Node& entry : root["ids"].Entries(kMostIds))
    model.ids.push_back(ParseId(entry));
  if (root.Has("boot_ids")) {
    for (const Node& entry : root["boot_ids"].Entries(kMostIds))
      model.boot_ids.push_back(ParseId(entry));
  }
  if (root.Has("fields")) {
    for (const auto& [path, field] : root["fields"].Members(Describables().size()))
      model.fields.push_back(ParseField(path, field));
  }
  if (root.Has("aliases")) {
    for (const auto& [name, path] : root["aliases"].Members(kMostIds))
      model.aliases.emplace_back(RequireName(name, path), path.Text());
  }
  if (root.Has("keys")) ParseKeys(root["keys"], model.keys);
  return model;
}

}  // namespace perilink::tools
