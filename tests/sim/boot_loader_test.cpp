#include "sim/boot_loader.h"

#include <gtest/gtest.h>

#include "raw_host.h"
#include "sim/keyboard.h"
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
bool SendPacket(RawHost& input, RawHost& output, const Bytes& packet) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    input.arrived.clear();
    if (output.Write(packet) != 0) return false;
    Sleep(5);
    if (!input.arrived.empty() && input.arrived[0].report == packet) return true;
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
  RawHost input(device.BootInputPath());
  RawHost second(device.BootOutputPath());
  RawHost& output = device.options().boot.separate_interfaces ? second : input;
  output.Write(image.start.data);
  Sleep(100);
  if (input.arrived.size() != 2 || input.arrived[0].report[1] != 0xB0) return {};
  if (input.arrived[1].report[4] != 1) return input.arrived[1].report;
  for (size_t sent = 0; sent < payload.size(); sent += 32) {
    if (!SendPacket(input, output, DataPacket(payload, sent))) return {};
  }
  Sleep(20);
  const Bytes last = input.arrived.back().report;
  Sleep(1000);
  return last;
}

TEST(BootLoader, TakesAnUpgradeAndComesBackWithTheNewVersion) {
  for (const bool separate : {false, true}) {
    DeviceOptions options = Mouse::Options();
    options.boot.separate_interfaces = separate;
    Mouse mouse(options);
    std::vector<Mode> modes;
    mouse.OnModeChange([&](Mode mode) { modes.push_back(mode); });
    mouse.Plug();
    const Bytes firmware = MakeVirtualFirmware(0x0405, 1000);
    const Bytes last = Upgrade(mouse, firmware);
    ASSERT_EQ(last.size(), 64u);
    EXPECT_EQ(Bytes(last.begin() + 1, last.begin() + 5), (Bytes{0x5B, 0xB5, 0x88, 0x00}));
    EXPECT_EQ(mouse.boot_loader().Received(), firmware);
    EXPECT_EQ(mouse.boot_loader().Address(), kAddress);
    EXPECT_EQ(modes, (std::vector<Mode>{Mode::kNormal, Mode::kChanging, Mode::kBoot,
                                        Mode::kChanging, Mode::kNormal}));
    RawHost host(mouse.CommandPath());
    EXPECT_EQ(host.Ask(command::kVersion)[7], 0x05);
  }
}

TEST(BootLoader, ResetsByItsOwnCommandInItsTimeOrByTheUpdateModeCommand) {
  DeviceOptions options = Mouse::Options();
  options.boot.reset_command = {0x08, 0x66, 1, 2, 3};  // padded by the bus to the report
  Mouse mouse(options);
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  EXPECT_EQ(host.WriteFeature(mouse.ResetCommand()), 0u);
  Sleep(2);
  ASSERT_EQ(host.arrived.size(), 1u);
  EXPECT_EQ(host.arrived[0].report[4], 3);
  Sleep(17);
  EXPECT_EQ(mouse.mode(), Mode::kNormal);
  Sleep(2);
  EXPECT_EQ(mouse.mode(), Mode::kChanging);
  EXPECT_TRUE(platform::Bus().PresentInterfaces().empty());
  Sleep(298);
  EXPECT_EQ(mouse.mode(), Mode::kChanging);
  Sleep(3);
  ASSERT_EQ(platform::Bus().PresentInterfaces().size(), 1u);
  EXPECT_EQ(mouse.BootInputKey(), "vid_1234&pid_b007");
  EXPECT_EQ(mouse.BootInputPath(), mouse.BootOutputPath());

  options.instance = "2";
  options.boot.echo_reset = false;
  Mouse quiet(options);
  quiet.Plug();
  RawHost second(quiet.CommandPath());
  EXPECT_EQ(second.Exchange(MakeFrame(command::kUpdateMode, 0), 1000), 0u);
  EXPECT_EQ(quiet.mode(), Mode::kBoot);
}

TEST(BootLoader, FaultsMeetThePackets) {
  struct Script {
    const char* name;
    std::function<void(Faults&)> add;
    bool succeeds;
  };
  const Script scripts[] = {
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
    const Bytes last = Upgrade(mouse, MakeVirtualFirmware(7, 300));
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

TEST(BootLoader, SaysWhatIsWrongWithWhatItGets) {
  Keyboard keyboard;
  keyboard.PlugInBootMode();
  RawHost host(keyboard.BootInputPath());
  const auto error = [&](const Bytes& packet) {
    host.Exchange(packet, 100);
    const Bytes& last = host.arrived.back().report;
    return last[1] == 0x5A && last[2] == 0xA5 ? int{last[3]} : 0;
  };
  const Bytes firmware = MakeVirtualFirmware(1, 96);
  EXPECT_EQ(error(DataPacket(firmware, 0)), BootLoader::kNotStarted);
  host.Write(ImageFor(keyboard, firmware, kAddress).start.data);
  Sleep(100);
  Bytes bad = DataPacket(firmware, 0);
  for (const auto& [at, value] : {std::pair{3, 0}, {3, 33}, {6, 0}, {7, 1}, {5, 0xFF}}) {
    Bytes packet = bad;
    packet[static_cast<size_t>(at)] = static_cast<uint8_t>(value);
    EXPECT_EQ(error(packet), BootLoader::kBadPacket) << at;
  }
  EXPECT_EQ(error(DataPacket(firmware, 0)), 0);
  EXPECT_EQ(error(DataPacket(firmware, 64)), BootLoader::kIncomplete);
  Bytes wrong = DataPacket(firmware, 32);
  wrong[17] ^= 1;
  EXPECT_EQ(error(wrong), 0);
  EXPECT_EQ(error(DataPacket(firmware, 64)), BootLoader::kBadFirmware);
  EXPECT_EQ(error(DataPacket(firmware, 32)), 0);
  EXPECT_EQ(error(DataPacket(firmware, 64)), 0);
  EXPECT_TRUE(keyboard.boot_loader().Finished());
}

}  // namespace
}  // namespace perilink::sim
