#include "facts.h"

#include <algorithm>
#include <span>

#include "device.h"
#include "perilink/finder.h"
#include "text.h"

namespace perictl {
namespace {

// A command that this device does not answer, or not soundly. Throws Failure when it has stopped
// answering altogether.
void AddUntold(Report& report, const std::string& path, const std::string& key,
               const std::string& label) {
  RequireOnline(path);
  report.Fact(key, label, "not told", nullptr);
}

void AddBytes(Report& report, const std::string& path, const std::string& key,
              const std::string& label, bool told, std::span<const uint8_t> bytes) {
  if (!told) return AddUntold(report, path, key, label);
  report.Fact(key, label, HexBytes(bytes), HexBytes(bytes));
}

void AddVersion(Report& report, const std::string& path) {
  const int32_t version = UsbFinderC_GetVersion(path.c_str());
  if (version == 0) FailUnanswered(path, "its version");
  report.Fact("version", "firmware version", VersionText(version), VersionText(version));
}

void AddSlaveVersion(Report& report, const std::string& path) {
  int32_t version = 0;
  if (!UsbFinderC_GetSlaveVersion(path.c_str(), &version)) {
    return AddUntold(report, path, "slave_version", "slave version");
  }
  report.Fact("slave_version", "slave version", VersionText(version), VersionText(version));
}

void AddOnline(Report& report, const CommandFrame& online) {
  const std::string address = HexBytes(std::span(online.data).subspan(1, 3), ':');
  report.Fact("online", "on line", "yes", true);
  report.Fact("address", "address", address, address);
}

void ReadBattery(Report& report, const std::string& path) {
  BatteryLevel battery{};
  if (!UsbFinderC_GetBatteryLevel(path.c_str(), &battery)) {
    return AddUntold(report, path, "battery", "battery");
  }
  AddBattery(report, battery);
}

void AddCurrentDpi(Report& report, const std::string& path) {
  const int32_t index = UsbFinderC_GetCurrentDPI(path.c_str());
  if (index == 0) RequireOnline(path);  // 0 stands for no answer too
  report.Fact("dpi_level", "current DPI level", std::to_string(index) + " (counted from 0)", index);
}

void AddRssi(Report& report, const std::string& path) {
  uint8_t rssi = 0;
  if (!CS_UsbFinder_GetRSSI(path.c_str(), &rssi)) return AddUntold(report, path, "rssi", "RSSI");
  report.Fact("rssi", "RSSI", std::to_string(rssi), rssi);
}

void AddSerialNumber(Report& report, const std::string& path) {
  DataRecord10 serial{};
  if (!UsbFinderC_GetMouseSerialNumber(path.c_str(), &serial)) {
    return AddUntold(report, path, "serial_number", "serial number");
  }
  std::string text = HexBytes(serial.bytes);
  const bool readable = std::all_of(std::begin(serial.bytes), std::end(serial.bytes),
                                    [](uint8_t c) { return c > 0x20 && c < 0x7F; });
  if (readable) {
    const std::string characters(std::begin(serial.bytes), std::end(serial.bytes));
    text += " (" + characters + ")";
  }
  report.Fact("serial_number", "serial number", text, HexBytes(serial.bytes));
}

void AddCidMid(Report& report, const std::string& path) {
  CidMid ids{};
  if (!UsbFinderC_ReadCidMid(path.c_str(), 0, &ids)) {
    return AddUntold(report, path, "cid_mid", "CID/MID");
  }
  const uint8_t cid[] = {ids.cid};
  const uint8_t mid[] = {ids.mid};
  report.Fact("cid_mid", "CID/MID",
              HexBytes(cid) + "/" + HexBytes(mid) + ", flag " + std::to_string(ids.flag),
              {{"cid", ids.cid}, {"mid", ids.mid}, {"flag", ids.flag}});
}

void AddDeviceInfo(Report& report, const std::string& path, bool keyboard) {
  const DeviceInfo info = UsbFinderC_GetDeviceInfo(path.c_str(), keyboard ? 1 : 0);
  // All zero stands for no answer.
  const bool told = std::any_of(std::begin(info.bytes), std::end(info.bytes),
                                [](uint8_t byte) { return byte != 0; });
  AddBytes(report, path, "device_info", "device info", told, info.bytes);
}

}  // namespace

std::string BatteryText(const BatteryLevel& battery) {
  std::string text = std::to_string(battery.level) + " %";
  if (battery.charging != 0) text += ", charging";
  if (battery.voltage != 0) text += ", " + std::to_string(battery.voltage) + " mV";
  return text;
}

Json BatteryJson(const BatteryLevel& battery) {
  // A packed record's fields are copied before they are referred to.
  return {{"percent", int{battery.level}},
          {"charging", battery.charging != 0},
          {"millivolts", int{battery.voltage}}};
}

void AddInterface(Report& report, const std::string& path, bool takes_commands) {
  const std::optional<DeviceIds> ids = ReadIds(path);
  Json value = {{"path", path}, {"takes_commands", takes_commands}};
  std::string text = takes_commands ? "* " : "  ";
  if (ids) {
    value["vendor_id"] = Hex16(ids->vendor);
    value["product_id"] = Hex16(ids->product);
    value["version"] = Hex16(ids->version);
    text += Hex16(ids->vendor) + ":" + Hex16(ids->product) + "  ";
  } else {
    text += "(locked)   ";
  }
  report.Item("interfaces", text + path, std::move(value));
}

void AddBattery(Report& report, const BatteryLevel& battery) {
  report.Fact("battery", "battery", BatteryText(battery), BatteryJson(battery));
}

void AddDeviceFacts(Report& report, const std::string& path, const Selection& selection,
                    const CommandFrame& online) {
  AddVersion(report, path);
  AddSlaveVersion(report, path);
  AddOnline(report, online);
  ReadBattery(report, path);
  AddCurrentDpi(report, path);
  AddRssi(report, path);
  AddSerialNumber(report, path);
  AddCidMid(report, path);
  AddDeviceInfo(report, path, selection.keyboard);
}

void AddReceiverFacts(Report& report, const std::string& path) {
  DataRecord10 colours{};
  const bool colours_told = UsbFinderC_Get4KDongleRGBValue(path.c_str(), &colours);
  AddBytes(report, path, "receiver_colours", "receiver colours", colours_told, colours.bytes);

  RgbBarMode bar{};
  const bool bar_told = UsbFinderC_GetDongleRGBBarMode(path.c_str(), &bar);
  AddBytes(report, path, "bar_mode", "bar mode", bar_told,
           {reinterpret_cast<const uint8_t*>(&bar), sizeof bar});

  IndicatorLed led{};
  const bool led_told = UsbFinderC_GetDongleIndicatorLed(path.c_str(), &led);
  AddBytes(report, path, "indicator_led", "indicator LED", led_told, led.bytes);

  uint8_t long_range = 0;
  if (!UsbFinderC_GetLongRangeMode(path.c_str(), &long_range)) {
    return AddUntold(report, path, "long_range", "long-range mode");
  }
  report.Fact("long_range", "long-range mode",
              long_range == 0 ? "off" : "on (" + std::to_string(long_range) + ")", long_range);
}

}  // namespace perictl
