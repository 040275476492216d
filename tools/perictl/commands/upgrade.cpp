// perictl upgrade: shows what an upgrade file holds, and upgrades the device that it is for.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "commands/commands.h"
#include "device.h"
#include "exit_codes.h"
#include "perilink/upgrade.h"
#include "text.h"
#include "upgrade_file.h"
#include "upgrade_run.h"

namespace perictl {
namespace {

struct UpgradeOptions {
  std::string file;
  std::string log;
  uint32_t timeout_ms = 10'000;
};

const char* TransportText(const UpgradeCommand& command) {
  return command.feature_report != 0 ? "feature report" : "output report";
}

void AddText(Report& report, const char* key, const char* label, const UpgradeText& field) {
  const std::string text = SafeText(TextOf(field));
  report.Fact(key, label, text, text);
}

void AddCommand(Report& report, const char* key, const char* label, const UpgradeCommand& command,
                const std::string& how) {
  const size_t length = std::min<size_t>(command.length, sizeof command.data);
  const std::string data = HexBytes({command.data, length});
  report.Fact(key, label, data + " (" + std::to_string(command.length) + " bytes" + how + ")",
              {{"length", int{command.length}}, {"data", data}});
}

void AddChecksum(Report& report, const UpgradeImage& image) {
  const uint32_t checked = image.header.checked_length;
  const uint32_t stored = image.header.checksum;
  std::string text = Hex32(stored);
  text += image.ChecksumIsRight() ? ", right" : ", WRONG: should be " + Hex32(image.right_checksum);
  report.Fact("checksum", "checksum",
              text + "; covers the header to byte " + std::to_string(checked),
              {{"stored", stored},
               {"right", image.ChecksumIsRight()},
               {"expected", image.right_checksum},
               {"checked_length", checked}});
}

void AddImage(Report& report, const UpgradeImage& image) {
  const UpgradeHeader& header = image.header;
  report.Section(image.name, image.name == "main" ? "Main image" : "Slave image");
  report.Fact("offset", "offset in the file", std::to_string(image.offset), image.offset);
  AddText(report, "product_name", "product", header.product_name);
  AddText(report, "file_id", "file id", header.file_id);
  AddText(report, "ic_name", "IC", header.ic_name);
  AddText(report, "sensor_name", "sensor", header.sensor_name);
  AddChecksum(report, image);
  const uint32_t payload = header.payload_length;
  report.Fact("payload_length", "payload", std::to_string(payload) + " bytes", payload);
  report.Fact("packets", "packets", std::to_string(image.PacketCount()) + ", the start included",
              image.PacketCount());
  report.Fact("packet_length", "packet length", std::to_string(header.packet.length) + " bytes",
              int{header.packet.length});
  report.Fact("transport", "packets go as", TransportText(header.packet),
              TransportText(header.packet));
  report.Fact("start_address", "start address", Hex32(image.StartAddress()), image.StartAddress());
  AddCommand(report, "reset", "reset command", header.reset,
             std::string(", ") + TransportText(header.reset) +
                 (image.ResetHasEcho() ? ", echo awaited" : ", no echo"));
  AddCommand(report, "start", "start command", header.start, "");
  AddText(report, "normal_input", "normal input", header.normal_input);
  AddText(report, "normal_output", "normal output", header.normal_output);
  AddText(report, "boot_input", "boot-mode input", header.boot_input);
  AddText(report, "boot_output", "boot-mode output", header.boot_output);
}

void Inspect(Context& context, const UpgradeOptions& options) {
  Report& report = context.report;
  const UpgradeFile file = ReadUpgradeFile(options.file);
  report.Section("", "Upgrade file:");
  report.Fact("file", "file", options.file, options.file);
  report.Fact("size", "size", std::to_string(file.bytes.size()) + " bytes", file.bytes.size());
  report.Fact("sound", "sound", file.problem.empty() ? "yes" : "no", file.problem.empty());
  for (const UpgradeImage& image : file.images)
    AddImage(report, image);
  RequireSound(file, options.file);
}

// Keeps the library's upgrade log. It is opened at once: that it can't be written must not turn out
// when the upgrade is over.
class LogFile {
 public:
  explicit LogFile(std::string name) : name_(std::move(name)) {
    if (name_.empty()) return;
    file_.open(name_, std::ios::binary);
    if (!file_) throw Failure(ExitCode::kFile, name_ + " can't be written");
  }

  // False when that failed.
  bool Write() {
    if (name_.empty()) return true;
    uint32_t count = 0;
    char** const lines = UsbUpgradeC_GetLogs(&count);
    for (const std::string& line : TakeList(lines, count))
      file_ << line << '\n';
    file_.close();
    return !file_.fail();
  }

 private:
  const std::string name_;
  std::ofstream file_;
};

void Upgrade(Context& context, const UpgradeOptions& options) {
  const UpgradeFile file = ReadUpgradeFile(options.file);
  RequireSound(file, options.file);
  Report& report = context.report;
  report.Section("", "Upgrading " + SafeText(TextOf(file.images[0].header.product_name)) +
                         " with " + options.file);
  const UpgradeBar bar = report.json() ? UpgradeBar::kNone : UpgradeBar::kOnTerminal;
  RunUpgrade(file, options.timeout_ms, bar, [&report](const std::string& text, const Json& value) {
    if (report.json() || !text.empty()) report.Event(text, value);
  });
}

void Run(Context& context, const UpgradeOptions& options) {
  context.report.BeginEvents();
  std::error_code no_such_file;
  if (std::filesystem::equivalent(options.file, options.log, no_such_file)) {
    throw Failure(ExitCode::kUsage, "the log would take the place of the upgrade file");
  }
  LogFile log(options.log);
  std::optional<Failure> failure;
  try {
    Upgrade(context, options);
  } catch (const Failure& caught) {
    failure = caught;
  }
  const bool kept = log.Write();
  if (failure) throw Failure(*failure);
  if (!kept) {
    throw Failure(ExitCode::kFile, options.log + " can't be written; the upgrade has succeeded");
  }
}

}  // namespace

void AddUpgradeCommand(CLI::App& app, Context& context) {
  CLI::App* const upgrade =
      app.add_subcommand("upgrade", "show what an upgrade file holds, or upgrade a device with it");
  upgrade->require_subcommand(1);
  upgrade->fallthrough();
  const auto options = std::make_shared<UpgradeOptions>();

  CLI::App* const inspect =
      upgrade->add_subcommand("inspect", "show a file's images, and whether they are sound");
  inspect->add_option("FILE", options->file, "the upgrade file")->required();
  inspect->callback(
      [&context, options] { context.run = [&context, options] { Inspect(context, *options); }; });

  CLI::App* const run =
      upgrade->add_subcommand("run", "upgrade the devices that the file names, in either mode");
  run->add_option("FILE", options->file, "the upgrade file")->required();
  run->add_option("--log", options->log, "write the upgrade log here when it ends");
  run->add_option("--timeout", options->timeout_ms,
                  "how long the device may take none of the download, in milliseconds")
      ->check(CLI::Range(1000, 3'600'000))
      ->capture_default_str();
  run->callback(
      [&context, options] { context.run = [&context, options] { Run(context, *options); }; });
}

}  // namespace perictl
