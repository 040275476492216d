// The demo's last step: gives the virtual device new firmware, with which it comes back.
#include "commands/demo_steps.h"
#include "device/online.h"
#include "exit_codes.h"
#include "firmware/target.h"
#include "firmware/upgrade_file.h"
#include "firmware/upgrade_run.h"
#include "perilink/finder.h"
#include "selection/virtual_devices.h"
#include "terminal/text.h"

namespace perictl {
namespace {

constexpr uint32_t kTimeoutMs = 5000;

int32_t ReadVersion(const std::string& path) {
  const int32_t version = UsbFinderC_GetVersion(path.c_str());
  if (version == 0) FailUnanswered(path, "its version");
  return version;
}

}  // namespace

void DemoUpgrade(DemoState& state) {
  Report& report = state.context.report;
  const UpgradeFile file = CheckUpgradeFile(VirtualUpgradeFile());
  if (file.bytes.empty()) {
    report.Fact("skipped", "skipped", "a real device keeps its firmware; see 'perictl upgrade'",
                true);
    return;
  }
  RequireSound(file, "the demo's file");
  const int32_t before = ReadVersion(state.device.path);
  const UpgradeImage& image = file.images.front();
  report.Fact("packets", "packets", std::to_string(image.PacketCount()), image.PacketCount());
  const UpgradeBar bar = report.json() ? UpgradeBar::kNone : UpgradeBar::kOnTerminal;
  RunUpgrade(file, kTimeoutMs, bar, [&report](const std::string& text, const Json& value) {
    if (value["event"] != "progress") report.Item("events", text, value);
  });
  AwaitReturn(state.context, file, {});
  state.device = DeviceToWrite(state.context);
  const int32_t after = ReadVersion(state.device.path);
  if (after == before) {
    throw Failure(ExitCode::kUpgrade,
                  "the device still has version " + VersionText(after) + " after its upgrade");
  }
  report.Fact("version", "firmware version",
              "was " + VersionText(before) + "; is " + VersionText(after),
              {{"before", VersionText(before)}, {"after", VersionText(after)}});
}

}  // namespace perictl
