#include "sim/boot_loader.h"

#include <gtest/gtest.h>

#include "raw_host.h"
#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"

namespace perilink::sim {
namespace {

constexpr uint32_t kAddress = 0x00010000;

Bytes DataPacket(const Bytes& payload, size_t sent) {
  const size_t n = std::min<size_t>(32, payload.size() - sent);
  const auto address = static_cast<uint32_t>(kAddress + sent);
  Bytes packet(64, 0);
  packet[1] = 0xB1;
  packet[2] = sent + 32 < payload.size() ? 0xC0 : 0xC1;
  packet[3] = static_cast<uint8_t>(n);
  for (size_t i = 0; i < 4; ++i)
    packet[5 + i] = static_cast<uint8_t>(address >> (24 - 8 * i));
  std::fill_n(packet.begin() + 17, 32, uint8_t{0xFF});
  std::copy_n(payload.begin() + static_cast<ptrdiff_t>(sent), n, packet.begin() + 17);
  return packet;
}

// Sends one packet until its echo is right, at most ten times.
bool SendPacket(RawHost& boot, const Bytes& packet) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    boot.arrived.clear();
    if (boot.Write(packet) != 0) return false;
    Sleep(5);
    if (!boot.arrived.empty() && boot.arrived[0].report == packet) return true;
  }
  return false;
}

// A whole upgrade as a plain host makes it. Returns the last report, empty when it came to nothing.
Bytes Upgrade(Device& device, const Bytes& payload) {
  const UpgradeImage image = ImageFor(device, payload, kAddress);
  if (device.mode() == Mode::kNormal) {
    RawHost host(device.CommandPath());
    if (host.Exchange(image.reset.data) != 1 || host.arrived[0].report != image.reset.data) {
      return {};
    }
    Sleep(1000);
  }
  RawHost boot(device.BootInputPath());
  boot.Write(image.start.data);
  Sleep(100);
  if (boot.arrived.size() != 2 || boot.arrived[0].report[1] != 0xB0) return {};
  if (boot.arrived[1].report[4] != 1) return boot.arrived[1].report;
  for (size_t sent = 0; sent < payload.size(); sent += 32) {
    if (!SendPacket(boot, DataPacket(payload, sent))) return {};
  }
  Sleep(20);
  const Bytes last = boot.arrived.back().report;
  Sleep(1000);
  return last;
}

TEST(BootLoader, FaultsMeetThePackets) {
  struct Script {
    const char* name;
    std::function<void(Faults&)> add;
    bool succeeds;
  };
  const Script scripts[] = {
      {"none", [](Faults&) {}, true},
      {"echo differs once", [](Faults& f) { f.EchoDiffers(At(3)); }, true},
      {"echo differs ten times", [](Faults& f) { f.EchoDiffers(Next(10)); }, false},
      {"corrupt", [](Faults& f) { f.CorruptData(At(4)); }, true},
      {"unknown reply", [](Faults& f) { f.WrongCommand(At(5)); }, true},
      {"drop", [](Faults& f) { f.Drop(At(3)); }, true},
      {"late", [](Faults& f) { f.AnswerAfter(At(3), 7'000); }, true},
      {"write fails", [](Faults& f) { f.FailWrite(At(4)); }, false},
  };
  for (const Script& script : scripts) {
    SCOPED_TRACE(script.name);
    Mouse mouse;
    mouse.Plug();
    script.add(mouse.boot_faults());
    const Bytes firmware = MakeVirtualFirmware(7, 300);
    const Bytes last = Upgrade(mouse, firmware);
    EXPECT_EQ(mouse.boot_loader().Received() == firmware, script.succeeds);
    EXPECT_EQ(last.size() == 64 && last[3] == 0x88, script.succeeds);
    EXPECT_EQ(mouse.mode(), script.succeeds ? Mode::kNormal : Mode::kBoot);
  }
}

TEST(BootLoader, AnUpgradeCutOffLeavesTheDeviceInBootModeUntilOneSucceeds) {
  Mouse mouse;
  mouse.Plug();
  mouse.boot_faults().UnplugAfter(At(5));
  EXPECT_TRUE(Upgrade(mouse, MakeVirtualFirmware(9, 300)).empty());
  EXPECT_EQ(mouse.mode(), Mode::kUnplugged);
  mouse.Plug();
  EXPECT_EQ(mouse.mode(), Mode::kBoot);
  EXPECT_EQ(Upgrade(mouse, MakeVirtualFirmware(9, 300))[3], 0x88);
  EXPECT_EQ(mouse.mode(), Mode::kNormal);
  EXPECT_EQ(mouse.firmware().options().version, 9);
}

}  // namespace
}  // namespace perilink::sim
