// The demo's third step: sets each of the receiver's settings, reads it back, and restores it.
#include <cstring>

#include "commands/demo_steps.h"
#include "device/online.h"
#include "exit_codes.h"
#include "perilink/finder.h"
#include "terminal/text.h"

namespace perictl {
namespace {

// One setting: how it is written and read, and which of the record's bytes the demo sets.
template <typename Record>
struct Setting {
  const char* key;
  const char* label;
  bool (*get)(const char* path, Record* record);
  bool (*set)(const char* path, const Record* record);
  Record demonstrated;
};

bool SetColours(const char* path, const DataRecord10* colours) {
  return UsbFinderC_Set4KDongleRGB(path, colours) == 0;
}
bool GetLongRange(const char* path, uint8_t* mode) {
  return UsbFinderC_GetLongRangeMode(path, mode);
}
bool SetLongRange(const char* path, const uint8_t* mode) {
  return UsbFinderC_SetLongRangeMode(path, *mode);
}

template <typename Record>
std::string Bytes(const Record& record) {
  return HexBytes({reinterpret_cast<const uint8_t*>(&record), sizeof record});
}

template <typename Record>
void Demonstrate(DemoState& state, const Setting<Record>& setting) {
  const char* path = state.device.path.c_str();
  Record before{};
  if (!setting.get(path, &before)) {
    RequireOnline(state.device.path);
    state.context.report.Fact(setting.key, setting.label, "not told", nullptr);
    return;
  }
  Record after{};
  const bool set = setting.set(path, &setting.demonstrated) && setting.get(path, &after);
  const bool restored = setting.set(path, &before);
  if (!set || !restored) FailUnanswered(state.device.path, setting.label);
  if (std::memcmp(&after, &setting.demonstrated, sizeof after) != 0) {
    throw Failure(ExitCode::kRefused, std::string(setting.label) + " was set to " +
                                          Bytes(setting.demonstrated) + " and reads " +
                                          Bytes(after));
  }
  state.context.report.Fact(
      setting.key, setting.label,
      "was " + Bytes(before) + "; set to and read as " + Bytes(after) + "; restored",
      {{"before", Bytes(before)}, {"set", Bytes(setting.demonstrated)}, {"read", Bytes(after)}});
}

}  // namespace

void DemoSettings(DemoState& state) {
  Demonstrate(state, Setting<DataRecord10>{"receiver_colours",
                                           "receiver colours",
                                           UsbFinderC_Get4KDongleRGBValue,
                                           SetColours,
                                           {{0x10, 0x80, 0xFF}}});
  Demonstrate(state, Setting<RgbBarMode>{"bar_mode",
                                         "bar mode",
                                         UsbFinderC_GetDongleRGBBarMode,
                                         UsbFinderC_SetDongleRGBBarMode,
                                         {2, {3, 0x40, 0x50, 0x60, 4}, 1}});
  Demonstrate(state, Setting<IndicatorLed>{"indicator_led",
                                           "indicator LED",
                                           UsbFinderC_GetDongleIndicatorLed,
                                           UsbFinderC_SetDongleIndicatorLed,
                                           {{2, 0x40, 1}}});
  Demonstrate(state,
              Setting<uint8_t>{"long_range", "long-range mode", GetLongRange, SetLongRange, 1});
}

}  // namespace perictl
