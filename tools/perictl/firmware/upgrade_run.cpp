#include "firmware/upgrade_run.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

#include "exit_codes.h"
#include "firmware/upgrade_words.h"
#include "perilink/finder.h"
#include "perilink/protocol.h"
#include "perilink/upgrade.h"
#include "selection/interfaces.h"
#include "server/inbox.h"
#include "system.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"
#include "terminal/terminal.h"
#include "terminal/text.h"

namespace perictl {
namespace {

// How often Ctrl-C is looked for.
constexpr uint32_t kInterruptPollMs = 100;

// Between the upgrade thread, which fills it, and the command's.
Inbox<UpgradeEvent>& Events() {
  static auto* const inbox = new Inbox<UpgradeEvent>;
  return *inbox;
}

int PERILINK_CALL OnEvent(const uint8_t* message, uint32_t length) {
  UpgradeEvent event{};
  if (length == sizeof event) std::memcpy(&event, message, length);
  Events().Put(event);
  return 0;
}

size_t CountInterfaces(const UpgradeText& key) {
  uint32_t count = 0;
  char** const list = UsbFinderC_FindHidDevicesByKey(std::string(TextOf(key)).c_str(), &count);
  return TakeList(list, count).size();
}

// The library waits long for a device, or ends without a word when of two devices neither is where
// the upgrade could begin.
void RequireDevice(const UpgradeFile& file) {
  const UpgradeFileHeader& main = file.images.front().header;
  const std::string boot = "in boot mode ('" + SafeText(TextOf(main.boot_input_key)) + "')";
  if (file.images.size() == 1) {
    for (const auto* key : {&main.normal_input_key, &main.normal_output_key, &main.boot_input_key,
                            &main.boot_output_key}) {
      if (CountInterfaces(*key) > 0) return;
    }
    throw Failure(ExitCode::kNoDevice, "no device that the file is for is plugged in, neither " +
                                           boot + " nor in normal mode ('" +
                                           SafeText(TextOf(main.normal_input_key)) + "')");
  }
  const UpgradeFileHeader& slave = file.images.back().header;
  if (CountInterfaces(slave.normal_input_key) == 1 && CountInterfaces(slave.normal_output_key) == 1)
    return;
  if (CountInterfaces(main.boot_input_key) > 0) return;
  throw Failure(ExitCode::kNoDevice,
                "neither the main device " + boot + " nor one slave device in normal mode ('" +
                    SafeText(TextOf(slave.normal_input_key)) + "') is plugged in");
}

Json ToJson(const UpgradeEvent& event, const char* name, const std::string& text) {
  return {{"event", name},
          {"code", int{event.code}},
          {"arg1", int{event.arg1}},
          {"arg2", int{event.arg2}},
          {"text", text}};
}

class Upgrade {
 public:
  Upgrade(const UpgradeFile& file, uint32_t timeout_ms, UpgradeBar bar, const UpgradeSink& sink)
      : file_(file),
        timeout_ms_(timeout_ms),
        sink_(sink),
        every_reset_is_echoed_(
            std::all_of(file.images.begin(), file.images.end(),
                        [](const UpgradeImage& image) { return image.ResetHasEcho(); })) {
    if (bar == UpgradeBar::kOnTerminal && ErrorTerminal().is_terminal) bar_.emplace("upgrading");
  }

  void Run();

 private:
  bool Take(const UpgradeEvent& event);
  bool TakeResult(const UpgradeEvent& result);
  void Tell(const std::string& text, const Json& details);
  void TellInterruption();
  void RequireLife();

  const UpgradeFile& file_;
  const uint32_t timeout_ms_;
  const UpgradeSink& sink_;
  const bool every_reset_is_echoed_;
  std::optional<Progress> bar_;
  int percent_ = 0;
  std::optional<int> device_error_;
  bool interruption_told_ = false;
  const uint64_t start_ms_ = GetTickCount64();
  uint64_t quiet_since_ms_ = start_ms_;
  uint32_t log_lines_ = 0;
};

void Upgrade::Run() {
  RequireDevice(file_);
  Events().Clear();
  // A device that is left half way is of no use until the next upgrade.
  const InterruptGuard no_interrupts;
  const BrokenPipeGuard no_broken_pipes;
  if (!UsbUpgrade_Start(file_.bytes.data(), OnEvent, timeout_ms_)) {
    throw Failure(ExitCode::kInternal, "the upgrade can't be started");
  }
  if (bar_) bar_->Show(0);
  while (true) {
    const std::optional<UpgradeEvent> event = Events().Next(kInterruptPollMs);
    if (event && Take(*event)) return;
    if (!event) RequireLife();
    TellInterruption();
  }
}

// True when it is the success.
bool Upgrade::Take(const UpgradeEvent& event) {
  quiet_since_ms_ = GetTickCount64();
  switch (event.kind) {
    case PERILINK_UPGRADE_PROGRESS: {
      const int tenth = percent_ / 10;
      percent_ = event.code;
      const bool told = !bar_ && percent_ / 10 > tenth;
      Tell(told ? std::to_string(percent_) + " %" : "",
           {{"event", "progress"}, {"percent", percent_}});
      return false;
    }
    case PERILINK_UPGRADE_NOTICE: {
      const std::string text = NoticeText(event, every_reset_is_echoed_);
      Tell(text, ToJson(event, "notice", text));
      return false;
    }
    case PERILINK_UPGRADE_RESULT:
      return TakeResult(event);
    default:
      return false;
  }
}

bool Upgrade::TakeResult(const UpgradeEvent& result) {
  if (result.code == PERILINK_UPGRADE_RESULT_DEVICE_ERROR) {
    device_error_ = result.arg1;
    const std::string text = "the device reports error " + std::to_string(result.arg1);
    Tell(text, ToJson(result, "device-error", text));
    return false;
  }
  if (result.code == PERILINK_UPGRADE_RESULT_SUCCESS) {
    const std::string text = "the upgrade has succeeded";
    Tell(text, ToJson(result, "success", text));
    return true;
  }
  UpgradeOutcome outcome = FailedOutcome(result);
  if (outcome.code == ExitCode::kTimedOut && device_error_) {
    // It did not fall silent for nothing.
    outcome = {ExitCode::kUpgrade, "the device reported error " + std::to_string(*device_error_) +
                                       " and did not take the firmware; check that the file is "
                                       "for this device, and start the upgrade again"};
  }
  Tell("", ToJson(result, "failure", outcome.text));
  throw Failure(outcome.code, outcome.text);
}

void Upgrade::Tell(const std::string& text, const Json& details) {
  const uint64_t at_ms = GetTickCount64() - start_ms_;
  char head[40];
  std::snprintf(head, sizeof head, "%9.3f s  ", static_cast<double>(at_ms) / 1000);
  Json value = {{"at_ms", at_ms}};
  value.update(details);
  if (bar_ && !text.empty()) bar_->Hide();
  sink_(text.empty() ? text : head + text, value);
  if (bar_) bar_->Show(percent_);
}

void Upgrade::TellInterruption() {
  if (interruption_told_ || !Interrupted()) return;
  interruption_told_ = true;
  if (bar_) bar_->Hide();
  perictl::Tell("an upgrade is not stopped half way; Ctrl-C again leaves the device in boot mode");
}

// The upgrade thread has ended without a word when neither events nor log lines have come for
// longer than any of its waits: a device's appearance is waited for in cycles of 210 ms, of which
// there is one for every 100 ms of the timeout.
void Upgrade::RequireLife() {
  constexpr uint64_t kMarginMs = 5000;
  const uint64_t now_ms = GetTickCount64();
  if (now_ms - quiet_since_ms_ < 3 * uint64_t{timeout_ms_} + kMarginMs) return;
  uint32_t count = 0;
  char** const lines = UsbUpgradeC_GetLogs(&count);
  UsbFinderC_Free(lines, static_cast<int32_t>(count));
  if (count == log_lines_) {
    throw Failure(ExitCode::kUpgrade, "the upgrade ended without an outcome; a device went away");
  }
  log_lines_ = count;
  quiet_since_ms_ = now_ms;
}

}  // namespace

void RunUpgrade(const UpgradeFile& file, uint32_t timeout_ms, UpgradeBar bar,
                const UpgradeSink& sink) {
  Upgrade(file, timeout_ms, bar, sink).Run();
}

}  // namespace perictl
