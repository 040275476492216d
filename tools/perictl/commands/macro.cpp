// perictl macro: a device's macros in a notation that people can read and write.
#include <memory>
#include <optional>

#include "commands/commands.h"
#include "common/escaped_text.h"
#include "common/events_text.h"
#include "config_report.h"

namespace perictl {
namespace {

using perilink::tools::ConfigError;
using perilink::tools::ConfigPart;
using perilink::tools::ConfigUpdate;
using perilink::tools::DeviceConfig;
using perilink::tools::PartKind;

constexpr size_t kSlots = std::size(ProtocolData{}.macros);
constexpr size_t kMostEvents = std::size(MacroKey{}.events);

struct MacroOptions {
  size_t slot = kSlots;  // none
  std::optional<std::string> name;
  std::optional<std::string> events;
  bool clear = false;
};

void AddMacro(Report& report, size_t slot, const MacroKey& macro) {
  const std::string name = perilink::tools::EscapeText({macro.name, macro.name_length});
  const std::string events = perilink::tools::EventsToText({macro.events, macro.count});
  report.Item("macros",
              std::to_string(slot) + ": \"" + name + "\"  " + (events.empty() ? "none" : events),
              {{"slot", slot}, {"name", name}, {"events", events}});
}

void Show(Context& context, size_t wanted) {
  const DeviceConfig config = OpenConfigDevice(context).Read();
  Report& report = context.report;
  report.Section("", "Macros:");
  if (report.json()) report.Fact("macros", "", "", Json::array());
  bool any = false;
  for (size_t slot = 0; slot < kSlots; ++slot) {
    const MacroKey& macro = config.record.macros[slot];
    const bool used = macro.count != 0 || macro.name_length != 0;
    if (slot != wanted && (wanted != kSlots || !used)) continue;
    AddMacro(report, slot, macro);
    any = true;
  }
  if (!any) report.Remark("none");
}

void SetName(MacroKey& macro, const std::string& text) {
  const auto bytes = perilink::tools::UnescapeText(text);
  if (!bytes)
    throw ConfigError("--name: a backslash must begin \\\\ or \\x and two digits, as \\x1f");
  if (bytes->size() > sizeof macro.name) {
    throw ConfigError("--name: " + std::to_string(bytes->size()) + " bytes, at most 30 fit");
  }
  macro.name_length = static_cast<uint8_t>(bytes->size());
  std::fill(std::begin(macro.name), std::end(macro.name), uint8_t{0});
  std::copy(bytes->begin(), bytes->end(), macro.name);
}

void SetEvents(MacroKey& macro, const std::string& text) {
  const std::vector<KeyEvent> events = perilink::tools::EventsFromText(text);
  if (events.size() == 1 || events.size() > kMostEvents) {
    throw ConfigError("--events: " + std::to_string(events.size()) + " events, 2 to " +
                      std::to_string(kMostEvents) + " or none are wanted");
  }
  macro.count = static_cast<uint8_t>(events.size());
  std::fill(std::begin(macro.events), std::end(macro.events), KeyEvent{});
  std::copy(events.begin(), events.end(), macro.events);
}

void Change(MacroKey& macro, const MacroOptions& options) {
  if (options.clear) macro = {};
  if (options.name) SetName(macro, *options.name);
  if (options.events) SetEvents(macro, *options.events);
}

void Set(Context& context, const MacroOptions& options) {
  if (!options.clear && !options.name && !options.events) {
    throw Failure(ExitCode::kUsage, "macro set needs --name, --events or --clear");
  }
  MacroKey ignored{};  // what is wrong in itself is told without a device
  WithCode(ExitCode::kUsage, "", [&] { Change(ignored, options); });
  ConfigDevice device = OpenConfigDevice(context);
  const DeviceConfig before = device.Read();
  RequireConfig(before);
  ProtocolData record = before.record;
  WithCode(ExitCode::kUsage, "", [&] {
    Change(record.macros[options.slot], options);
    perilink::tools::RequireHoldable(record);
  });
  const ConfigUpdate update = PlanUpdate(before, record, [&](const ConfigPart& part) {
    return part.kind == PartKind::kMacro && part.slot == options.slot;
  });
  device.Write(update);
  context.report.Section("", "Macros:");
  AddMacro(context.report, options.slot, record.macros[options.slot]);
  AddWritten(context.report, update);
}

}  // namespace

void AddMacroCommand(CLI::App& app, Context& context) {
  CLI::App* const macro = app.add_subcommand("macro", "show and set macros");
  macro->require_subcommand(1);
  const std::string notation =
      "Events stand with spaces or commas between them, each as KIND:CODE:KEYS+DELAY, as in\n"
      "  press:1:0400+10 release:1:0400+300\n"
      "KIND is press, release or other (0, 1, 2 in the record), CODE 0 to 15, KEYS the two key\n"
      "bytes as four hexadecimal digits, DELAY 0 to 65535; without +DELAY it is 0.";
  macro->footer(notation + "\n\n" + ExitCodeHelp());
  const auto options = std::make_shared<MacroOptions>();
  const CLI::Range slots(size_t{0}, kSlots - 1);

  CLI::App* command = macro->add_subcommand("show", "read the device's macros, or one slot");
  command->add_option("SLOT", options->slot, "0 to 15")->check(slots);
  command->footer(notation);
  command->callback(
      [&context, options] { context.run = [&context, options] { Show(context, options->slot); }; });

  command = macro->add_subcommand("set", "change a slot's name, its events, or both");
  command->add_option("SLOT", options->slot, "0 to 15")->required()->check(slots);
  command->add_option("--name", options->name, "up to 30 bytes; \\x1f stands for byte 0x1f");
  command->add_option("--events", options->events, "2 to 70 events");
  command->add_flag("--clear", options->clear, "first empty the slot");
  command->footer(notation);
  command->callback(
      [&context, options] { context.run = [&context, options] { Set(context, *options); }; });
}

}  // namespace perictl
