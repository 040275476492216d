#include "selection/devices.h"

#include <algorithm>

#include "common/ascii.h"
#include "common/suggestion.h"
#include "context.h"
#include "exit_codes.h"
#include "perilink/finder.h"
#include "selection/interfaces.h"
#include "selection/virtual_devices.h"
#include "terminal/text.h"

namespace perictl {
namespace {

using perilink::tools::Lower;

// The middle of "7&1a2b3c4d&0": short, and different for devices of a kind.
std::string ShortInstance(const std::string& path) {
  const std::string instance = InstanceOf(path);
  const size_t start = instance.find('&') + 1;
  return instance.substr(start, instance.find('&', start) - start);
}

// ---- What is there -----------------------------------------------------------------------------

DeviceEntry MakeEntry(const Context& context, const std::string& path) {
  DeviceEntry device;
  device.path = path;
  device.id = IdOf(path);
  device.is_virtual = !context.virtual_device.models.empty();  // the machine's are hidden then
  if (device.id) device.model = context.Models().For(*device.id);
  const Selection& selection = context.selection;
  const bool described = device.model != nullptr && device.model->keyboard;
  device.keyboard = selection.keyboard || (described && !selection.mouse);
  return device;
}

// A device's interfaces share their instance; or, where each has one of its own, as systems may
// have it, they are this device's if no other one has its ids.
void AddInterfaces(DeviceEntry& device, const std::vector<std::string>& paths) {
  const bool alone = std::count_if(paths.begin(), paths.end(), [&](const std::string& path) {
                       return IdOf(path) == device.id && TakesCommands(path);
                     }) <= 1;
  for (const std::string& path : paths) {
    const bool same = InstanceOf(path) == InstanceOf(device.path);
    if (IdOf(path) == device.id && (same || alone)) device.interfaces.push_back(path);
  }
}

// The name that it shares with others of its kind.
std::string KindName(const DeviceEntry& device) {
  return device.name.substr(0, device.name.find('@'));
}

void NameThem(std::vector<DeviceEntry>& devices) {
  for (size_t i = 0; i < devices.size(); ++i) {
    DeviceEntry& device = devices[i];
    device.number = i + 1;
    device.name = device.model != nullptr ? device.model->id : device.IdText();
    std::replace(device.name.begin(), device.name.end(), ':', '-');
    if (device.in_boot_mode) device.name += "-boot";
  }
  std::vector<std::string> names;
  for (const DeviceEntry& device : devices)
    names.push_back(device.name);
  for (DeviceEntry& device : devices) {
    if (std::count(names.begin(), names.end(), device.name) > 1) {
      device.name += "@" + ShortInstance(device.path);
    }
  }
}

// ---- What is meant -----------------------------------------------------------------------------

bool HasIds(const std::string& path, const Selection& selection) {
  return (selection.vendor_id.empty() || HoldsKey(path, "vid_" + selection.vendor_id)) &&
         (selection.product_id.empty() || HoldsKey(path, "pid_" + selection.product_id));
}

bool Meets(const std::string& path, const Selection& selection) {
  return HasIds(path, selection) &&
         (selection.path.empty() || Lower(path) == Lower(selection.path)) &&
         (selection.key.empty() || HoldsKey(path, selection.key));
}

bool IsCalled(const DeviceEntry& device, const std::string& word) {
  const std::string wanted = Lower(word);
  return wanted == std::to_string(device.number) || wanted == device.name ||
         wanted == KindName(device) ||
         wanted == KindName(device) + "@" + ShortInstance(device.path);
}

[[noreturn]] void FailNoDevice(const Context& context, const std::vector<DeviceEntry>& all) {
  const Selection& selection = context.selection;
  std::vector<std::string> names;
  for (const DeviceEntry& device : all)
    names.insert(names.end(), {device.name, KindName(device)});
  std::string hint = "; 'perictl list' shows what there is";
  if (all.empty() && context.virtual_device.models.empty() && !VirtualModels().empty()) {
    hint = "; --virtual simulates one";
  }
  if (!selection.device.empty()) hint += perilink::tools::DidYouMean(selection.device, names);
  const std::string what = Describe(selection);
  throw Failure(ExitCode::kNoDevice,
                "no device" + (what.empty() ? "" : " " + what) + " is plugged in" + hint);
}

std::string Names(const std::vector<DeviceEntry>& devices) {
  std::string names;
  for (const DeviceEntry& device : devices) {
    names += (names.empty() ? "" : ", ") +
             (device.number == 0 ? device.path : std::to_string(device.number) + " " + device.name);
  }
  return names;
}

}  // namespace

std::string DeviceEntry::IdText() const {
  return id ? Hex16(id->vendor) + ":" + Hex16(id->product) : "unknown";
}

std::string DeviceEntry::Product() const {
  return model != nullptr ? model->name : IdText();
}

std::string DeviceEntry::Title() const {
  return (name.empty() ? Product() : name) + " (" + IdText() + (is_virtual ? ", virtual)" : ")");
}

Json ToJson(const DeviceEntry& device) {
  return {{"number", device.number}, {"name", device.name}, {"product", device.Product()},
          {"id", device.IdText()},   {"path", device.path}, {"virtual", device.is_virtual}};
}

void AddDevice(Report& report, const DeviceEntry& device) {
  report.Fact("device", "device", device.Title(), ToJson(device));
  report.Line("path", device.path);
}

std::vector<DeviceEntry> ListDevices(const Context& context) {
  const std::vector<std::string> paths = AllInterfaces();
  std::vector<DeviceEntry> devices;
  for (const std::string& path : paths) {
    const auto id = IdOf(path);
    const Model* const boot = id ? context.Models().ForBoot(*id) : nullptr;
    const bool known = std::any_of(devices.begin(), devices.end(), [&](const DeviceEntry& it) {
      return it.in_boot_mode && it.id == id;
    });
    if (!TakesCommands(path) && (boot == nullptr || known)) continue;
    devices.push_back(MakeEntry(context, path));
    devices.back().in_boot_mode = boot != nullptr;
    if (boot != nullptr) devices.back().model = boot;
    AddInterfaces(devices.back(), paths);
  }
  NameThem(devices);
  return devices;
}

std::vector<std::string> SelectedInterfaces(const Context& context) {
  const std::vector<DeviceEntry> all = ListDevices(context);
  std::vector<std::string> paths = AllInterfaces();
  std::erase_if(paths, [&](const std::string& path) {
    const auto is_its = [&](const DeviceEntry& device) {
      return IsCalled(device, context.selection.device) &&
             std::find(device.interfaces.begin(), device.interfaces.end(), path) !=
                 device.interfaces.end();
    };
    const bool called =
        context.selection.device.empty() || std::any_of(all.begin(), all.end(), is_its);
    return !called || !Meets(path, context.selection);
  });
  return paths;
}

std::vector<DeviceEntry> ListedDevices(const Context& context) {
  const Selection& selection = context.selection;
  std::vector<DeviceEntry> devices = ListDevices(context);
  std::erase_if(devices, [&](const DeviceEntry& device) {
    return !Meets(device.path, selection) ||
           (!selection.device.empty() && !IsCalled(device, selection.device));
  });
  return devices;
}

std::vector<DeviceEntry> SelectedDevices(const Context& context) {
  const Selection& selection = context.selection;
  std::vector<DeviceEntry> selected = ListedDevices(context);
  std::erase_if(selected, [](const DeviceEntry& device) { return device.in_boot_mode; });
  const bool by_path = !selection.path.empty() || !selection.key.empty();
  if (!selected.empty() || !by_path || !selection.device.empty()) return selected;
  // An interface that is none of those which usually take the commands.
  for (const std::string& path : SelectedInterfaces(context))
    selected.push_back(MakeEntry(context, path));
  return selected;
}

std::vector<DeviceEntry> RequireDevices(const Context& context) {
  std::vector<DeviceEntry> devices = SelectedDevices(context);
  if (!devices.empty()) return devices;
  for (const DeviceEntry& device : ListedDevices(context)) {
    throw Failure(
        ExitCode::kNoDevice,
        device.Title() +
            " is in boot mode and takes nothing but an upgrade: perictl upgrade run FILE");
  }
  FailNoDevice(context, ListDevices(context));
}

DeviceEntry DeviceToRead(const Context& context) {
  const std::vector<DeviceEntry> devices = RequireDevices(context);
  if (devices.size() > 1) {
    Tell(std::to_string(devices.size()) + " devices match: " + Names(devices) +
         "; this is about the first (--device NUMBER chooses)");
  }
  Address(devices.front());
  return devices.front();
}

DeviceEntry DeviceToWrite(const Context& context) {
  const std::vector<DeviceEntry> devices = RequireDevices(context);
  if (devices.size() > 1) {
    const DeviceEntry& first = devices.front();
    throw Failure(ExitCode::kSeveral,
                  std::to_string(devices.size()) + " devices match: " + Names(devices) +
                      "; choose one, for example with " +
                      (first.number == 0 ? "--path" : "--device " + first.name));
  }
  Address(devices.front());
  return devices.front();
}

void Address(const DeviceEntry& device) {
  if (device.keyboard) {
    UsbFinder_SetKeyboardMode();
  } else {
    UsbFinder_SetMouseMode();
  }
}

std::string Describe(const Selection& selection) {
  if (!selection.device.empty()) return "called '" + selection.device + "'";
  if (!selection.path.empty()) return "at path " + selection.path;
  if (!selection.key.empty()) return "whose path holds '" + Lower(selection.key) + "'";
  if (selection.vendor_id.empty()) return "";
  if (selection.product_id.empty()) return "of vendor " + selection.vendor_id;
  return "with id " + selection.vendor_id + ":" + selection.product_id;
}

}  // namespace perictl
