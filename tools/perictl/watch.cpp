#include "watch.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <vector>

#include "device.h"
#include "facts.h"
#include "interrupt.h"
#include "perilink/server.h"
#include "perilink/usb_changed.h"
#include "server_session.h"
#include "system.h"
#include "text.h"

namespace perictl {
namespace {

constexpr uint8_t kBatteryCommand = 0x04;
constexpr uint8_t kStatusEvent = 0x0A;

// How often messages are pumped and Ctrl-C is looked for.
constexpr uint64_t kPumpMs = 50;
// A device's HID interfaces come somewhat later than the notice of the device.
constexpr uint64_t kPresenceCheckMs = 500;

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
      : context_(context),
        options_(options),
        sink_(sink),
        path_(SelectDevice(context)),
        start_ms_(GetTickCount64()) {}

  void Run();

 private:
  uint64_t Elapsed() const { return GetTickCount64() - start_ms_; }
  uint64_t LeftMs() const;
  bool Done() const;
  void FollowDevice(ServerSession& session);
  void Connect(ServerSession& session, const std::string& path);
  void Show(const ServerReport& report);
  void Tell(const std::string& event, const std::string& text, const Json& details);

  Context& context_;
  const WatchOptions& options_;
  const WatchSink& sink_;
  std::string path_;
  const uint64_t start_ms_;
  uint64_t told_ = 0;
  bool present_ = true;
  bool battery_known_ = false;
  bool suspect_ = false;  // some device has gone since the interface was opened
  uint64_t next_check_ms_ = 0;
};

void Watch::Run() {
  RequireOnline(path_);
  ServerSession session(path_, context_.selection.keyboard);
  const UsbNotice notice;
  while (!Done()) {
    UsbNotice::Pump();
    FollowDevice(session);
    const uint64_t wait_ms = std::min(kPumpMs, LeftMs());
    if (const auto report = session.Next(static_cast<uint32_t>(wait_ms))) Show(*report);
  }
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

void Watch::FollowDevice(ServerSession& session) {
  const bool arrived = UsbNotice::TakeArrived();
  const bool removed = UsbNotice::TakeRemoved();
  suspect_ = suspect_ || removed;
  if (!arrived && !removed && Elapsed() < next_check_ms_) return;
  next_check_ms_ = Elapsed() + kPresenceCheckMs;

  const std::vector<std::string> paths = MatchingInterfaces(context_.selection);
  const bool here = std::find(paths.begin(), paths.end(), path_) != paths.end();
  if (present_ && !here) {
    present_ = false;
    Tell("removal", path_, {{"path", path_}});
  }
  if (!present_ && !paths.empty()) {
    Connect(session, paths.front());
    Tell("arrival", path_, {{"path", path_}});
  } else if (present_ && suspect_ && arrived) {
    // It may have been away too briefly to be missed, but the server's handles have died of it.
    Connect(session, path_);
  }
}

void Watch::Connect(ServerSession& session, const std::string& path) {
  path_ = path;
  present_ = true;
  suspect_ = false;
  session.Reopen(path);
  // A level that has not changed meanwhile would not be told again by itself.
  if (battery_known_) UsbServer_ReadBatteryLevel();
}

void Watch::Show(const ServerReport& report) {
  if (report.frame.command == kBatteryCommand && report.data.size() >= sizeof(BatteryLevel)) {
    BatteryLevel battery{};
    GetDeviceBatteryStatus(report.data.data(), &battery);
    battery_known_ = true;
    Tell("battery", BatteryText(battery), BatteryJson(battery));
  } else if (options_.status && report.frame.command == kStatusEvent && !report.data.empty()) {
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
  const uint64_t at_ms = Elapsed();
  char head[40];
  std::snprintf(head, sizeof head, "%9.3f s  %-9s", static_cast<double>(at_ms) / 1000,
                event.c_str());
  Json value = {{"at_ms", at_ms}, {"event", event}};
  value.update(details);
  sink_(head + text, value);
}

}  // namespace

void AddWatchLimits(CLI::App& command, WatchOptions& options, CLI::Option* needs) {
  CLI::Option* const limits[] = {
      command.add_option("--count", options.count, "end after so many events")
          ->check(CLI::PositiveNumber),
      command.add_option("--for", options.seconds, "end after so many seconds")
          ->check(CLI::Range(0.001, 1e9)),
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
  RunWatch(context, options, [&context](const std::string& text, const Json& value) {
    context.report.Event(text, value);
  });
}

}  // namespace perictl
