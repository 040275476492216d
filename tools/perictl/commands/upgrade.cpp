// perictl upgrade: shows what an upgrade file holds, and upgrades the device that it is for.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include "commands/commands.h"
#include "common/files.h"
#include "config/backup.h"
#include "config/config_device.h"
#include "device/facts.h"
#include "firmware/digest.h"
#include "firmware/target.h"
#include "firmware/upgrade_file.h"
#include "firmware/upgrade_run.h"
#include "perilink/finder.h"
#include "perilink/upgrade.h"
#include "selection/interfaces.h"
#include "system.h"
#include "terminal/text.h"

namespace perictl {
namespace {

struct UpgradeOptions {
  std::string file;
  std::string log;
  uint32_t timeout_ms = 10'000;
  BackupOptions backup;
  bool force = false;
  bool yes = false;
  bool dry_run = false;
};

const char* TransportText(const UpgradeFileCommand& command) {
  return command.use_feature_report != 0 ? "feature report" : "output report";
}

void AddText(Report& report, const char* key, const char* label, const UpgradeText& field) {
  const std::string text = SafeText(TextOf(field));
  report.Fact(key, label, text, text);
}

void AddCommand(Report& report, const char* key, const char* label,
                const UpgradeFileCommand& command, const std::string& how) {
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

// What the file's checksum says nothing about. A payload that was exchanged goes unnoticed.
void AddProof(Report& report, const UpgradeFile& file, const UpgradeImage& image) {
  const std::string digest = Sha256(PayloadOf(file, image));
  report.Fact("payload_digest", "payload's SHA-256", digest, digest);
  const uint32_t checked = image.header.checked_length;
  const bool header = image.ChecksumIsRight() && checked >= sizeof(UpgradeFileHeader);
  report.Fact("proven", "proven",
              header ? "the header was not damaged: its bytes add up to its checksum"
                     : "nothing: the checksum is wrong, or covers less than the header",
              {{"header", header}, {"payload", false}});
  report.Line("not proven",
              "the payload: no checksum covers it; compare its digest with the "
              "maker's");
}

void AddImage(Report& report, const UpgradeFile& file, const UpgradeImage& image) {
  const UpgradeFileHeader& header = image.header;
  report.Section(image.name, image.name == "main" ? "Main image" : "Slave image");
  report.Fact("offset", "offset in the file", std::to_string(image.offset), image.offset);
  AddText(report, "product_name", "product", header.product_name);
  AddText(report, "file_id", "file id", header.file_id);
  AddText(report, "ic_name", "IC", header.chip_name);
  AddText(report, "sensor_name", "sensor", header.sensor_name);
  AddChecksum(report, image);
  const uint32_t payload = header.payload_length;
  report.Fact("payload_length", "payload", std::to_string(payload) + " bytes", payload);
  report.Fact("packets", "packets", std::to_string(image.PacketCount()) + ", the start included",
              image.PacketCount());
  report.Fact("packet_length", "packet length",
              std::to_string(header.packet_template.length) + " bytes",
              int{header.packet_template.length});
  report.Fact("transport", "packets go as", TransportText(header.packet_template),
              TransportText(header.packet_template));
  report.Fact("start_address", "start address", Hex32(image.StartAddress()), image.StartAddress());
  AddCommand(report, "reset", "reset command", header.reset_command,
             std::string(", ") + TransportText(header.reset_command) +
                 (image.ResetHasEcho() ? ", echo awaited" : ", no echo"));
  AddCommand(report, "start", "start command", header.start_command, "");
  AddText(report, "normal_input", "normal input", header.normal_input_key);
  AddText(report, "normal_output", "normal output", header.normal_output_key);
  AddText(report, "boot_input", "boot-mode input", header.boot_input_key);
  AddText(report, "boot_output", "boot-mode output", header.boot_output_key);
  AddProof(report, file, image);
}

void Inspect(Context& context, const UpgradeOptions& options) {
  Report& report = context.report;
  const UpgradeFile file = ReadUpgradeFile(options.file);
  report.Section("", "Upgrade file:");
  report.Fact("file", "file", options.file, options.file);
  report.Fact("size", "size", std::to_string(file.bytes.size()) + " bytes", file.bytes.size());
  report.Fact("sound", "sound", file.problem.empty() ? "yes" : "no", file.problem.empty());
  for (const UpgradeImage& image : file.images)
    AddImage(report, file, image);
  RequireSound(file, options.file);
}

// ---- Running -----------------------------------------------------------------------------------

// Keeps the library's upgrade log. That it can't be written must not turn out when the upgrade is
// over. A text from the file can neither end a line nor steer a terminal.
void KeepLog(const std::string& name) {
  if (name.empty()) return;
  uint32_t count = 0;
  char** const lines = UsbUpgradeC_GetLogs(&count);
  std::string log;
  for (const std::string& line : TakeList(lines, count))
    log += Printable(line) + "\n";
  perilink::tools::WriteWholeFile(name, log, perilink::tools::Links::kNone);
}

void RequireLog(const UpgradeOptions& options) {
  if (options.log.empty()) return;
  std::error_code no_such_file;
  if (std::filesystem::equivalent(options.file, options.log, no_such_file)) {
    throw Failure(ExitCode::kUsage, "the log would take the place of the upgrade file");
  }
  perilink::tools::RequireWritable(options.log, perilink::tools::Links::kNone);
}

// A line, or an event, that names the backup's file.
void KeepBackupOf(Report& report, const UpgradeTarget& target, const UpgradeOptions& options) {
  if (!target.device || options.backup.none) return;
  const std::string file =
      KeepBackup(options.backup, *target.device, ConfigDevice(*target.device).Read("backing up"));
  if (report.json()) return report.Event("", {{"at_ms", 0}, {"event", "backup"}, {"file", file}});
  report.Line("backup", file);
}

// What is going to happen: lines, or the first event.
void TellPlan(Report& report, const UpgradeTarget& target, const UpgradeFile& file,
              const UpgradeOptions& options) {
  const UpgradeImage& image = file.images.front();
  const std::string product = SafeText(TextOf(image.header.product_name));
  const std::string digest = Sha256(PayloadOf(file, image));
  if (report.json()) {
    Json plan = {{"at_ms", 0}, {"event", "plan"}, {"dry_run", options.dry_run}};
    plan["device"] = target.device ? ToJson(*target.device) : Json(nullptr);
    plan["boot_path"] = target.device ? Json(nullptr) : Json(target.boot_path);
    plan["version"] = target.device ? Json(target.version) : Json(nullptr);
    plan["battery"] = target.battery ? BatteryJson(*target.battery) : Json(nullptr);
    plan["file"] = options.file;
    plan["product"] = product;
    plan["packets"] = image.PacketCount();
    plan["payload_digest"] = digest;
    return report.Event("", plan);
  }
  report.Section("", "Upgrade:");
  report.Line("device", target.Title());
  if (target.device) {
    report.Line("firmware", target.version + " now");
    report.Line("battery", target.battery ? BatteryText(*target.battery) : "not told");
  }
  report.Line("file", options.file + (product.empty() ? "" : ", for '" + product + "'"));
  report.Line("payload", std::to_string(image.header.payload_length) + " bytes in " +
                             std::to_string(image.PacketCount()) + " packets");
  report.Line("payload's SHA-256", digest);
  if (target.forced) report.Line("forced", "the file is for devices with other ids");
  if (!target.device) report.Line("backup", "none: in boot mode nothing can be read");
  if (target.device && options.backup.none) report.Line("backup", "none (--no-backup)");
}

void RequireConsent(const Report& report, const UpgradeTarget& target,
                    const UpgradeOptions& options) {
  if (options.yes || report.json() || !CanAsk()) return;
  if (Confirm("Upgrade " + target.Title() + "?")) return;
  throw Failure(ExitCode::kDeclined, "not upgraded: the answer was no");
}

// The next command finds the device again.
void TellReturn(const Context& context, Report& report, const UpgradeTarget& target,
                const UpgradeFile& file, uint64_t start_ms) {
  const std::optional<DeviceEntry> device = AwaitReturn(context, file, target.others);
  int32_t version = 0;
  if (device) {
    Address(*device);
    version = UsbFinderC_GetVersion(device->path.c_str());
  }
  if (report.json()) {
    return report.Event("",
                        {{"at_ms", GetTickCount64() - start_ms},
                         {"event", "return"},
                         {"device", device ? ToJson(*device) : Json(nullptr)},
                         {"version", version == 0 ? Json(nullptr) : Json(VersionText(version))}});
  }
  if (!device) {
    report.Line("firmware", "unknown: the device is not back yet; 'perictl list' shows when it is");
  } else {
    report.Line("firmware", version == 0 ? "not told" : VersionText(version) + " now");
  }
}

void Run(Context& context, const UpgradeOptions& options) {
  Report& report = context.report;
  report.BeginEvents();
  RequireLog(options);
  UpgradeFile file = ReadUpgradeFile(options.file);
  RequireSound(file, options.file);
  const UpgradeTarget target = FindUpgradeTarget(context, file, options.force);
  TellPlan(report, target, file, options);
  if (options.dry_run) return report.Remark("nothing was sent (--dry-run)");
  RequireConsent(report, target, options);
  KeepBackupOf(report, target, options);

  std::optional<Failure> failure;
  const uint64_t start_ms = GetTickCount64();
  try {
    const UpgradeBar bar = report.json() ? UpgradeBar::kNone : UpgradeBar::kOnTerminal;
    RunUpgrade(file, options.timeout_ms, bar,
               [&report](const std::string& text, const Json& value) {
                 if (report.json() || !text.empty()) report.Event(text, value);
               });
  } catch (const Failure& caught) {
    failure = caught;
  }
  try {
    KeepLog(options.log);
  } catch (const perilink::tools::FileError& error) {
    if (!failure) {
      throw Failure(ExitCode::kFile, std::string(error.what()) + "; the upgrade has succeeded");
    }
  }
  if (failure) throw Failure(*failure);
  TellReturn(context, report, target, file, start_ms);
}

}  // namespace

void AddUpgradeCommands(CommandLine& line, Context& context) {
  CLI::App& group = line.AddGroup(
      line.root(), {"upgrade",
                    "show what an upgrade file holds, or upgrade a device with it",
                    {},
                    {{"perictl upgrade inspect mouse.upgrade", "what the file is, and is for"}}});
  const auto options = std::make_shared<UpgradeOptions>();

  CLI::App& inspect = line.Add(
      group, {"inspect",
              "show a file's images, whether they are sound, and what that proves",
              {"The checksum covers the header alone. A payload that was damaged or exchanged is "
               "told by its digest, if the maker tells the right one."},
              {{"perictl upgrade inspect mouse.upgrade", "what it is for, and its digest"}}});
  inspect.add_option("FILE", options->file, "the upgrade file")->required()->type_name("FILE");
  SetRun(inspect, context, [&context, options] { Inspect(context, *options); });

  CLI::App& run = line.Add(
      group,
      {"run",
       "upgrade the device that a file is for, in normal or in boot mode",
       {"It shows what it is going to do, keeps a backup of the device's configuration and, on a "
        "terminal, asks. A device whose battery is low and one that the file is not for are "
        "refused without --force. An upgrade that has begun is not stopped by Ctrl-C."},
       {{"perictl upgrade run mouse.upgrade", "upgrade the device that it is for"},
        {"perictl upgrade run --dry-run mouse.upgrade", "only show what would happen"}}});
  run.add_option("FILE", options->file, "the upgrade file")->required()->type_name("FILE");
  run.add_option("--log", options->log, "write the upgrade log here when it ends")
      ->type_name("FILE");
  run.add_option("--timeout", options->timeout_ms,
                 "how long the device may take none of the download, in milliseconds; 10000 if it "
                 "is not given")
      ->check(WholeNumber(1000, 3'600'000, "--timeout 10000"))
      ->type_name("MS");
  AddBackupOptions(run, options->backup);
  run.add_flag("--force", options->force,
               "also with a low battery, and with a file for devices with other ids");
  run.add_flag("-y,--yes", options->yes, "do not ask");
  run.add_flag("--dry-run", options->dry_run, "show what would happen, and send nothing");
  SetRun(run, context, [&context, options] { Run(context, *options); });
}

}  // namespace perictl
