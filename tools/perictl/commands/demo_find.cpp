// The demo's first step: the HID interfaces, and the roads that lead to the device's.
#include "commands/demo_steps.h"
#include "exit_codes.h"
#include "perilink/finder.h"
#include "selection/interfaces.h"
#include "terminal/text.h"

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
  AddDevice(report, state.device);
  for (const std::string& path : state.device.interfaces) {
    const bool takes_commands = path == state.device.path;
    report.Item("interfaces", (takes_commands ? "* " : "  ") + path,
                {{"path", path}, {"takes_commands", takes_commands}});
  }

  const std::optional<DeviceIds> ids = ReadIds(state.device.path);
  if (!ids) {
    throw Failure(ExitCode::kNoDevice, WhyLocked(state.device.path));
  }
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
