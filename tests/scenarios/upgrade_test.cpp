// Upgrades of a virtual device, from the reset to its return with the new firmware.
#include <atomic>

#include "scenario.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"

namespace perilink::testing {
namespace {

constexpr uint16_t kNewVersion = 0x0345;
constexpr size_t kFirmwareSize = 2048;

std::atomic<int> upgrade_result;
int PERILINK_CALL OnUpgradeEvent(const uint8_t* message, uint32_t) {
  if (message[1] == 2) upgrade_result = message[2];
  return 0;
}

// 1: success. 0: it did not start. A device has 21 s to appear, or as many as are given.
int RunUpgrade(const Bytes& file, uint32_t seconds = 21) {
  upgrade_result = 0;
  if (!UsbUpgrade_Start(file.data(), OnUpgradeEvent, seconds * 1000 / 2)) return 0;
  Eventually([] { return upgrade_result != 0; }, 3 * kPatienceMs);
  return upgrade_result;
}

Bytes FileFor(const sim::Device& device, bool feature = false) {
  const Bytes firmware = sim::MakeVirtualFirmware(kNewVersion, kFirmwareSize);
  return sim::UpgradeFileBuilder(sim::ImageFor(device, firmware, 0x00010000, feature)).Build();
}

class Upgrade : public Scenario {
 protected:
  // On a busy machine an upgrade may end before its end, and is started again.
  static void ExpectSuccess(const sim::Device& device, const Bytes& file) {
    int result = 0;
    for (int tries = 0; tries < 3 && result != 1; ++tries)
      result = RunUpgrade(file);
    EXPECT_EQ(result, 1);
    ASSERT_TRUE(Eventually([&] { return UsbFinder_GetVersion(PathOf(device)) == kNewVersion; }));
  }
};

TEST_F(Upgrade, ByOutputReports) {
  ExpectSuccess(mouse, FileFor(mouse));
  uint32_t count = 0;
  char** const lines = UsbUpgradeC_GetLogs(&count);
  const std::vector<std::string> log = TakeTexts(lines, count);
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log.back(), "All Upgrade Success");
}

TEST_F(Upgrade, ByFeatureReportsOnTwoInterfaces) {
  sim::DeviceOptions options = sim::KeyboardOptions();
  options.boot.separate_interfaces = true;
  options.boot.report_id = 5;
  const auto keyboard = NewDevice(options);
  Plug(*keyboard);
  ExpectSuccess(*keyboard, FileFor(*keyboard, true));
}

TEST_F(Upgrade, IsHeldByNoWrite) {
  mouse.faults().HoldWrite(sim::Next());
  EXPECT_GT(RunUpgrade(FileFor(mouse), 4), 1);
  mouse.faults().Heal();
  Unplug();
  Plug(mouse);
  ExpectSuccess(mouse, FileFor(mouse));
}

// At the reset, the start packet, a data packet and the last one. The last upgrade repairs all.
TEST_F(Upgrade, SurvivesAnUnplugAtEveryStep) {
  const Bytes file = FileFor(mouse);
  mouse.faults().UnplugAfter(sim::At(1));
  EXPECT_GT(RunUpgrade(file, 2), 1);
  ASSERT_TRUE(Eventually([] { return Present().empty(); }));
  for (const uint64_t packet : {uint64_t{1}, uint64_t{2}, uint64_t{1 + kFirmwareSize / 32}}) {
    mouse.faults().Heal();
    mouse.boot_faults().Heal();
    mouse.boot_faults().UnplugAfter(sim::At(packet));
    mouse.Plug();
    ASSERT_TRUE(Eventually([] { return !Present().empty(); }));
    // On a busy machine an upgrade may end before it comes to that, and is started again.
    for (int tries = 0; tries < 3 && mouse.mode() != sim::Mode::kUnplugged; ++tries)
      EXPECT_GT(RunUpgrade(file, 6), 1) << "at packet " << packet;
    ASSERT_TRUE(Eventually([] { return Present().empty(); })) << "at packet " << packet;
  }
  mouse.boot_faults().Heal();
  mouse.Plug();
  ASSERT_TRUE(Eventually([] { return !Present().empty(); }));
  ExpectSuccess(mouse, file);
}

}  // namespace
}  // namespace perilink::testing
