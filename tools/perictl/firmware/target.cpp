#include "firmware/target.h"

#include <algorithm>

#include "device/facts.h"
#include "device/online.h"
#include "exit_codes.h"
#include "perilink/finder.h"
#include "selection/interfaces.h"
#include "system.h"
#include "terminal/text.h"

namespace perictl {
namespace {

constexpr uint8_t kLowBattery = 20;

constexpr uint64_t kReturnMs = 10'000;
constexpr uint32_t kReturnPollMs = 50;

std::string KeyText(const UpgradeText& field) {
  return std::string(TextOf(field));
}

// Of a set of two, the one that is looked for in normal mode is the slave.
const UpgradeFileHeader& NormalHeader(const UpgradeFile& file) {
  return file.images.back().header;
}

std::string InterfaceWith(const std::vector<std::string>& paths, const std::string& key) {
  const auto found = std::find_if(paths.begin(), paths.end(), [&](const std::string& path) {
    return !key.empty() && HoldsKey(path, key);
  });
  return found == paths.end() ? "" : *found;
}

bool IsFor(const UpgradeFile& file, const DeviceEntry& device) {
  const UpgradeFileHeader& header = NormalHeader(file);
  return !InterfaceWith(device.interfaces, KeyText(header.normal_input_key)).empty() ||
         !InterfaceWith(device.interfaces, KeyText(header.normal_output_key)).empty();
}

// What of a path no other interface's has: "vid_1234&pid_abcd&mi_01&col05#7&1a2b3c4d&0&0004".
std::string Fragment(const std::string& path) {
  const size_t start = path.find('#') + 1;
  const std::string fragment = path.substr(start, path.rfind('#') - start);
  if (fragment.empty() || fragment.size() >= sizeof(UpgradeText)) {
    throw Failure(ExitCode::kSeveral,
                  "the file can't be made to tell this device from the others; unplug those");
  }
  return fragment;
}

void NarrowTo(UpgradeFile& file, const std::string& input, const std::string& output) {
  if (file.images.size() > 1) {
    throw Failure(ExitCode::kSeveral,
                  "a file for a set of two devices takes what is plugged in; leave one set");
  }
  SetNormalKeys(file, Fragment(input), Fragment(output));
}

// The library takes whatever has the file's keys, and refuses when that is more than one.
void TellApart(UpgradeFile& file, const DeviceEntry& device) {
  const UpgradeFileHeader& header = NormalHeader(file);
  const std::vector<std::string> all = AllInterfaces();
  const auto matching = std::count_if(all.begin(), all.end(), [&](const std::string& path) {
    return HoldsKey(path, KeyText(header.normal_input_key));
  });
  if (matching <= 1) return;
  const std::string input = InterfaceWith(device.interfaces, KeyText(header.normal_input_key));
  const std::string output = InterfaceWith(device.interfaces, KeyText(header.normal_output_key));
  if (!input.empty() && !output.empty()) NarrowTo(file, input, output);
}

[[noreturn]] void FailSeveral(const std::vector<DeviceEntry>& devices) {
  std::string names;
  for (const DeviceEntry& device : devices)
    names += (names.empty() ? "" : ", ") + std::to_string(device.number) + " " + device.name;
  throw Failure(ExitCode::kSeveral, "the file is for each of " + names +
                                        "; choose one, for example with --device " +
                                        devices.front().name);
}

void LookAtDevice(UpgradeTarget& target, bool force) {
  const DeviceEntry& device = *target.device;
  Address(device);
  RequireOnline(device.path);
  const int32_t version = UsbFinderC_GetVersion(device.path.c_str());
  target.version = version == 0 ? "unknown" : VersionText(version);
  BatteryLevel battery{};
  if (UsbFinderC_GetBatteryLevel(device.path.c_str(), &battery)) target.battery = battery;
  if (target.battery && battery.level < kLowBattery && battery.charging == 0 && !force) {
    throw Failure(ExitCode::kDeclined, "the battery is low (" + BatteryText(battery) +
                                           "): charge it first, or give --force");
  }
}

}  // namespace

UpgradeTarget FindUpgradeTarget(const Context& context, UpgradeFile& file, bool force) {
  UpgradeTarget target;
  const std::vector<DeviceEntry> selected = SelectedDevices(context);
  std::vector<DeviceEntry> fitting = selected;
  std::erase_if(fitting, [&](const DeviceEntry& device) { return !IsFor(file, device); });
  if (fitting.size() > 1) FailSeveral(fitting);
  for (const DeviceEntry& device : ListDevices(context)) {
    const bool meant = fitting.size() == 1 && device.path == fitting.front().path;
    if (!meant && IsFor(file, device)) target.others.push_back(device.path);
  }
  const UpgradeFileHeader& main = file.images.front().header;
  if (fitting.size() == 1) {
    target.device = fitting.front();
    TellApart(file, *target.device);
  } else if (const std::string boot =
                 InterfaceWith(SelectedInterfaces(context), KeyText(main.boot_input_key));
             !boot.empty()) {
    target.boot_path = boot;
    return target;
  } else if (selected.empty() || !context.selection.Any()) {
    const std::string what = Describe(context.selection);
    throw Failure(ExitCode::kNoDevice,
                  "no device that the file is for" + (what.empty() ? "" : " " + what) +
                      " is plugged in, neither in normal mode ('" +
                      KeyText(NormalHeader(file).normal_input_key) + "') nor in boot mode ('" +
                      KeyText(main.boot_input_key) + "')" +
                      (selected.empty() ? "" : "; --device with --force takes another one"));
  } else {
    if (selected.size() > 1) FailSeveral(selected);
    if (!force) {
      throw Failure(ExitCode::kDeclined, "the file is for '" +
                                             KeyText(NormalHeader(file).normal_input_key) +
                                             "', which " + selected.front().Title() +
                                             " is not; --force takes it all the same");
    }
    target.device = selected.front();
    target.forced = true;
    NarrowTo(file, target.device->path, target.device->path);
  }
  LookAtDevice(target, force);
  return target;
}

std::optional<DeviceEntry> AwaitReturn(const Context& context, const UpgradeFile& file,
                                       const std::vector<std::string>& others) {
  const uint64_t start_ms = GetTickCount64();
  while (true) {
    for (const DeviceEntry& device : ListDevices(context)) {
      const bool other = std::find(others.begin(), others.end(), device.path) != others.end();
      if (!other && IsFor(file, device)) return device;
    }
    if (GetTickCount64() - start_ms >= kReturnMs) return std::nullopt;
    Sleep(kReturnPollMs);
  }
}

}  // namespace perictl
