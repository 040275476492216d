// The demo's first step: the HID interfaces, and the roads that lead to the device's.
#include "commands/demo_steps.h"
#include "device.h"
#include "exit_codes.h"
#include "facts.h"
#include "perilink/finder.h"
#include "text.h"

namespace perictl {
namespace {

// One way of asking, with the paths that it found.
void AddFound(Report& report, const std::string& key, const std::string& label,
              const std::vector<std::string>& paths) {
  std::string text = std::to_string(paths.size()) + (paths.size() == 1 ? " path" : " paths");
  if (paths.size() == 1) text += ": " + paths.front();
  report.Fact(key, label, text, paths);
}

}  // namespace

void DemoFind(DemoState& state) {
  Report& report = state.context.report;
  state.path = SelectDevice(state.context);
  for (const std::string& path : AllInterfaces())
    AddInterface(report, path, path == state.path);

  const std::optional<DeviceIds> ids = ReadIds(state.path);
  if (!ids) throw Failure(ExitCode::kNoDevice, "the device can't be opened: " + state.path);
  const std::string vendor = Hex16(ids->vendor);
  const std::string product = Hex16(ids->product);
  const std::string key = "vid_" + vendor + "&pid_" + product + "&mi_01";

  uint32_t count = 0;
  char** list = UsbFinderC_FindHidDevices(vendor.c_str(), product.c_str(), &count);
  AddFound(report, "by_ids", "by " + vendor + ":" + product, TakeList(list, count));
  list = UsbFinderC_FindHidDevicesByKey(key.c_str(), &count);
  AddFound(report, "by_key", "by a key with mi_01", TakeList(list, count));
  list = UsbFinderC_FindHidDevicesByDeviceId(vendor.c_str(), product.c_str(), 1, 5, &count);
  AddFound(report, "by_interface", "by interface 1, 5", TakeList(list, count));
  list = UsbFinderC_FindHidDevicesByDefaultDeviceId(vendor.c_str(), product.c_str(), &count);
  AddFound(report, "by_default", "by the default pair", TakeList(list, count));
}

}  // namespace perictl
