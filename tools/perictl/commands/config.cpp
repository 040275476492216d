// perictl get, set and config: a device's configuration, field by field, and in files.
#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "common/files.h"
#include "config/backup.h"
#include "config/config_report.h"

namespace perictl {
namespace {

namespace tools = perilink::tools;
using tools::ConfigFile;
using tools::ConfigPart;
using tools::ConfigUpdate;
using tools::DeviceConfig;
using tools::Extent;
using tools::Vocabulary;

struct ConfigOptions {
  std::string file;
  std::string second_file;
  std::string format;
  std::vector<std::string> fields;
  std::vector<std::string> assignments;
  BackupOptions backup;
  bool force = false;
  bool raw = false;
  bool dry_run = false;
};
using Options = std::shared_ptr<ConfigOptions>;

Vocabulary WordsFor(const DeviceEntry& device, bool raw) {
  return Vocabulary(raw ? nullptr : device.model);
}

// A file says which model it was saved from; --model says it better.
const Model* ModelOf(const Context& context, const ConfigFile& file, bool raw) {
  if (raw) return nullptr;
  const ModelCatalog& models = context.Models();
  return models.Chosen() != nullptr ? models.Chosen() : models.Named(file.model);
}

// ---- show, get, set ----------------------------------------------------------------------------

void Show(Context& context, const ConfigOptions& options) {
  const ConfigFile file = ReadConfigFile(options.file);
  Report& report = context.report;
  report.Section("", options.file + ":");
  AddConfig(report, Vocabulary(ModelOf(context, file, options.raw)), file.record, file.known,
            file.model);
  AddFileNotes(report, file);
}

void Get(Context& context, const ConfigOptions& options) {
  Report& report = context.report;
  const DeviceEntry entry = DeviceToRead(context);
  const Vocabulary words = WordsFor(entry, options.raw);
  WithCode(ExitCode::kUsage, "", [&] {  // what is wrong in itself is told at once
    for (const std::string& field : options.fields)
      words.Find(field, ProtocolData{}, tools::AllBytes());
  });
  ConfigDevice device(entry);
  const DeviceConfig config = device.Read();
  RequireConfig(config);
  const tools::KnownBytes known = SoundBytes(config);
  report.Section("", "Configuration of " + entry.Title() + ":");
  report.Data("device", ToJson(entry));
  if (options.fields.empty()) {
    AddConfig(report, words, config.record, known, entry.model == nullptr ? "" : entry.model->id);
    return AddNames(report, "failed_checks", "failed their check", UnsoundParts(config));
  }
  std::vector<tools::Value> values;
  for (const std::string& field : options.fields) {
    const auto found =
        WithCode(ExitCode::kUsage, "", [&] { return words.Find(field, config.record, known); });
    values.insert(values.end(), found.begin(), found.end());
  }
  AddValues(report, values);
}

struct Assignment {
  std::string name;
  std::string value;
};

Assignment ParseAssignment(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw tools::ConfigError("'" + text + "' is not FIELD=VALUE, as in current_dpi_level=2");
  }
  if (equals == 0) {
    throw tools::ConfigError("a field's name is missing in '" + text +
                             "', as in current_dpi_level=2");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

void Set(Context& context, const ConfigOptions& options) {
  const DeviceEntry entry = DeviceToWrite(context);
  const Vocabulary words = WordsFor(entry, options.raw);
  std::vector<Assignment> assignments;
  WithCode(ExitCode::kUsage, "", [&] {  // what is wrong in itself is told without the device
    ProtocolData scratch{};
    for (const std::string& text : options.assignments) {
      assignments.push_back(ParseAssignment(text));
      words.Assign(scratch, assignments.back().name, assignments.back().value);
    }
  });
  ConfigDevice device(entry);
  const DeviceConfig before = device.Read();
  RequireConfig(before, "; nothing was written");
  ProtocolData record = before.record;
  const ConfigUpdate update = WithCode(ExitCode::kUsage, "", [&] {
    std::vector<Extent> touched;
    for (const Assignment& it : assignments)
      touched.push_back(words.Assign(record, it.name, it.value));
    const ConfigUpdate planned = PlanUpdate(before, record, [&](const ConfigPart& part) {
      return std::any_of(touched.begin(), touched.end(), [&](const Extent& extent) {
        return Overlap(part, extent.offset, extent.size);
      });
    });
    RequireKept(planned);
    return planned;
  });
  context.report.Section("", "Configuration of " + entry.Title() + ":");
  context.report.Data("device", ToJson(entry));
  Apply(context.report, device, words, before, update, options.dry_run);
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

void Save(Context& context, const ConfigOptions& options) {
  const std::string format = FormatFor(options.file, options.format);
  tools::RequireWritable(options.file);
  const DeviceEntry entry = DeviceToRead(context);
  ConfigDevice device(entry);
  const DeviceConfig config = device.Read();
  if (format == "json") {
    RequireConfig(config, "; --format image saves the memory as it is");
    const std::string model = entry.model == nullptr ? "" : entry.model->id;
    tools::WriteWholeFile(
        options.file, tools::ConfigToJson(config.record, SoundBytes(config), model).dump(2) + "\n");
  } else {
    tools::WriteWholeFile(options.file, std::string(config.image.begin(), config.image.end()));
  }
  Report& report = context.report;
  report.Section("", "Configuration of " + entry.Title() + ":");
  report.Data("device", ToJson(entry));
  report.Fact("file", "saved in", options.file, options.file);
  report.Fact("format", "format", format, format);
  if (LooksLikeConfig(config)) {
    AddNames(report, "failed_checks", "failed their check", UnsoundParts(config));
  }
}

void Load(Context& context, const ConfigOptions& options) {
  const ConfigFile file = ReadConfigFile(options.file);
  const DeviceEntry entry = DeviceToWrite(context);
  ConfigDevice device(entry);
  const DeviceConfig before = device.Read();
  if (!options.force) {
    RequireConfig(before, "; nothing was written ('config load --force' writes all the same)");
  }
  const ConfigUpdate update = WithCode(ExitCode::kFile, options.file, [&] {
    const ConfigUpdate planned = PlanLoad(before, file);
    RequireKept(planned);
    return planned;
  });
  Report& report = context.report;
  report.Section("", "Configuration of " + entry.Title() + ":");
  report.Data("device", ToJson(entry));
  AddFileNotes(report, file);
  const std::string model = entry.model == nullptr ? "" : entry.model->id;
  if (!file.model.empty() && file.model != model) {
    report.Fact("saved_from", "saved from", "another model, " + file.model, file.model);
  }
  if (!options.dry_run && !update.writes.empty()) {
    const std::string backup = KeepBackup(options.backup, entry, before);
    if (!backup.empty()) report.Fact("backup", "backup", backup, backup);
  }
  Apply(report, device, WordsFor(entry, options.raw), before, update, options.dry_run);
}

void Diff(Context& context, const ConfigOptions& options) {
  const bool with_device = options.second_file.empty();
  const ConfigFile after = ReadConfigFile(with_device ? options.file : options.second_file);
  ConfigFile before;
  const Model* model = ModelOf(context, after, options.raw);
  if (with_device) {
    const DeviceEntry entry = DeviceToRead(context);
    const DeviceConfig config = ConfigDevice(entry).Read();
    RequireConfig(config);
    before.record = config.record;
    before.known = SoundBytes(config);
    if (!options.raw) model = entry.model;
  } else {
    before = ReadConfigFile(options.file);
  }
  Report& report = context.report;
  report.Section("", with_device ? "Device -> " + options.file + ":"
                                 : options.file + " -> " + options.second_file + ":");
  const tools::KnownBytes both = before.known & after.known;
  const auto changes = Vocabulary(model).Changes(before.record, both, after.record, both);
  AddChanges(report, "differences", changes);
  if (changes.empty()) report.Remark("no difference");
  AddFileNotes(report, after);
  if (!changes.empty()) context.exit_code = ExitCode::kDiffers;
}

// ---- Command line ------------------------------------------------------------------------------

const char* const kFields =
    "A field has the name that the device's description gives it, or the library's: report_rate, "
    "dpi, dpi_levels[2].color, macros[1].name. 'perictl get' shows all.";
const char* const kValues =
    "A value is what people say, where a description knows the field: 800, 1000Hz, #ff0000 or red, "
    "on or off, ctrl+c; or a number, as 12 or 0x12, bytes, as '20 40 c0', or JSON.";

CLI::Option* AddFile(CLI::App& command, ConfigOptions& options, const char* description) {
  return command.add_option("FILE", options.file, description)->required()->type_name("FILE");
}

void AddRaw(CLI::App& command, ConfigOptions& options) {
  command.add_flag("--raw", options.raw, "numbers and bytes, without the words of a description");
}

void AddDryRun(CLI::App& command, ConfigOptions& options) {
  command.add_flag("--dry-run", options.dry_run, "show what would change, and write nothing");
}

void AddGet(CommandLine& line, CLI::App& parent, Context& context, const std::string& prefix) {
  const auto options = std::make_shared<ConfigOptions>();
  CLI::App& command = line.Add(
      parent, {"get",
               "read a device's configuration, or some fields of it",
               {kFields},
               {{prefix + "get", "everything"},
                {prefix + "get report_rate 'dpi_levels[2]'", "a field, and all of a level"}}});
  command.add_option("FIELD", options->fields, "what to read; everything, if none is given")
      ->type_name("FIELD");
  AddRaw(command, *options);
  SetRun(command, context, [&context, options] { Get(context, *options); });
}

void AddSet(CommandLine& line, CLI::App& parent, Context& context, const std::string& prefix) {
  const auto options = std::make_shared<ConfigOptions>();
  CLI::App& command = line.Add(
      parent, {"set",
               "change fields of a device's configuration",
               {kFields, kValues, "Each change is shown, written, acknowledged and read back."},
               {{prefix + "set dpi=800", "the resolution of the current level"},
                {prefix + "set report_rate=1000Hz 'dpi_levels[2].color=#ff0000'", "two fields"},
                {prefix + "set --dry-run report_rate=500Hz", "only show what would change"}}});
  command.add_option("FIELD=VALUE", options->assignments, "a field and its new value")
      ->required()
      ->type_name("FIELD=VALUE");
  AddRaw(command, *options);
  AddDryRun(command, *options);
  SetRun(command, context, [&context, options] { Set(context, *options); });
}

void AddSave(CommandLine& line, CLI::App& group, Context& context) {
  const auto options = std::make_shared<ConfigOptions>();
  CLI::App& command =
      line.Add(group, {"save",
                       "save a device's configuration in a file",
                       {"Fields whose check failed are left out of the JSON, and named."},
                       {{"perictl config save mine.json", "as JSON, to read and to change"},
                        {"perictl config save mine.img", "as the device's image of 6960 bytes"}}});
  AddFile(command, *options, "where to save it; .json, .bin and .img say in which form");
  command
      .add_option("--format", options->format, "the form, where the file's name does not say it")
      ->check(OneOf({"json", "image"}))
      ->type_name("json|image");
  SetRun(command, context, [&context, options] { Save(context, *options); });
}

void AddLoad(CommandLine& line, CLI::App& group, Context& context) {
  const auto options = std::make_shared<ConfigOptions>();
  CLI::App& command = line.Add(
      group,
      {"load",
       "write to a device what differs in a file",
       {"A backup of what the device holds is kept first, and its file named. Each change is "
        "shown, written, acknowledged and read back. What the file does not have, or not soundly, "
        "the device keeps. Ctrl-C ends it after a write and says what was written."},
       {{"perictl config load mine.json", "write it"},
        {"perictl config load --dry-run mine.json", "only show what would change"}}});
  AddFile(command, *options, "JSON, or an image of 6960 bytes");
  AddRaw(command, *options);
  AddDryRun(command, *options);
  AddBackupOptions(command, options->backup);
  command.add_flag("--force", options->force,
                   "also over a memory that holds something else than a configuration");
  SetRun(command, context, [&context, options] { Load(context, *options); });
}

void AddShowAndDiff(CommandLine& line, CLI::App& group, Context& context) {
  const auto options = std::make_shared<ConfigOptions>();
  CLI::App& show = line.Add(group, {"show",
                                    "print the configuration in a file",
                                    {},
                                    {{"perictl config show mine.json", "what it holds"}}});
  AddFile(show, *options, "JSON, or an image of 6960 bytes");
  AddRaw(show, *options);
  SetRun(show, context, [&context, options] { Show(context, *options); });

  CLI::App& diff =
      line.Add(group, {"diff",
                       "name the fields that differ: of device and file, or of two files",
                       {"The exit code is 10 when any do."},
                       {{"perictl config diff mine.json", "what loading it would change"},
                        {"perictl config diff old.json new.json", "two files"}}});
  AddFile(diff, *options, "JSON, or an image of 6960 bytes");
  diff.add_option("FILE2", options->second_file, "a second file, to compare with the first")
      ->type_name("FILE");
  AddRaw(diff, *options);
  SetRun(diff, context, [&context, options] { Diff(context, *options); });
}

}  // namespace

void AddGetAndSetCommands(CommandLine& line, Context& context) {
  AddGet(line, line.root(), context, "perictl ");
  AddSet(line, line.root(), context, "perictl ");
}

void AddConfigCommands(CommandLine& line, Context& context) {
  CLI::App& group =
      line.AddGroup(line.root(), {"config",
                                  "read, change, save, load and compare configurations",
                                  {kFields},
                                  {{"perictl config get", "what the device holds"}}});
  AddGet(line, group, context, "perictl config ");
  AddSet(line, group, context, "perictl config ");
  AddSave(line, group, context);
  AddLoad(line, group, context);
  AddShowAndDiff(line, group, context);
}

}  // namespace perictl
