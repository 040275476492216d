#include "device/facts.h"

#include <algorithm>
#include <span>

#include "device/online.h"
#include "perilink/finder.h"
#include "terminal/text.h"
#include "words/vocabulary.h"

namespace perictl {
namespace {

using perilink::tools::Value;
using perilink::tools::Vocabulary;

// Asks one device, and words the answers.
class Facts {
 public:
  Facts(Report& report, const DeviceEntry& device, bool raw)
      : report_(report), device_(device), words_(raw ? nullptr : device.model) {}

  const char* path() const { return device_.path.c_str(); }
  Report& report() { return report_; }

  // A command that this device does not answer, or not soundly. Throws Failure when it has stopped
  // answering altogether.
  void AddUntold(const std::string& key, const std::string& label) {
    RequireOnline(device_.path);
    report_.Fact(key, label, "not told", nullptr);
  }

  // `key` is a name that descriptions know.
  void AddWords(const std::string& key, const std::string& label, bool told,
                std::span<const uint8_t> bytes) {
    if (!told) return AddUntold(key, label);
    const std::vector<Value> values = words_.Fact(key, bytes);
    Json in_words = Json::array();
    for (const Value& value : values) {
      report_.Line(value.name == key ? label : value.name, value.text);
      in_words.push_back(ToJson(value));
    }
    report_.Data(key, {{"raw", values.front().raw}, {"words", in_words}});
  }

  void AddVersion() {
    const int32_t version = UsbFinderC_GetVersion(path());
    if (version == 0) FailUnanswered(device_.path, "its version");
    report_.Fact("version", "firmware version", VersionText(version), VersionText(version));
  }

  void AddSlaveVersion() {
    int32_t version = 0;
    if (!UsbFinderC_GetSlaveVersion(path(), &version)) {
      return AddUntold("slave_version", "slave version");
    }
    report_.Fact("slave_version", "slave version", VersionText(version), VersionText(version));
  }

  void AddOnline(const CommandFrame& online) {
    const std::string address = HexBytes(std::span(online.data).subspan(1, 3), ':');
    report_.Fact("online", "on line", "yes", true);
    report_.Fact("address", "address", address, address);
  }

  void ReadBattery() {
    BatteryLevel battery{};
    if (!UsbFinderC_GetBatteryLevel(path(), &battery)) return AddUntold("battery", "battery");
    AddBattery(report_, battery);
  }

  void AddCurrentDpi() {
    const int32_t index = UsbFinderC_GetCurrentDPI(path());
    if (index == 0) RequireOnline(device_.path);  // 0 stands for no answer too
    report_.Fact("dpi_level", "current DPI level", std::to_string(index) + " (counted from 0)",
                 index);
  }

  void AddRssi() {
    uint8_t rssi = 0;
    const bool told = CS_UsbFinder_GetRSSI(path(), &rssi);
    AddWords("rssi", "signal strength", told, {&rssi, 1});
  }

  void AddSerialNumber() {
    DataRecord10 serial{};
    if (!UsbFinderC_GetMouseSerialNumber(path(), &serial)) {
      return AddUntold("serial_number", "serial number");
    }
    const std::string bytes = HexBytes(serial.bytes);
    const bool readable = std::all_of(std::begin(serial.bytes), std::end(serial.bytes),
                                      [](uint8_t c) { return c > 0x20 && c < 0x7F; });
    const std::string text(std::begin(serial.bytes), std::end(serial.bytes));
    report_.Fact("serial_number", "serial number", readable ? text + " (" + bytes + ")" : bytes,
                 {{"raw", bytes}, {"text", readable ? Json(text) : Json(nullptr)}});
  }

  void AddCidMid() {
    CidMid ids{};
    if (!UsbFinderC_ReadCidMid(path(), 0, &ids)) {
      return AddUntold("cid_mid", "customer, model id");
    }
    report_.Fact("cid_mid", "customer, model id",
                 HexBytes({&ids.cid, 1}) + ", " + HexBytes({&ids.mid, 1}) +
                     (ids.flag != 0 ? " (flag set)" : ""),
                 {{"cid", ids.cid}, {"mid", ids.mid}, {"flag", ids.flag}});
  }

  void AddDeviceInfo() {
    const DeviceInfo info = UsbFinderC_GetDeviceInfo(path(), device_.keyboard ? 1 : 0);
    // All zero stands for no answer.
    const bool told = std::any_of(std::begin(info.bytes), std::end(info.bytes),
                                  [](uint8_t byte) { return byte != 0; });
    AddWords("device_info", "device info", told, info.bytes);
  }

 private:
  Report& report_;
  const DeviceEntry& device_;
  const Vocabulary words_;
};

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

void AddBattery(Report& report, const BatteryLevel& battery) {
  report.Fact("battery", "battery", BatteryText(battery), BatteryJson(battery));
}

void AddDeviceFacts(Report& report, const DeviceEntry& device, const CommandFrame& online,
                    bool raw) {
  Facts facts(report, device, raw);
  facts.AddVersion();
  facts.AddSlaveVersion();
  facts.AddOnline(online);
  facts.ReadBattery();
  facts.AddCurrentDpi();
  facts.AddRssi();
  facts.AddSerialNumber();
  facts.AddCidMid();
  facts.AddDeviceInfo();
}

void AddReceiverFacts(Report& report, const DeviceEntry& device, bool raw) {
  Facts facts(report, device, raw);
  DataRecord10 colours{};
  const bool colours_told = UsbFinderC_Get4KDongleRGBValue(facts.path(), &colours);
  facts.AddWords("receiver_colours", "receiver colours", colours_told, colours.bytes);

  RgbBarMode bar{};
  const bool bar_told = UsbFinderC_GetDongleRGBBarMode(facts.path(), &bar);
  facts.AddWords("bar_mode", "bar mode", bar_told,
                 {reinterpret_cast<const uint8_t*>(&bar), sizeof bar});

  IndicatorLed led{};
  const bool led_told = UsbFinderC_GetDongleIndicatorLed(facts.path(), &led);
  facts.AddWords("indicator_led", "indicator LED", led_told, led.bytes);

  uint8_t long_range = 0;
  const bool range_told = UsbFinderC_GetLongRangeMode(facts.path(), &long_range);
  facts.AddWords("long_range", "long-range mode", range_told, {&long_range, 1});
}

}  // namespace perictl
