#include "config/config_device.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "device/online.h"
#include "exit_codes.h"
#include "perilink/protocol.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "system.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace perictl {
namespace {

using perilink::tools::ConfigPart;
using perilink::tools::ConfigParts;
using perilink::tools::ConfigUpdate;
using perilink::tools::DeviceConfig;
using perilink::tools::EncodedPart;
using perilink::tools::PartKind;

// A frame may take 100 ms and be sent five times; then the server drops it and all that follow, and
// tells nobody.
constexpr uint32_t kFrameMs = 100;
constexpr uint32_t kPatienceMs = 3000;
constexpr uint32_t kPauseMs = 200;

size_t FramesOf(size_t bytes) {
  return (bytes + PERILINK_FRAME_DATA_SIZE - 1) / PERILINK_FRAME_DATA_SIZE;
}

uint32_t TimeoutFor(size_t frames) {
  return kPatienceMs + kFrameMs * static_cast<uint32_t>(frames);
}

size_t AddressOf(const CommandFrame& frame) {
  return frame.address_high * size_t{0x100} + frame.address_low;
}

// Where the device keeps a slot's own count of events.
std::vector<size_t> CountAddresses() {
  std::vector<size_t> addresses;
  for (const ConfigPart& part : ConfigParts()) {
    if (part.kind == PartKind::kField) continue;
    const size_t offset = part.kind == PartKind::kMacro ? PERILINK_MACRO_COUNT_OFFSET : 0;
    addresses.push_back(part.address + offset);
  }
  return addresses;
}

// What of the update the device does not hold.
std::vector<ConfigPart> Missing(const DeviceConfig& device, const ConfigUpdate& update) {
  std::set<std::string> written;
  for (const ConfigPart& part : update.writes)
    written.insert(part.name);
  return PlanUpdate(device, update.record,
                    [&](const ConfigPart& part) { return written.count(part.name) != 0; })
      .writes;
}

const std::string& RequireOnlineAt(const std::string& path) {
  RequireOnline(path);
  return path;
}

}  // namespace

ConfigDevice::ConfigDevice(const std::string& path, bool keyboard,
                           const perilink::tools::Model* model)
    : path_(RequireOnlineAt(path)), words_(model), session_(path, keyboard) {}

std::string ConfigDevice::Names(std::span<const ConfigPart> parts, size_t most) const {
  perilink::tools::NameList names;
  for (const ConfigPart& part : parts)
    names.Add(words_.NameOf(part));
  return names.empty() ? "nothing" : names.Text(most);
}

// Other reports, such as the battery's, come in between and are let pass.
bool ConfigDevice::Await(uint32_t timeout_ms, const ReportHandler& is_it) {
  const uint64_t end_ms = GetTickCount64() + timeout_ms;
  for (uint64_t now_ms = GetTickCount64(); now_ms < end_ms; now_ms = GetTickCount64()) {
    const std::optional<ServerReport> report =
        session_.Next(static_cast<uint32_t>(end_ms - now_ms));
    if (report && report->frame.command != 0 && is_it(*report)) return true;
  }
  return false;
}

DeviceConfig ConfigDevice::Read(const std::string& title) {
  static const std::vector<size_t> addresses = CountAddresses();
  Progress progress(title);
  std::vector<uint8_t> image;
  std::vector<uint8_t> counts;
  const auto is_step = [&](const ServerReport& report) {
    if (report.frame.command != PERILINK_COMMAND_READ_MEMORY) return false;
    if (report.data.size() == PERILINK_FLASH_IMAGE_SIZE) {
      image = report.data;
      return true;
    }
    if (counts.size() == addresses.size() || AddressOf(report.frame) != addresses[counts.size()] ||
        report.data.empty()) {
      return false;
    }
    counts.push_back(report.data[0]);
    return true;
  };
  const auto ask_count = [&] {
    UsbServer_ReadFalshData(static_cast<uint32_t>(addresses[counts.size()]), 1, 0);
  };

  UsbServer_ReadAllFlashData();
  ask_count();
  // Each count is asked for when the one before is there. They take turns with the steps of the
  // whole read, which has no other signs of life.
  while (image.empty() || counts.size() < addresses.size()) {
    const size_t known = counts.size();
    if (!Await(TimeoutFor(FramesOf(PERILINK_MACRO_SLOT_SIZE)), is_step)) {
      FailUnanswered(path_, "its configuration");
    }
    progress.Show(static_cast<int>(counts.size() * 100 / addresses.size()));
    if (counts.size() > known && counts.size() < addresses.size()) ask_count();
  }

  DeviceConfig device = perilink::tools::DeviceConfigFromImage(image);
  const auto macros = counts.begin() + std::ssize(device.shortcut_counts);
  device.shortcut_counts.assign(counts.begin(), macros);
  device.macro_counts.assign(macros, counts.end());
  return device;
}

// How many writes were acknowledged, in their order, before the device fell silent.
size_t ConfigDevice::Send(const ConfigUpdate& update) {
  ProtocolData record = update.record;
  SetDllProtocolData(&update.previous);
  ProtocolDataUpdate(&record);

  Progress progress("writing");
  for (size_t done = 0; done < update.writes.size(); ++done) {
    if (Interrupted()) return done;
    progress.Show(static_cast<int>(done * 100 / update.writes.size()));
    const ConfigPart& part = update.writes[done];
    const size_t frames = FramesOf(EncodedPart(update.record, part).size());
    const size_t last_address = part.address + PERILINK_FRAME_DATA_SIZE * (frames - 1);
    const bool acknowledged = Await(TimeoutFor(frames), [&](const ServerReport& report) {
      return report.frame.command == PERILINK_COMMAND_WRITE_MEMORY &&
             AddressOf(report.frame) == last_address;
    });
    if (!acknowledged) return done;
  }
  return update.writes.size();
}

// The writes that wait in the queue are dropped; one that is under way may still arrive, so what
// the device holds is asked.
void ConfigDevice::FailInterrupted(const ConfigUpdate& update, size_t acknowledged) {
  const std::span<const ConfigPart> writes = update.writes;
  session_.Reopen(path_);
  std::vector<ConfigPart> missing(writes.begin() + static_cast<ptrdiff_t>(acknowledged),
                                  writes.end());
  std::string how = "as far as the device acknowledged it";
  try {
    missing = Missing(Read("reading back"), update);
    how = "read back";
  } catch (const Failure&) {
    // Then what was acknowledged is all that is known.
  }
  std::vector<ConfigPart> written;
  for (const ConfigPart& part : writes) {
    const auto is_it = [&](const ConfigPart& other) { return other.name == part.name; };
    if (std::none_of(missing.begin(), missing.end(), is_it)) written.push_back(part);
  }
  constexpr size_t kAll = perilink::tools::NameList::kMostKept;
  throw Failure(ExitCode::kInterrupted, "interrupted; written, " + how + ": " +
                                            Names(written, kAll) +
                                            "; not written: " + Names(missing, kAll));
}

void ConfigDevice::Write(const ConfigUpdate& update) {
  const std::span<const ConfigPart> writes = update.writes;
  if (writes.empty()) return;
  const InterruptGuard interrupts_are_noted;
  const size_t acknowledged = Send(update);
  if (Interrupted() && acknowledged < writes.size()) FailInterrupted(update, acknowledged);
  const bool complete = acknowledged == writes.size();
  std::string told = "the device acknowledged " + std::to_string(acknowledged) + " of " +
                     std::to_string(writes.size()) + " writes";
  if (!complete) {
    told += ", not those of " + Names(writes.subspan(acknowledged));
  }

  std::vector<ConfigPart> missing;
  try {
    missing = Missing(Read("reading back"), update);
    // Read again before it is called a failure: an answer that comes late, as it may on a busy
    // machine, is taken for that to the next frame, and what follows is shifted. The pause lets the
    // last of them pass.
    if (!missing.empty()) {
      Sleep(kPauseMs);
      missing = Missing(Read("reading back again"), update);
    }
  } catch (const Failure& failure) {
    throw Failure(failure.code(), told + "; they can't be read back: " + failure.what());
  }
  if (missing.empty() && complete) return;
  told += missing.empty() ? "; read back, it holds all of them"
                          : "; read back, it does not hold the new " + Names(missing);
  throw Failure(complete ? ExitCode::kRefused : ExitCode::kNoAnswer, told);
}

}  // namespace perictl
