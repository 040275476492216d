// perictl macro: a device's macros in a notation that people can read and write.
#include <memory>
#include <optional>

#include "commands/commands.h"
#include "config/config_report.h"
#include "words/events_text.h"

namespace perictl {
namespace {

namespace tools = perilink::tools;
using tools::ConfigPart;
using tools::ConfigUpdate;
using tools::DeviceConfig;
using tools::Vocabulary;

constexpr size_t kSlots = std::size(ProtocolData{}.macros);

struct MacroOptions {
  size_t slot = kSlots;  // none
  std::optional<std::string> name;
  std::optional<std::string> events;
  bool clear = false;
  bool raw = false;
  bool dry_run = false;
};

// A slot's field: "macros[3].events"
std::string FieldOf(size_t slot, const char* field) {
  return tools::Indexed("macros", slot) + "." + field;
}

void AddMacro(Report& report, const Vocabulary& words, const ProtocolData& record,
              const tools::KnownBytes& known, size_t slot) {
  const tools::Value name = words.Find(FieldOf(slot, "name"), record, known).front();
  const tools::Value events = words.Find(FieldOf(slot, "events"), record, known).front();
  report.Item("macros", std::to_string(slot) + ": " + name.text + "  " + events.text,
              {{"slot", slot}, {"name", ToJson(name)}, {"events", ToJson(events)}});
}

void Show(Context& context, const MacroOptions& options) {
  const DeviceEntry entry = DeviceToRead(context);
  const Vocabulary words(options.raw ? nullptr : entry.model);
  const DeviceConfig config = ConfigDevice(entry).Read();
  RequireConfig(config);
  const tools::KnownBytes known = SoundBytes(config);
  Report& report = context.report;
  report.Section("", "Macros of " + entry.Title() + ":");
  report.Data("device", ToJson(entry));
  report.Data("macros", Json::array());
  bool any = false;
  for (size_t slot = 0; slot < kSlots; ++slot) {
    const MacroKey& macro = config.record.macros[slot];
    const bool sound = known[offsetof(ProtocolData, macros) + slot * sizeof(MacroKey)];
    const bool used = macro.count != 0 || macro.name_length != 0 || !sound;
    if (slot != options.slot && (options.slot != kSlots || !used)) continue;
    AddMacro(report, words, config.record, known, slot);
    any = true;
  }
  if (!any) report.Remark("none");
}

void Change(const Vocabulary& words, ProtocolData& record, const MacroOptions& options) {
  if (options.clear) record.macros[options.slot] = {};
  if (options.name) words.Assign(record, FieldOf(options.slot, "name"), *options.name);
  if (options.events) words.Assign(record, FieldOf(options.slot, "events"), *options.events);
}

void Set(Context& context, const MacroOptions& options) {
  if (!options.clear && !options.name && !options.events) {
    throw Failure(ExitCode::kUsage,
                  "macro set needs --name, --events or --clear, as in --events 'ctrl+c'");
  }
  const DeviceEntry entry = DeviceToWrite(context);
  const Vocabulary words(options.raw ? nullptr : entry.model);
  WithCode(ExitCode::kUsage, "", [&] {  // what is wrong in itself is told without the device
    ProtocolData scratch{};
    Change(words, scratch, options);
  });
  ConfigDevice device(entry);
  const DeviceConfig before = device.Read();
  RequireConfig(before, "; nothing was written");
  ProtocolData record = before.record;
  const ConfigUpdate update = WithCode(ExitCode::kUsage, "", [&] {
    Change(words, record, options);
    const ConfigUpdate planned = PlanUpdate(before, record, [&](const ConfigPart& part) {
      return part.kind == tools::PartKind::kMacro && part.slot == options.slot;
    });
    RequireKept(planned);
    return planned;
  });
  context.report.Section("", "Macros of " + entry.Title() + ":");
  context.report.Data("device", ToJson(entry));
  Apply(context.report, device, words, before, update, options.dry_run);
}

const char* const kNotation =
    "Events stand with spaces or commas between them, each as KIND:KEY+DELAY, as in press:a+10, or "
    "KIND:CODE:KEYS+DELAY, as in press:1:0400+10; or as keys that are pressed together, as in "
    "ctrl+c.";
const char* const kNotationDetails =
    "KIND is press, release or other (0, 1, 2 in the record), KEY a key's name as the HID usage "
    "tables have it, CODE 0 to 15, KEYS the two key bytes as four hexadecimal digits, DELAY 0 to "
    "65535; without +DELAY it is 0. Keys have names where the device's description says which code "
    "means what.";

}  // namespace

void AddMacroCommands(CommandLine& line, Context& context) {
  CLI::App& group = line.AddGroup(line.root(), {"macro",
                                                "show and set macros",
                                                {kNotation, kNotationDetails},
                                                {{"perictl macro show", "those in use"}}});
  const auto options = std::make_shared<MacroOptions>();
  const auto slot = [&](CLI::App& command) {
    return command.add_option("SLOT", options->slot, "the macro's slot, 0 to 15")
        ->check(WholeNumber(0, kSlots - 1, "perictl macro show 3"))
        ->type_name("SLOT");
  };
  const auto raw = [&](CLI::App& command) {
    command.add_flag("--raw", options->raw, "codes and key bytes, without the names of keys");
  };

  CLI::App& show = line.Add(group, {"show",
                                    "read a device's macros, or one slot",
                                    {kNotation, kNotationDetails},
                                    {{"perictl macro show 3", "the one in slot 3"}}});
  slot(show);
  raw(show);
  SetRun(show, context, [&context, options] { Show(context, *options); });

  CLI::App& set = line.Add(
      group, {"set",
              "change a slot's name, its events, or both",
              {kNotation, kNotationDetails,
               "Each change is shown, written, acknowledged and read "
               "back."},
              {{"perictl macro set 3 --name Copy --events ctrl+c", "a name and four events"},
               {"perictl macro set 3 --clear", "empty the slot"}}});
  slot(set)->required();
  set.add_option("--name", options->name, "up to 30 bytes; \\x1f stands for byte 0x1f")
      ->type_name("TEXT");
  set.add_option("--events", options->events, "2 to 70 events")->type_name("EVENTS");
  set.add_flag("--clear", options->clear, "first empty the slot");
  raw(set);
  set.add_flag("--dry-run", options->dry_run, "show what would change, and write nothing");
  SetRun(set, context, [&context, options] { Set(context, *options); });
}

}  // namespace perictl
