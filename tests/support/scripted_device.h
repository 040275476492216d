// A HID interface whose behaviour a test writes down: what it does with each report written to it,
// and what it has received so far.
//
//   ScriptedDevice device(kPath, [](ScriptedDevice& self, const Report& written) {
//     self.Deliver(ReplyTo(written, {0x01, 0x23}), 20);  // a reply, 20 ms later
//     return DWORD{0};                                   // the write succeeds
//   });
//
// The script runs under the device lock, inside the writer's WriteFile.
#ifndef PERILINK_TESTS_SUPPORT_SCRIPTED_DEVICE_H_
#define PERILINK_TESTS_SUPPORT_SCRIPTED_DEVICE_H_

#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "transport/frame.h"

namespace perilink::testing {

using Report = std::vector<uint8_t>;

inline constexpr const wchar_t* kScriptedPath =
    L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col05#7&1c2d3e4f&0&0004#"
    L"{4d1e55b2-f16f-11cf-88cb-001111000030}";

// The report closed with its checksum.
inline Report Closed(Report report) {
  report.resize(sizeof(CommandFrame));
  report[16] = ChecksumRange(report.data(), 0, 16);
  return report;
}

// A valid reply to a request: its bytes 0 to 5 (the status 0) and the given data.
inline Report ReplyTo(const Report& request, std::initializer_list<uint8_t> data = {}) {
  Report reply(request.begin(), request.begin() + 6);
  reply[2] = 0;
  reply.insert(reply.end(), data);
  return Closed(std::move(reply));
}

// A written report, with the milliseconds since the device was plugged in.
struct Written {
  uint64_t at_ms;
  Report report;
};

class ScriptedDevice : public platform::VirtualHidInterface {
 public:
  // Returns 0 or the error that the write fails with.
  using Script = std::function<DWORD(ScriptedDevice&, const Report&)>;

  // Plugs itself in; without a script it takes every write and never answers.
  explicit ScriptedDevice(std::wstring path = kScriptedPath, Script script = {},
                          size_t report_length = sizeof(CommandFrame))
      : path_(std::move(path)), script_(std::move(script)), report_length_(report_length) {
    platform::Bus().Plug(*this);
  }
  // Takes back what it has scheduled, and unplugs itself.
  ~ScriptedDevice() override {
    const std::lock_guard lock(platform::DeviceLock());
    for (const platform::EventId id : scheduled_)
      platform::Cancel(id);
    platform::Bus().Unplug(*this);
  }
  ScriptedDevice(const ScriptedDevice&) = delete;
  ScriptedDevice& operator=(const ScriptedDevice&) = delete;

  // Sends an input report after a delay; without one, before this call returns.
  void Deliver(Report report, uint64_t delay_ms = 0) {
    const std::lock_guard lock(platform::DeviceLock());
    if (delay_ms == 0) {
      platform::Bus().Deliver(*this, report);
      return;
    }
    scheduled_.push_back(platform::ScheduleIn(delay_ms * 1000, [this, sent = std::move(report)] {
      platform::Bus().Deliver(*this, sent);
    }));
  }
  void Unplug() { platform::Bus().Unplug(*this); }
  void Plug() { platform::Bus().Plug(*this); }
  void SetScript(Script script) {
    const std::lock_guard lock(platform::DeviceLock());
    script_ = std::move(script);
  }

  std::vector<Written> writes() const {
    const std::lock_guard lock(platform::DeviceLock());
    return writes_;
  }
  std::vector<Report> features() const {
    const std::lock_guard lock(platform::DeviceLock());
    return features_;
  }
  int opens() const {
    const std::lock_guard lock(platform::DeviceLock());
    return opens_;
  }
  void ClearWrites() {
    const std::lock_guard lock(platform::DeviceLock());
    writes_.clear();
  }

  std::wstring Path() const override { return path_; }
  platform::HidAttributes Attributes() const override { return {0x1234, 0xABCD, 0x0100}; }
  size_t InputReportLength() const override { return report_length_; }
  size_t OutputReportLength() const override { return report_length_; }
  size_t FeatureReportLength() const override { return report_length_; }
  DWORD OnOutputReport(std::span<const uint8_t> report) override {
    writes_.push_back(
        {(platform::NowMicros() - plugged_micros_) / 1000, Report(report.begin(), report.end())});
    // A copy: the script may replace itself.
    const Script script = script_;
    return script ? script(*this, Report(report.begin(), report.end())) : 0;
  }
  DWORD OnFeatureReport(std::span<const uint8_t> report) override {
    features_.emplace_back(report.begin(), report.end());
    return 0;
  }
  DWORD OnOpen() override {
    ++opens_;
    return 0;
  }

 private:
  const std::wstring path_;
  Script script_;
  const size_t report_length_;
  const uint64_t plugged_micros_ = platform::NowMicros();
  std::vector<Written> writes_;
  std::vector<Report> features_;
  std::vector<platform::EventId> scheduled_;
  int opens_ = 0;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SUPPORT_SCRIPTED_DEVICE_H_
