// A device that answers the two questions of a battery poll, and nothing else.
#ifndef PERILINK_TESTS_BATTERY_BATTERY_DEVICE_H_
#define PERILINK_TESTS_BATTERY_BATTERY_DEVICE_H_

#include <array>
#include <cstring>
#include <string>

#include "perilink_platform/hid_bus.h"
#include "platform/win32.h"
#include "transport/frame.h"

namespace perilink {

class BatteryDevice : public platform::VirtualHidInterface {
 public:
  BatteryDevice() { platform::Bus().Plug(*this); }
  ~BatteryDevice() override { platform::Bus().Unplug(*this); }

  std::array<uint8_t, 3> address = {0x1A, 0x2B, 0x3C};
  BatteryLevel battery{50, 0, 0};
  bool answers_on_line = true;
  bool answers_battery = true;
  int polls = 0;

  std::wstring Path() const override { return LR"(\\?\hid#vid_1234&pid_5678&mi_01#battery)"; }
  platform::HidAttributes Attributes() const override { return {0x1234, 0x5678, 0}; }
  size_t InputReportLength() const override { return sizeof(CommandFrame); }
  size_t OutputReportLength() const override { return sizeof(CommandFrame); }
  size_t FeatureReportLength() const override { return 0; }
  DWORD OnFeatureReport(std::span<const uint8_t>) override { return ERROR_INVALID_FUNCTION; }
  DWORD OnOutputReport(std::span<const uint8_t> report) override {
    CommandFrame reply;
    std::memcpy(&reply, report.data(), sizeof(reply));
    if (reply.command == kCommandOnLine && answers_on_line) {
      const uint8_t data[] = {1, address[0], address[1], address[2]};
      Answer(reply, data);
    } else if (reply.command == kCommandBatteryLevel && answers_battery) {
      ++polls;
      const uint8_t data[] = {battery.level, battery.charging,
                              static_cast<uint8_t>(battery.voltage >> 8),
                              static_cast<uint8_t>(battery.voltage)};
      Answer(reply, data);
    }
    return 0;
  }

 private:
  void Answer(CommandFrame& reply, const uint8_t (&data)[4]) {
    reply.length = 4;
    std::memcpy(reply.data, data, sizeof(data));
    reply.checksum = FrameChecksum(reply);
    platform::Bus().Deliver(*this, FrameBytes(reply));
  }
};

}  // namespace perilink

#endif  // PERILINK_TESTS_BATTERY_BATTERY_DEVICE_H_
