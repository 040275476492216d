// perictl config: a device's configuration, field by field, and in files.
#include <array>
#include <memory>

#include "commands/commands.h"
#include "config_report.h"
#include "files.h"

namespace perictl {
namespace {

using perilink::tools::ConfigAssignment;
using perilink::tools::ConfigPart;
using perilink::tools::ConfigUpdate;
using perilink::tools::DeviceConfig;
using perilink::tools::Difference;
using perilink::tools::Extent;

// ---- show, get, set ----------------------------------------------------------------------------

void Show(Context& context, const std::string& name) {
  const ConfigFile file = ReadConfigFile(name);
  context.report.Section("", name + ":");
  AddConfig(context.report, file.loaded.record);
  AddFailedChecks(context.report, file.loaded.failed_checks);
}

void Get(Context& context, const std::string& field) {
  Report& report = context.report;
  if (!field.empty()) WithCode(ExitCode::kUsage, "", [&] { perilink::tools::FindExtent(field); });
  ConfigDevice device = OpenConfigDevice(context);
  const DeviceConfig config = device.Read();
  if (field.empty()) {
    report.Section("", "Configuration:");
    AddConfig(report, config.record);
    AddFailedChecks(report, UnsoundParts(config));
    return;
  }
  const Json value = WithCode(
      ExitCode::kUsage, "", [&] { return perilink::tools::GetConfigField(config.record, field); });
  if (report.json()) report.Fact("field", "", "", field);
  report.Fact("value", field, value.dump(), value);
}

ConfigAssignment ParseAssignment(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw Failure(ExitCode::kUsage, "'" + text + "' is not FIELD=VALUE, as in report_rate=4");
  }
  return {text.substr(0, equals), perilink::tools::ConfigValueFromText(text.substr(equals + 1))};
}

// A name or an event beyond its length or count would be dropped without a word.
void RequireKept(const ProtocolData& record, const std::string& path, const Extent& extent) {
  const ProtocolData kept = perilink::tools::Canonical(record);
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&record) + extent.offset;
  if (!std::equal(bytes, bytes + extent.size,
                  reinterpret_cast<const uint8_t*>(&kept) + extent.offset)) {
    throw perilink::tools::ConfigError(
        path + ": a device keeps no more of it than the length or count beside it says: set both");
  }
}

void Set(Context& context, const std::vector<std::string>& texts) {
  std::vector<ConfigAssignment> assignments;
  std::vector<Extent> extents;
  WithCode(ExitCode::kUsage, "", [&] {
    for (const std::string& text : texts) {
      assignments.push_back(ParseAssignment(text));
      extents.push_back(perilink::tools::FindExtent(assignments.back().path));
    }
  });
  ConfigDevice device = OpenConfigDevice(context);
  const DeviceConfig before = device.Read();
  RequireConfig(before);
  ProtocolData record = before.record;
  WithCode(ExitCode::kUsage, "", [&] {
    SetConfigFields(record, assignments);
    for (size_t i = 0; i < extents.size(); ++i)
      RequireKept(record, assignments[i].path, extents[i]);
    perilink::tools::RequireHoldable(record);
  });
  const ConfigUpdate update = PlanUpdate(before, record, [&](const ConfigPart& part) {
    return std::any_of(extents.begin(), extents.end(),
                       [&](const Extent& extent) { return Overlap(part, extent); });
  });
  device.Write(update);
  context.report.Section("", "Configuration:");
  AddWritten(context.report, update);
}

// ---- save, load, diff --------------------------------------------------------------------------

std::string FormatFor(const std::string& name, const std::string& format) {
  if (!format.empty()) return format;
  const std::string extension = name.substr(std::min(name.rfind('.'), name.size()));
  if (extension == ".json") return "json";
  if (extension == ".bin" || extension == ".img") return "image";
  throw Failure(ExitCode::kUsage,
                name + ": end it in .json, .bin or .img, or give --format json or --format image");
}

void Save(Context& context, const std::string& name, const std::string& wanted) {
  const std::string format = FormatFor(name, wanted);
  ConfigDevice device = OpenConfigDevice(context);
  const DeviceConfig config = device.Read();
  WriteFile(name, format == "json" ? perilink::tools::ConfigToJson(config.record).dump(2) + "\n"
                                   : std::string(config.image.begin(), config.image.end()));
  context.report.Section("", "Configuration:");
  context.report.Fact("file", "saved in", name, name);
  context.report.Fact("format", "format", format, format);
  AddFailedChecks(context.report, UnsoundParts(config));
}

// The fields whose check failed in the file are the device's business.
void KeepFromDevice(const ConfigPart& part, const ProtocolData& device, ProtocolData& record) {
  const uint8_t* const source = &device.report_rate + part.offset;
  std::copy(source, source + part.size, &record.report_rate + part.offset);
}

void Load(Context& context, const std::string& name, bool force) {
  const ConfigFile file = ReadConfigFile(name);
  ProtocolData record = file.loaded.record;
  std::vector<std::string> left_alone;
  if (file.loaded.from_image) left_alone = UnsoundParts(file.image);
  const auto is_left_alone = [&](const ConfigPart& part) {
    return std::find(left_alone.begin(), left_alone.end(), part.name) != left_alone.end();
  };
  WithCode(ExitCode::kFile, name, [&] { perilink::tools::RequireHoldable(record); });

  ConfigDevice device = OpenConfigDevice(context);
  const DeviceConfig before = device.Read();
  if (!force) RequireConfig(before);
  for (const ConfigPart& part : perilink::tools::ConfigParts()) {
    if (is_left_alone(part)) KeepFromDevice(part, before.record, record);
  }
  WithCode(ExitCode::kFile, name, [&] { perilink::tools::RequireHoldable(record); });
  const ConfigUpdate update =
      PlanUpdate(before, record, [&](const ConfigPart& part) { return !is_left_alone(part); });
  device.Write(update);
  context.report.Section("", "Configuration:");
  AddFailedChecks(context.report, left_alone);
  AddWritten(context.report, update);
}

void Diff(Context& context, const std::string& first, const std::string& second) {
  const ProtocolData after = ReadConfigFile(second.empty() ? first : second).loaded.record;
  const ProtocolData before = second.empty() ? OpenConfigDevice(context).Read().record
                                             : ReadConfigFile(first).loaded.record;
  Report& report = context.report;
  report.Section(
      "", (second.empty() ? "Device" : first) + " -> " + (second.empty() ? first : second) + ":");
  if (report.json()) report.Fact("differences", "", "", Json::array());
  const std::vector<Difference> differences = perilink::tools::ConfigDifferences(before, after);
  for (const Difference& it : differences) {
    report.Item("differences", it.field + ": " + it.before.dump() + " -> " + it.after.dump(),
                {{"field", it.field}, {"before", it.before}, {"after", it.after}});
  }
  if (differences.empty()) {
    report.Remark("no difference");
  } else {
    context.exit_code = ExitCode::kDiffers;
  }
}

// ---- Command line ------------------------------------------------------------------------------

struct ConfigOptions {
  std::string file;
  std::string second_file;
  std::string format;
  std::string field;
  std::vector<std::string> assignments;
  bool force = false;
};

template <typename Run>
void SetRun(CLI::App& command, Context& context, Run run) {
  command.callback([&context, run] { context.run = run; });
}

}  // namespace

void AddConfigCommand(CLI::App& app, Context& context) {
  CLI::App* const config =
      app.add_subcommand("config", "read, change, save, load and compare configurations");
  config->require_subcommand(1);
  config->footer(
      "A field is named as in the library's records: report_rate, dpi_levels[2].color[0],\n"
      "macros[1].name; VALUE is JSON: 4, [255,0,0], {\"count\":0,...}, or a plain text.\n"
      "FILE is an image of 6960 bytes or JSON.\n\n" +
      ExitCodeHelp());
  const auto options = std::make_shared<ConfigOptions>();
  const auto add = [&](const char* name, const char* help) {
    return config->add_subcommand(name, help);
  };

  CLI::App* command = add("show", "print a file, and which of its fields fail their check");
  command->add_option("FILE", options->file)->required();
  SetRun(*command, context, [&context, options] { Show(context, options->file); });

  command = add("get", "read the device's configuration, or one field of it");
  command->add_option("FIELD", options->field);
  SetRun(*command, context, [&context, options] { Get(context, options->field); });

  command = add("set", "change fields, which are written, acknowledged and read back");
  command->add_option("FIELD=VALUE", options->assignments)->required();
  SetRun(*command, context, [&context, options] { Set(context, options->assignments); });

  command = add("save", "save the device's configuration in a file");
  command->add_option("FILE", options->file)->required();
  command->add_option("--format", options->format, "json or image (default: by the file's ending)")
      ->check(CLI::IsMember({"json", "image"}));
  SetRun(*command, context, [&context, options] { Save(context, options->file, options->format); });

  command = add("load", "write to the device what differs in a file, and read it back");
  command->add_option("FILE", options->file)->required();
  command->add_flag("--force", options->force,
                    "also over a memory that holds something else than a configuration");
  SetRun(*command, context, [&context, options] { Load(context, options->file, options->force); });

  command = add("diff", "name the fields that differ: device and file, or two files");
  command->add_option("FILE", options->file)->required();
  command->add_option("FILE2", options->second_file);
  SetRun(*command, context,
         [&context, options] { Diff(context, options->file, options->second_file); });
}

}  // namespace perictl
