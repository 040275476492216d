#include "config/config_report.h"

#include <algorithm>
#include <span>

#include "common/files.h"
#include "terminal/terminal.h"

namespace perictl {
namespace {

namespace tools = perilink::tools;
using tools::Change;
using tools::Value;

// No configuration comes near it, and a device file may have no end.
constexpr size_t kLongestConfigFile = 1 << 20;

// The list or record that a value stands in: "dpi_levels[2]"; empty when it stands for itself.
std::string GroupOf(const Value& value) {
  const size_t dot = value.name.rfind('.');
  return dot == std::string::npos ? "" : value.name.substr(0, dot);
}

// "800 dpi", "color #ff0000": the name's last step, unless the unit says it.
std::string InGroup(const Value& value) {
  const std::string step = value.name.substr(value.name.rfind('.') + 1);
  return step == value.unit ? value.text : step + " " + value.text;
}

void AddLine(Report& report, std::span<const Value> group) {
  const Value& first = group.front();
  if (group.size() == 1) {
    const std::string gap(first.text.size() < 20 ? 20 - first.text.size() : 2, ' ');
    const bool alone = GroupOf(first).empty();
    return report.Line(alone ? first.name : GroupOf(first),
                       first.text + (alone && !first.label.empty() ? gap + first.label : ""));
  }
  std::string text;
  for (const Value& value : group)
    text += (text.empty() ? "" : ", ") + InGroup(value);
  report.Line(GroupOf(first), text);
}

void AddLines(Report& report, std::span<const Value> values) {
  while (!values.empty()) {
    size_t count = 1;
    const std::string group = GroupOf(values.front());
    while (!group.empty() && count < values.size() && GroupOf(values[count]) == group)
      ++count;
    AddLine(report, values.first(count));
    values = values.subspan(count);
  }
}

Json ToJson(const std::vector<Value>& values) {
  Json list = Json::array();
  for (const Value& value : values)
    list.push_back(tools::ToJson(value));
  return list;
}

}  // namespace

tools::ConfigFile ReadConfigFile(const std::string& name) {
  const std::string content = tools::ReadWholeFile(name, kLongestConfigFile);
  return WithCode(ExitCode::kFile, name, [&content] { return tools::LoadConfig(content); });
}

void RequireConfig(const tools::DeviceConfig& device, const std::string& hint) {
  if (LooksLikeConfig(device)) return;
  throw Failure(ExitCode::kRefused,
                "the device's memory holds no configuration that perictl knows" + hint);
}

void AddConfig(Report& report, const tools::Vocabulary& words, const ProtocolData& record,
               const tools::KnownBytes& known, const std::string& model) {
  const std::vector<Value> values = words.Values(record, known);
  AddLines(report, values);
  report.Data("configuration", tools::ConfigToJson(record, known, model));
  report.Data("words", ToJson(values));
}

void AddValues(Report& report, const std::vector<Value>& values) {
  for (const Value& value : values)
    report.Line(value.name, value.text);
  if (values.size() == 1) {
    const Json value = tools::ToJson(values.front());
    for (const auto& member : value.items())
      report.Data(member.key(), member.value());
  } else {
    report.Data("fields", ToJson(values));
  }
}

void AddNames(Report& report, const std::string& key, const std::string& label,
              const tools::NameList& names) {
  if (names.empty()) return;
  report.Fact(key, label, names.Text(), names.names());
}

void AddFileNotes(Report& report, const tools::ConfigFile& file) {
  if (file.version != tools::kConfigVersion) {
    const bool newer = file.version > tools::kConfigVersion;
    report.Fact("version", "version of the file",
                std::to_string(file.version) + (newer ? ", newer" : ", older") + " than " +
                    std::to_string(tools::kConfigVersion),
                file.version);
  }
  AddNames(report, "unknown", "not known, left out", file.unknown);
  AddNames(report, "missing", "not in the file", file.missing);
  AddNames(report, "failed_checks", "failed their check", file.failed_checks);
}

void AddChanges(Report& report, const std::string& key, const std::vector<Change>& changes) {
  Json list = Json::array();
  for (const Change& change : changes) {
    report.ChangeLine(change.after.name, change.before.text, change.after.text);
    list.push_back({{"field", change.after.field},
                    {"name", change.after.name},
                    {"before", tools::ToJson(change.before)},
                    {"after", tools::ToJson(change.after)}});
  }
  report.Data(key, list);
}

void Apply(Report& report, ConfigDevice& device, const tools::Vocabulary& words,
           const tools::DeviceConfig& before, const tools::ConfigUpdate& update, bool dry_run) {
  const tools::KnownBytes known = SoundBytes(before);
  tools::KnownBytes known_after = known;
  tools::NameList written;
  for (const tools::ConfigPart& part : update.writes) {
    known_after |= PartBytes(part);
    written.Add(part.name);
  }
  AddChanges(report, "changes", words.Changes(before.record, known, update.record, known_after));
  report.Data("dry_run", dry_run);
  report.Data("written", dry_run ? std::vector<std::string>() : written.names());
  if (update.writes.empty()) return report.Remark("nothing to write: the device holds it");
  if (dry_run) return report.Remark("nothing was written (--dry-run)");
  device.Write(update);
  report.Fact("verified", "verified", "every write was acknowledged and read back", true);
}

}  // namespace perictl
