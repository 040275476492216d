// perictl list: the devices that are plugged in, or all HID interfaces.
#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "device/facts.h"
#include "device/online.h"
#include "perilink/finder.h"
#include "selection/interfaces.h"
#include "terminal/text.h"

namespace perictl {
namespace {

struct Row {
  std::string number, name, id, link, battery, firmware;
};

void Widen(Row& widest, const Row& row) {
  for (auto part : {&Row::number, &Row::name, &Row::id, &Row::link, &Row::battery}) {
    if ((row.*part).size() > (widest.*part).size()) widest.*part = row.*part;
  }
}

std::string Columns(const Row& row, const Row& widest) {
  std::string text;
  for (auto part : {&Row::number, &Row::name, &Row::id, &Row::link, &Row::battery}) {
    text += row.*part + std::string((widest.*part).size() - (row.*part).size() + 2, ' ');
  }
  return text + row.firmware;
}

// What can be asked of it, and the same for scripts.
Row LookAt(const DeviceEntry& device, Json& value) {
  Row row{std::to_string(device.number), device.name, device.IdText(), "", "-", "-"};
  if (device.is_virtual) row.name += " (virtual)";
  Address(device);
  const Link link = device.in_boot_mode ? Link::kSilent : AskLink(device.path);
  row.link = device.in_boot_mode ? "boot mode" : LinkText(link);
  value["link"] = row.link;
  value["battery"] = value["version"] = nullptr;
  if (link == Link::kLocked) value["problem"] = WhyLocked(device.path);
  if (link != Link::kOnline) return row;
  BatteryLevel battery{};
  if (UsbFinderC_GetBatteryLevel(device.path.c_str(), &battery)) {
    row.battery = std::to_string(battery.level) + " %" + (battery.charging != 0 ? " charging" : "");
    value["battery"] = BatteryJson(battery);
  }
  if (const int32_t version = UsbFinderC_GetVersion(device.path.c_str()); version != 0) {
    row.firmware = VersionText(version);
    value["version"] = row.firmware;
  }
  return row;
}

void ListDevicesIn(Context& context) {
  Report& report = context.report;
  const std::vector<DeviceEntry> devices = ListedDevices(context);
  std::vector<Row> rows = {{"", "name", "id", "link", "battery", "firmware"}};
  std::vector<Json> values;
  for (const DeviceEntry& device : devices) {
    values.push_back(ToJson(device));
    rows.push_back(LookAt(device, values.back()));
  }
  Row widest;
  for (const Row& row : rows)
    Widen(widest, row);
  report.Data("devices", Json::array());
  if (devices.empty()) {
    const std::string what = Describe(context.selection);
    report.Section("", "No device" + (what.empty() ? "" : " " + what) + " is plugged in" +
                           (VirtualModels().empty() || context.selection.Any() ||
                                    !context.virtual_device.models.empty()
                                ? "."
                                : "; --virtual simulates one."));
  } else {
    report.Section("", "  " + Columns(rows[0], widest));
  }
  for (size_t i = 0; i < devices.size(); ++i) {
    report.Item("devices", Columns(rows[i + 1], widest), values[i]);
    if (values[i].contains("problem")) report.Remark(values[i]["problem"].get<std::string>());
  }
  const size_t others = SelectedInterfaces(context).size();
  size_t theirs = 0;
  for (const DeviceEntry& device : devices)
    theirs += device.interfaces.size();
  if (others > theirs) {
    report.Remark("and " + std::to_string(others - theirs) +
                  " other HID interfaces (--interfaces shows them)");
  }
}

Json InterfaceJson(const std::string& path) {
  Json value = {{"path", path}, {"takes_commands", TakesCommands(path)}};
  const auto id = IdOf(path);
  value["id"] = id ? Json(Hex16(id->vendor) + ":" + Hex16(id->product)) : Json(nullptr);
  const std::optional<DeviceIds> told = ReadIds(path);
  value["version"] = told ? Json(Hex16(told->version)) : Json(nullptr);
  value["locked"] = !told;
  return value;
}

// A device, and below it the paths of its interfaces; at the end those that are no device's.
void ListInterfaces(Context& context) {
  Report& report = context.report;
  std::vector<std::string> paths = SelectedInterfaces(context);
  report.Section("", "HID interfaces (* takes commands):");
  report.Data("interfaces", Json::array());
  if (paths.empty()) return report.Remark("none");
  const auto add = [&](const std::string& path, const std::string& owner, bool last) {
    Json value = InterfaceJson(path);
    value["device"] = owner.empty() ? Json(nullptr) : Json(owner);
    const std::string branch = owner.empty() ? "" : last ? "`- " : "|- ";
    report.Item("interfaces",
                branch + (TakesCommands(path) ? "* " : "  ") + path +
                    (value["locked"] == true ? "  (locked)" : ""),
                std::move(value));
  };
  for (const DeviceEntry& device : ListDevices(context)) {
    std::vector<std::string> own;
    for (const std::string& path : device.interfaces) {
      const auto at = std::find(paths.begin(), paths.end(), path);
      if (at == paths.end()) continue;
      own.push_back(path);
      paths.erase(at);
    }
    if (own.empty()) continue;
    report.Remark(std::to_string(device.number) + " " + device.Title());
    for (size_t i = 0; i < own.size(); ++i)
      add(own[i], device.name, i + 1 == own.size());
  }
  if (!paths.empty()) report.Remark("no device that perictl knows");
  for (const std::string& path : paths)
    add(path, "", false);
}

}  // namespace

void AddListCommand(CommandLine& line, Context& context) {
  CLI::App& command = line.Add(
      line.root(),
      {"list",
       "list the devices that are plugged in",
       {"A line for each device, with the number and the name by which --device chooses it."},
       {{"perictl list", "what is plugged in"},
        {"perictl list --interfaces", "the paths of its HID interfaces, as a tree"}}});
  const auto interfaces = std::make_shared<bool>(false);
  command.add_flag("--interfaces", *interfaces, "list the HID interfaces, by device");
  SetRun(command, context, [&context, interfaces] {
    *interfaces ? ListInterfaces(context) : ListDevicesIn(context);
  });
}

}  // namespace perictl
