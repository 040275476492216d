#include "sim/scripted_device.h"

#include <utility>

namespace perilink::sim {

Bytes ReplyTo(const Bytes& request, std::initializer_list<uint8_t> data) {
  Bytes reply(request.begin(), request.begin() + 6);
  reply[2] = 0;
  reply.insert(reply.end(), data);
  return Closed(std::move(reply));
}

ScriptedDevice::ScriptedDevice(std::wstring path, Script script, size_t report_length)
    : path_(std::move(path)), script_(std::move(script)), report_length_(report_length) {
  platform::Bus().Plug(*this);
}

ScriptedDevice::~ScriptedDevice() {
  const platform::DeviceGuard guard;
  for (const platform::EventId id : scheduled_)
    platform::Cancel(id);
  platform::Bus().Unplug(*this);
}

void ScriptedDevice::Deliver(Bytes report, uint64_t delay_ms) {
  const platform::DeviceGuard guard;
  if (delay_ms == 0) {
    platform::Bus().Deliver(*this, report);
    return;
  }
  scheduled_.push_back(platform::ScheduleIn(
      delay_ms * 1000, [this, sent = std::move(report)] { platform::Bus().Deliver(*this, sent); }));
}

void ScriptedDevice::Unplug() {
  platform::Bus().Unplug(*this);
}

void ScriptedDevice::Plug() {
  platform::Bus().Plug(*this);
}

void ScriptedDevice::SetScript(Script script) {
  const platform::DeviceGuard guard;
  script_ = std::move(script);
}

std::vector<Written> ScriptedDevice::writes() const {
  const platform::DeviceGuard guard;
  return writes_;
}

std::vector<Bytes> ScriptedDevice::features() const {
  const platform::DeviceGuard guard;
  return features_;
}

int ScriptedDevice::opens() const {
  const platform::DeviceGuard guard;
  return opens_;
}

void ScriptedDevice::ClearWrites() {
  const platform::DeviceGuard guard;
  writes_.clear();
}

DWORD ScriptedDevice::OnOutputReport(std::span<const uint8_t> report) {
  const Bytes written(report.begin(), report.end());
  writes_.push_back({(platform::NowMicros() - made_micros_) / 1000, written});
  // A copy: the script may replace itself.
  const Script script = script_;
  return script ? script(*this, written) : 0;
}

DWORD ScriptedDevice::OnFeatureReport(std::span<const uint8_t> report) {
  features_.emplace_back(report.begin(), report.end());
  return 0;
}

DWORD ScriptedDevice::OnOpen() {
  ++opens_;
  return 0;
}

}  // namespace perilink::sim
