// perictl upgrade, with files that fit the virtual mouse and files that must never reach a device.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "tools/perictl_run.h"

namespace perilink {
namespace {

using Json = nlohmann::json;
using sim::Bytes;
using sim::UpgradeFileBuilder;
using sim::UpgradeImage;

UpgradeImage MouseImage() {
  return sim::ImageFor(sim::Mouse(), sim::MakeVirtualFirmware(0x0203, 1000));
}

// A file of its own for each test process.
std::string FileName(const std::string& kind) {
  return testing::TempDir() + "perictl_" + std::to_string(getpid()) + "." + kind;
}

class UpgradeCommand : public testing::Test {
 protected:
  ~UpgradeCommand() override {
    std::remove(file_.c_str());
    std::remove(log_.c_str());
  }
  void Store(const Bytes& bytes) {
    std::ofstream(file_, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
  void Store(const UpgradeImage& image) { Store(UpgradeFileBuilder(image).Build()); }

  const std::string file_ = FileName("upgrade");
  const std::string log_ = FileName("log");
};

std::string ReadText(const std::string& name) {
  std::ifstream file(name);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<Json> Lines(const std::string& text) {
  std::vector<Json> values;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    values.push_back(Json::parse(line));
  return values;
}

TEST_F(UpgradeCommand, InspectShowsBothImages) {
  UpgradeImage slave = MouseImage();
  slave.product_name = "tail\x1b[2J";
  slave.payload.resize(33);
  slave.reset = {5, true, {8, 13, 0, 0, 0}};
  slave.packet.feature = true;
  Store(UpgradeFileBuilder(MouseImage()).Slave(slave).Gap(8).Build());
  const PerictlRun run = RunPerictl("upgrade inspect --json " + file_);
  EXPECT_EQ(run.exit_code, 0) << run.err;
  const Json told = run.Document();
  EXPECT_EQ(told["sound"], true);
  EXPECT_EQ(told["main"]["packets"], 33);
  EXPECT_EQ(told["main"]["start_address"], 0x00010000);
  EXPECT_EQ(told["main"]["transport"], "output report");
  EXPECT_EQ(told["main"]["checksum"]["right"], true);
  EXPECT_EQ(told["slave"]["offset"], 8192 + 1000 + 8);
  EXPECT_EQ(told["slave"]["packets"], 3);
  EXPECT_EQ(told["slave"]["transport"], "feature report");
  EXPECT_EQ(told["slave"]["reset"], Json({{"length", 5}, {"data", "08 0d 00 00 00"}}));
  EXPECT_EQ(told["slave"]["product_name"], "tail\\x1b[2J");
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
    Store(c.file);
    for (const char* command : {"upgrade inspect ", "upgrade run --json "}) {
      const PerictlRun run = RunPerictl(command + file_);
      EXPECT_EQ(run.exit_code, 11);
      EXPECT_NE(run.err.find(c.line), std::string::npos) << run.err;
      EXPECT_EQ(run.ErrorLines(), 2);
      EXPECT_EQ(run.out.find("notice"), std::string::npos);
    }
  }
  EXPECT_EQ(RunPerictl("upgrade inspect /nowhere/x").exit_code, 8);
}

TEST_F(UpgradeCommand, RunTellsItsNoticesAndKeepsTheLog) {
  Store(MouseImage());
  const PerictlRun run = RunPerictl("upgrade run " + file_ + " --log " + log_);
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_EQ(run.ErrorLines(), 1) << "a bar in a pipe: " << run.err;
  EXPECT_EQ(run.err.find('\r'), std::string::npos);
  size_t at = 0;
  for (const char* part : {"acknowledged its reset", "in boot mode", "ready for the download",
                           "has the whole firmware", "has succeeded"}) {
    at = run.out.find(part, at);
    ASSERT_NE(at, std::string::npos) << part << " is missing in\n" << run.out;
  }
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 7) << run.out;
  const std::string log = ReadText(log_);
  EXPECT_EQ(log.rfind("File check init\n", 0), 0u);
  EXPECT_EQ(log.substr(log.size() - 20), "All Upgrade Success\n");

  const std::string before = ReadText(file_);
  EXPECT_EQ(RunPerictl("upgrade run " + file_ + " --log " + file_).exit_code, 2);
  EXPECT_EQ(ReadText(file_), before);
}

TEST_F(UpgradeCommand, EveryFailureHasItsCodeAndItsEvents) {
  UpgradeImage elsewhere = MouseImage();
  elsewhere.normal_input = "vid_9999";
  const Bytes mouse = UpgradeFileBuilder(MouseImage()).Build();
  const struct {
    const char* arguments;
    int exit_code;
    const char* line;
    const char* log;  // a line of it; null: none
    Bytes file;
  } cases[] = {
      {"--virtual-fault=boot-silent", 12, "stopped answering", "Upgrade Timeout\n", mouse},
      {"--virtual-fault=boot-error", 9, "reported error 2", "Upgrade Timeout\n", mouse},
      {"--virtual-fault=silent", 12, "reset command", "ResetToBootMode-Timer Out Error\n", mouse},
      {"--virtual-fault=absent", 3, "no device that the file is for", nullptr, mouse},
      {"", 3, "only one side", "Found Multi Devices-input Size =0\n",
       UpgradeFileBuilder(elsewhere).Build()},
      {"", 3, "nor one slave device", nullptr,
       UpgradeFileBuilder(MouseImage()).Slave(elsewhere).Build()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.arguments) + " " + c.line);
    Store(c.file);
    const PerictlRun run = RunPerictl("upgrade run --json --virtual-time --timeout 1000 " + file_ +
                                      " --log " + log_ + " " + c.arguments);
    EXPECT_EQ(run.exit_code, c.exit_code);
    EXPECT_NE(run.err.find(c.line), std::string::npos) << run.err;
    const std::vector<Json> lines = Lines(run.out);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back()["error"]["code"], c.exit_code);
    const std::string log = ReadText(log_);
    if (c.log == nullptr) {
      EXPECT_EQ(log, "");
      EXPECT_EQ(lines.size(), 1u);
      continue;
    }
    EXPECT_NE(log.find(c.log), std::string::npos) << log;
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2]["event"], "failure");
  }
}

}  // namespace
}  // namespace perilink
