// perictl upgrade, with files that fit the virtual mouse and files that must never reach a device.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "tools/perictl_run.h"

namespace perilink {
namespace {

using sim::Bytes;
using sim::UpgradeFileBuilder;
using sim::UpgradeImage;

UpgradeImage MouseImage() {
  return sim::ImageFor(sim::Mouse(), sim::MakeVirtualFirmware(0x0203, 1000));
}

using UpgradeCommand = PerictlTest;

TEST_F(UpgradeCommand, InspectShowsBothImages) {
  UpgradeImage slave = MouseImage();
  slave.product_name = "tail\x1b[2J";
  slave.payload.resize(33);
  slave.reset = {5, true, {8, 13, 0, 0, 0}};
  slave.packet.feature = true;
  folder_.Store("file", UpgradeFileBuilder(MouseImage()).Slave(slave).Gap(8).Build());
  const Json told = Run({"upgrade inspect --json DIR/file", 0, ""}).Document();
  const PerictlRun digest = RunProgram("tail -c +8193 DIR/file | head -c 1000 | sha256sum");
  const std::tuple<const char*, const char*, Json> expected[] = {
      {"main", "packets", 33},
      {"main", "start_address", 0x00010000},
      {"main", "transport", "output report"},
      {"main", "payload_digest", digest.out.substr(0, 64)},
      {"slave", "offset", 8192 + 1000 + 8},
      {"slave", "packets", 3},
      {"slave", "transport", "feature report"},
      {"slave", "reset", {{"length", 5}, {"data", "08 0d 00 00 00"}}},
      {"slave", "product_name", "tail\\x1b[2J"},
      {"slave", "proven", {{"header", true}, {"payload", false}}},
  };
  for (const auto& [image, member, value] : expected)
    EXPECT_EQ(told[image][member], value) << image << " " << member;
  EXPECT_EQ(told["sound"], true);
}

TEST_F(UpgradeCommand, DamagedFilesAreRefusedBeforeAnythingIsSent) {
  const auto changed = [](const std::function<void(UpgradeImage&)>& change) {
    UpgradeImage image = MouseImage();
    change(image);
    return UpgradeFileBuilder(image).Build();
  };
  const auto cut = [](Bytes bytes, size_t removed) {
    bytes.resize(bytes.size() - removed);
    return bytes;
  };
  UpgradeImage keyless = MouseImage();
  keyless.boot_output.clear();
  const Bytes pair = UpgradeFileBuilder(MouseImage()).Slave(MouseImage()).Build();
  const struct {
    const char* line;  // a part of it
    Bytes file;
  } cases[] = {
      {"it has 0 bytes", {}},
      {"it has 8191 bytes", Bytes(8191)},
      {"main image has the wrong checksum: it is 0x00000007",
       changed([](auto& i) { i.checksum = 7; })},
      // The library itself takes this one.
      {"8193 bytes of its header", changed([](auto& i) { i.checked_length = 8193; })},
      {"main image is cut off", cut(changed([](auto&) {}), 1)},
      {"it ends at byte 4294975487", changed([](auto& i) { i.payload_length = 0xFFFFFFFF; })},
      {"reset command of 63 bytes", changed([](auto& i) { i.reset.length = 63; })},
      {"start command of 0 bytes", changed([](auto& i) { i.start.length = 0; })},
      {"packets of 65 bytes", changed([](auto& i) { i.packet.length = 65; })},
      {"packets of 48 bytes; 49 to 64", changed([](auto& i) { i.packet.length = 48; })},
      {"no normal input", changed([](auto& i) { i.normal_input.clear(); })},
      {"inside the main image", changed([](auto& i) { i.slave_offset = 9191; })},
      {"leaves no room", changed([](auto& i) { i.slave_offset = 9192; })},
      {"leaves no room", changed([](auto& i) { i.slave_offset = 0xFFFFFFFF; })},
      {"slave image is cut off", cut(pair, 1)},
      {"slave image names no boot-mode output",
       UpgradeFileBuilder(MouseImage()).Slave(keyless).Build()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    folder_.Store("file", c.file);
    for (const char* command : {"upgrade inspect DIR/file", "upgrade run --json DIR/file"}) {
      const PerictlRun run = Run({command, 11, c.line});
      EXPECT_EQ(run.ErrorLines(), 2);
      EXPECT_EQ(run.out.find("notice"), std::string::npos);
    }
  }
  EXPECT_EQ(Run("upgrade inspect /nowhere/x").exit_code, 8);
}

TEST_F(UpgradeCommand, RunTellsItsNoticesAndKeepsTheLog) {
  UpgradeImage image = MouseImage();
  image.product_name = "tail\n  0.1 s  forged\x1b[2J";
  folder_.Store("file", UpgradeFileBuilder(image).Build());
  const PerictlRun run = Run("upgrade run DIR/file --log DIR/log");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_EQ(run.ErrorLines(), 1) << "a bar in a pipe: " << run.err;
  run.ExpectTells("80 %, 4020 mV");
  const std::string log = folder_.Content("log");
  const std::string told = run.out + run.err + log;
  EXPECT_EQ(told.find_first_of("\r\x1b"), std::string::npos);
  EXPECT_EQ(told.find("\n  0.1 s  forged"), std::string::npos);
  run.ExpectTells(" s  10 %\n");
  EXPECT_TRUE(log.starts_with("File check init\n") && log.ends_with("All Upgrade Success\n"));
  // The backup is a configuration that can be loaded.
  const size_t backup = run.out.find("/state/perilink/backups/");
  ASSERT_NE(backup, std::string::npos) << run.out;
  Run({"config diff", 0, "no difference"},
      " DIR" + run.out.substr(backup, run.out.find('\n', backup) - backup));

  const std::string before = folder_.Content("file");
  EXPECT_EQ(Run("upgrade run DIR/file --log DIR/file").exit_code, 2);
  EXPECT_EQ(folder_.Content("file"), before);
}

// Each with its code, as text and as JSON. What is doubtful is refused before anything is sent.
TEST_F(UpgradeCommand, EveryWayToEndHasItsCode) {
  UpgradeImage other = MouseImage();
  other.normal_input = other.normal_output = "vid_1234&pid_0001";
  UpgradeImage half = MouseImage();
  half.normal_output = "vid_9999";
  UpgradeImage elsewhere = half;
  elsewhere.normal_input = "vid_9999";
  folder_.Store("mouse", UpgradeFileBuilder(MouseImage()).Build());
  folder_.Store("other", UpgradeFileBuilder(other).Build());
  folder_.Store("half", UpgradeFileBuilder(half).Build());
  folder_.Store("set", UpgradeFileBuilder(MouseImage()).Slave(elsewhere).Build());
  Run("config save DIR/unused.json");
  std::filesystem::create_symlink("unused.json", folder_.At("link"));
  const struct {
    PerictlStep step;
    bool sent = false;
  } rows[] = {
      {{"DIR/mouse --vid 9999", 3, "no device that the file is for of vendor 9999"}},
      {{"DIR/mouse -d 2 --virtual=mouse,keyboard", 15, "virtual-keyboard (1234:abce"}},
      {{"DIR/other -d 1", 15, "--force takes it all the same"}},
      {{"DIR/mouse --virtual=mouse,mouse", 14, "the file is for each of 1 virtual"}},
      {{"DIR/mouse --virtual-fault=low", 15, "the battery is low (12 %"}},
      {{"DIR/mouse --virtual-fault=asleep", 4, "wake it"}},
      {{"DIR/mouse --virtual-fault=silent", 5, "does not answer"}},
      {{"DIR/mouse --virtual-fault=absent", 3, "no device that the file is for"}},
      {{"DIR/set", 3, "no device that the file is for"}},
      {{"DIR/mouse --log DIR/link", 8, "link: the file can't be written: it is a link"}},
      {{"DIR/mouse --log DIR/none/log", 8, "no such folder"}},
      {{"DIR/mouse --backup DIR/none/b", 8, "no such folder"}},
      {{"DIR/mouse --dry-run", 0, "nothing was sent (--dry-run)"}},
      {{"DIR/other -d 1 --force --dry-run", 0, "forced"}},
      {{"DIR/mouse --virtual-fault=boot-silent", 12, "stopped answering"}, true},
      {{"DIR/mouse --virtual-fault=boot-error", 9, "reported error 2"}, true},
      {{"DIR/mouse --virtual-fault=reset-silent", 12, "reset command"}, true},
      {{"DIR/half", 3, "only one side"}, true},
      {{"DIR/mouse -d 2 --virtual=mouse,mouse", 0, "has succeeded"}, true},
      {{"DIR/mouse --virtual-fault=low --force --no-backup", 0, "none (--no-backup)"}, true},
      {{"DIR/other -d 1 --force --no-backup", 0, "has succeeded"}, true},
  };
  for (const auto& [step, sent] : rows) {
    SCOPED_TRACE(step.arguments);
    const std::string run = "upgrade run --timeout 1000 --virtual-time ";
    const PerictlRun told = Run({run.c_str(), step.exit_code, step.told}, step.arguments);
    EXPECT_TRUE(sent || told.out.find(" s  ") == std::string::npos) << told.out;
    if (step.exit_code == 0) continue;
    const std::vector<Json> lines =
        Lines(Run({run.c_str(), step.exit_code, ""}, step.arguments + std::string(" --json")).out);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back()["error"]["code"], step.exit_code);
    EXPECT_EQ(lines.size() >= 3 && lines.front()["event"] == "plan" &&
                  lines[lines.size() - 2]["event"] == "failure",
              sent);
  }
}

}  // namespace
}  // namespace perilink
