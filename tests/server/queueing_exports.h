// The exports that queue one command, each with the frame that it queues.
#ifndef PERILINK_TESTS_SERVER_QUEUEING_EXPORTS_H_
#define PERILINK_TESTS_SERVER_QUEUEING_EXPORTS_H_

#include <functional>
#include <vector>

#include "perilink/server.h"

namespace perilink::testing {

inline const DataRecord10 kRecord = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};
inline const std::vector<uint8_t> kRecordBytes(kRecord.bytes, kRecord.bytes + 10);
inline const RgbBarMode kBar = {9, {1, 2, 3, 4, 5}, 1};
inline const RgbBarMode kBarOff = {9, {1, 2, 3, 4, 5}, 0};
inline const IndicatorLed kLed = {{7, 8, 9}};

struct QueueingExports {
  const char* name;
  std::vector<std::function<void()>> exports;  // which all queue the same
  uint8_t command;
  uint8_t length;
  std::vector<uint8_t> payload;
};

#define PERILINK_BOTH(name, ...)                                                    \
  {                                                                                 \
    [] { UsbServer_##name(__VA_ARGS__); }, [] { CS_UsbServer_##name(__VA_ARGS__); } \
  }

// Names that are one entry point are made by the linker; here the first of them stands for all.
inline const std::vector<QueueingExports> kQueueingExports = {
    {"status", PERILINK_BOTH(SetPCDriverStatus, 0x21), 0x02, 1, {0x21}},
    {"online", PERILINK_BOTH(ReadOnLine), 0x03, 0, {}},
    {"battery", PERILINK_BOTH(ReadBatteryLevel), 0x04, 0, {}},
    {"pair", PERILINK_BOTH(EnterDonglePairWithCidMid, 0x31, 0x32), 0x05, 2, {0x31, 0x32}},
    {"pair any", {[] { UsbServer_EnterDonglePair(); }}, 0x05, 2, {}},
    {"pair cid", PERILINK_BOTH(EnterDonglePairOnlyCid, 0x33), 0x05, 2, {0, 0, 0x33}},
    {"pair status", PERILINK_BOTH(ReadDonglePairStatus), 0x06, 0, {}},
    {"clear", PERILINK_BOTH(SetClearSetting), 0x09, 0, {}},
    {"ids", PERILINK_BOTH(SetVidPid, 0x1234, 0xABCD), 0x0B, 4, {0x02, 0x34, 0x0B, 0xCD}},
    {"update", PERILINK_BOTH(EnterUsbUpdateMode), 0x0D, 0, {}},
    {"config", PERILINK_BOTH(ReadConfig), 0x0E, 0, {}},
    {"set config", PERILINK_BOTH(SetCurrentConfig, 0x35), 0x0F, 1, {0x35}},
    {"mtk", PERILINK_BOTH(EnterMTKMode), 0x11, 0, {}},
    {"version", PERILINK_BOTH(ReadVersion), 0x12, 0, {}},
    {"set rgb", PERILINK_BOTH(Set4KDongleRGB, &kRecord), 0x14, 10, kRecordBytes},
    {"get rgb", PERILINK_BOTH(Get4KDongleRGBValue), 0x15, 0, {}},
    {"set range", PERILINK_BOTH(SetLongRangeMode, 0x36), 0x16, 10, {0x36}},
    {"get range", PERILINK_BOTH(GetLongRangeMode), 0x17, 0, {}},
    {"set bar", {[] { CS_UsbServer_SetDongleRGBBarMode(&kBar); }}, 0x18, 10, {9, 1, 2, 3, 4, 5}},
    {"bar off", {[] { CS_UsbServer_SetDongleRGBBarMode(&kBarOff); }}, 0x18, 10, {0, 1, 2, 3, 4, 5}},
    {"get bar", {[] { CS_UsbServer_GetDongleRGBBarMode(); }}, 0x19, 0, {}},
    {"dongle id", PERILINK_BOTH(SetDongleIDToMouse, &kRecord), 0x1A, 10, kRecordBytes},
    {"set serial", PERILINK_BOTH(SetMouseSerialNumber, &kRecord), 0x1F, 10, kRecordBytes},
    {"get serial", PERILINK_BOTH(GetMouseSerialNumber), 0x20, 0, {}},
    {"rssi", PERILINK_BOTH(GetRSSI), 0x2B, 0, {}},
    {"set led", PERILINK_BOTH(SetDongleIndicatorLed, &kLed), 0x2C, 10, {7, 8, 9}},
    {"get led", PERILINK_BOTH(GetDongleIndicatorLed), 0x2D, 0, {}},
    {"slave", PERILINK_BOTH(GetSlaveVersion), 0xB3, 0, {}},
    {"set data", PERILINK_BOTH(SetData, 0x77, kRecord.bytes, 3), 0x77, 3, {1, 2, 3}},
    {"get data", PERILINK_BOTH(GetData, 0x78), 0x78, 0, {}},
};

#undef PERILINK_BOTH

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_QUEUEING_EXPORTS_H_
