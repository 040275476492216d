#include "server/watch.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "cli/command_line.h"
#include "device/facts.h"
#include "device/online.h"
#include "perilink/protocol.h"
#include "perilink/server.h"
#include "perilink/usb_changed.h"
#include "selection/interfaces.h"
#include "server/server_session.h"
#include "system.h"
#include "terminal/interrupt.h"
#include "terminal/text.h"

namespace perictl {
namespace {

namespace tools = perilink::tools;

// How often messages are pumped and Ctrl-C is looked for.
constexpr uint64_t kPumpMs = 50;
// A device's HID interfaces come somewhat later than the notice of the device.
constexpr uint64_t kPresenceCheckMs = 500;
// How often a device that says nothing is asked whether it is awake, and how long it may take.
constexpr uint64_t kQuietMs = 2000;
constexpr uint64_t kAnswerMs = 1000;

// The notice of USB devices that come and go, for the thread that makes it and pumps.
class UsbNotice {
 public:
  UsbNotice() { StartUsbChanged(OnChange, 0); }
  ~UsbNotice() {
    StopUsbChanged();
    Pump();  // the window goes
    SetUsbChangedCallBack(nullptr, 0);
  }
  UsbNotice(const UsbNotice&) = delete;
  UsbNotice& operator=(const UsbNotice&) = delete;

  static void Pump() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
      DispatchMessageW(&message);
  }
  static bool TakeArrived() { return std::exchange(arrived, false); }
  static bool TakeRemoved() { return std::exchange(removed, false); }

 private:
  static void PERILINK_CALL OnChange(bool is_arrival) { (is_arrival ? arrived : removed) = true; }
  // Of the pumping thread alone.
  inline static bool arrived = false;
  inline static bool removed = false;
};

class Watch {
 public:
  Watch(Context& context, const WatchOptions& options, const WatchSink& sink)
      : context_(context), options_(options), sink_(sink), start_ms_(GetTickCount64()) {}

  void Run();

 private:
  uint64_t Elapsed() const { return GetTickCount64() - start_ms_; }
  uint64_t LeftMs() const;
  bool Done() const;

  void Begin();
  void FollowDevice();
  void FollowSleep();
  void Connect(const DeviceEntry& device);
  std::optional<DeviceEntry> FindDevice() const;

  void Take(const ServerReport& report);
  void TakeLink(Link link);
  void Tell(const std::string& event, const std::string& text, const Json& details);
  void TellState(const std::string& event, const std::string& text, const Json& details = {});
  void Print(const std::string& event, const std::string& text, const Json& details);

  Context& context_;
  const WatchOptions& options_;
  const WatchSink& sink_;
  const uint64_t start_ms_;
  DeviceEntry device_;  // the one that was connected last
  std::unique_ptr<ServerSession> session_;
  uint64_t told_ = 0;
  bool present_ = false;
  bool battery_known_ = false;
  bool suspect_ = false;  // some device has gone since the interface was opened
  uint64_t next_check_ms_ = 0;
  Link link_ = Link::kOnline;
  uint64_t heard_at_ms_ = 0;
  std::optional<uint64_t> asked_at_ms_;
};

void Watch::Run() {
  const UsbNotice notice;
  Begin();
  while (!Done()) {
    UsbNotice::Pump();
    FollowDevice();
    FollowSleep();
    const auto wait_ms = static_cast<uint32_t>(std::min(kPumpMs, LeftMs()));
    if (!session_) {
      Sleep(wait_ms);
      continue;
    }
    if (const auto report = session_->Next(wait_ms)) Take(*report);
    if (const size_t lost = session_->TakeLost(); lost > 0) {
      TellState("lost", std::to_string(lost) + " reports came too fast", {{"count", lost}});
    }
  }
}

// With the device that is there, which need not be told, or with the wait for one.
void Watch::Begin() {
  if (SelectedDevices(context_).empty()) {
    const std::string what = Describe(context_.selection);
    return TellState("absent", "no device" + (what.empty() ? "" : " " + what) +
                                   " is plugged in; waiting for one");
  }
  device_ = DeviceToRead(context_);
  TakeLink(AskLink(device_.path));
  Connect(device_);
}

uint64_t Watch::LeftMs() const {
  if (options_.seconds <= 0) return std::numeric_limits<uint64_t>::max();
  const auto limit_ms = static_cast<uint64_t>(options_.seconds * 1000);
  const uint64_t elapsed_ms = Elapsed();
  return elapsed_ms < limit_ms ? limit_ms - elapsed_ms : 0;
}

bool Watch::Done() const {
  return Interrupted() || told_ >= options_.count || LeftMs() == 0 || context_.report.Lost();
}

// The one that was there before; else, of those that are meant, the first of the same kind. Numbers
// and names may be other ones when it is back.
std::optional<DeviceEntry> Watch::FindDevice() const {
  const std::vector<DeviceEntry> devices =
      device_.path.empty() ? SelectedDevices(context_) : ListDevices(context_);
  for (const DeviceEntry& device : devices) {
    if (device.path == device_.path) return device;
  }
  for (const DeviceEntry& device : devices) {
    if (!device.in_boot_mode && (device_.path.empty() || device.id == device_.id)) return device;
  }
  return std::nullopt;
}

void Watch::FollowDevice() {
  const bool arrived = UsbNotice::TakeArrived();
  const bool removed = UsbNotice::TakeRemoved();
  suspect_ = suspect_ || removed;
  if (!arrived && !removed && Elapsed() < next_check_ms_) return;
  next_check_ms_ = Elapsed() + kPresenceCheckMs;

  const std::vector<std::string> paths = AllInterfaces();
  const bool here = std::find(paths.begin(), paths.end(), device_.path) != paths.end();
  if (present_ && !here) {
    present_ = false;
    Tell("removal", device_.Title(), {{"path", device_.path}});
  }
  if (!present_) {
    const std::optional<DeviceEntry> found = FindDevice();
    if (!found) return;
    Connect(*found);
    Tell("arrival", device_.Title(),
         {{"path", device_.path}, {"name", device_.name}, {"virtual", device_.is_virtual}});
  } else if (suspect_ && arrived) {
    // It may have been away too briefly to be missed, but the server's handles have died of it.
    Connect(device_);
  }
}

void Watch::Connect(const DeviceEntry& device) {
  device_ = device;
  present_ = true;
  suspect_ = false;
  heard_at_ms_ = Elapsed();
  asked_at_ms_.reset();
  if (!session_) {
    session_ = std::make_unique<ServerSession>(device.path, device.keyboard);
  } else {
    session_->Reopen(device.path);
  }
  // A level that has not changed meanwhile would not be told again by itself.
  if (battery_known_) UsbServer_ReadBatteryLevel();
}

// A device that sleeps says nothing: it is asked now and then.
void Watch::FollowSleep() {
  if (!present_) return;
  const uint64_t now_ms = Elapsed();
  if (asked_at_ms_ && now_ms >= *asked_at_ms_ + kAnswerMs && heard_at_ms_ < *asked_at_ms_) {
    TakeLink(Link::kSilent);
  }
  const uint64_t last_ms = std::max(heard_at_ms_, asked_at_ms_.value_or(0));
  if (now_ms < last_ms + kQuietMs) return;
  asked_at_ms_ = now_ms;
  UsbServer_ReadOnLine();
}

void Watch::TakeLink(Link link) {
  if (link == link_) return;
  link_ = link;
  switch (link) {
    case Link::kOnline:
      if (battery_known_) UsbServer_ReadBatteryLevel();
      return TellState("awake", "the device is awake");
    case Link::kAsleep:
      return TellState("asleep", "the device is asleep or switched off; waiting for it");
    case Link::kLocked:
      return TellState("locked", WhyLocked(device_.path));
    case Link::kNonsense:
      return TellState("nonsense", "the device answers nonsense");
    case Link::kSilent:
      return TellState("silent", "the device does not answer; waiting for it");
  }
}

void Watch::Take(const ServerReport& report) {
  heard_at_ms_ = Elapsed();
  if (report.frame.command == PERILINK_COMMAND_ON_LINE && !report.data.empty()) {
    TakeLink(report.data[0] != 0 ? Link::kOnline : Link::kAsleep);
  } else if (report.frame.command == PERILINK_COMMAND_BATTERY_LEVEL &&
             report.data.size() >= sizeof(BatteryLevel)) {
    BatteryLevel battery{};
    GetDeviceBatteryStatus(report.data.data(), &battery);
    battery_known_ = true;
    Tell("battery", BatteryText(battery), BatteryJson(battery));
  } else if (options_.status && report.frame.command == PERILINK_COMMAND_EVENT &&
             !report.data.empty()) {
    DeviceStatus status{};
    GetDeviceStatusChanged(report.data.data(), &status);
    std::string set;
    for (size_t i = 0; i < std::size(status.flags); ++i) {
      if (status.flags[i] != 0) set += " " + std::to_string(i);
    }
    const std::string data = HexBytes(report.data);
    Tell("status", "flags set:" + (set.empty() ? " none" : set) + "; data " + data,
         {{"flags", status.flags}, {"data", data}});
  }
}

void Watch::Tell(const std::string& event, const std::string& text, const Json& details) {
  if (told_ >= options_.count) return;
  ++told_;
  Print(event, text, details);
}

void Watch::TellState(const std::string& event, const std::string& text, const Json& details) {
  if (told_ < options_.count) Print(event, text, details);
}

void Watch::Print(const std::string& event, const std::string& text, const Json& details) {
  const uint64_t at_ms = Elapsed();
  char head[40];
  std::snprintf(head, sizeof head, "%9.3f s  %-9s", static_cast<double>(at_ms) / 1000,
                event.c_str());
  Json value = {{"at_ms", at_ms}, {"event", event}};
  if (!details.is_null()) value.update(details);
  sink_(head + text, value);
}

}  // namespace

void AddWatchLimits(CLI::App& command, WatchOptions& options, CLI::Option* needs) {
  CLI::Option* const limits[] = {
      command.add_option("--count", options.count, "end after so many events")
          ->check(WholeNumber(1, UINT64_MAX, "--count 10"))
          ->type_name("NUMBER"),
      command.add_option("--for", options.seconds, "end after so many seconds")
          ->check(Seconds())
          ->type_name("SECONDS"),
  };
  for (CLI::Option* const limit : limits) {
    if (needs != nullptr) limit->needs(needs);
  }
}

void RunWatch(Context& context, const WatchOptions& options, const WatchSink& sink) {
  Watch(context, options, sink).Run();
}

void ReportWatch(Context& context, const WatchOptions& options) {
  const InterruptGuard guard;
  context.report.BeginEvents();
  RunWatch(context, options, [&context](const std::string& text, const Json& value) {
    context.report.Event(text, value);
  });
}

}  // namespace perictl
