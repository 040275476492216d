// The narrow and managed forms do what their wide twins do.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <numeric>

#include "battery/battery_steps.h"
#include "perilink/battery.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "perilink/usb_changed.h"
#include "platform/ansi_text.h"
#include "sim/mouse.h"
#include "support/interop_values.h"
#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

TEST(FinderVariants, PathsGoThroughTheCodePage) {
  ScriptedDevice device(L"\\\\?\\hid#vid_1234&pid_abcd#Größe 鼠");
  UsbFinderC_Free(nullptr, 3);
  EXPECT_EQ(TakeTexts(CS_UsbFinder_GetDllVersion()), std::vector<std::wstring>{L"x64"});
  EXPECT_FALSE(UsbFinderC_OpenDevice(""));
  EXPECT_FALSE(UsbFinderC_OpenDevice(nullptr));
  const std::string path = WideToNarrow(device.Path());
  EXPECT_TRUE(UsbFinderC_OpenDevice(path.c_str()));
  UsbFinderC_CloseDevice();
  UsbFinderC_CloseDevice();
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
  HIDD_ATTRIBUTES attributes{};
  UsbFinderC_GetUsbDeviceAttribute(path.c_str(), &attributes);
  EXPECT_EQ(attributes.VendorID, 0x1234);
}

TEST(FinderVariants, RawExchangeInBothForms) {
  const Report answer = Closed({0x08, 1, 2, 3});
  ScriptedDevice device(kScriptedPath, [&](ScriptedDevice& self, const Report&) {
    self.Deliver(answer, 10);
    return DWORD{0};
  });
  ASSERT_TRUE(UsbFinderC_OpenDevice(WideToNarrow(kScriptedPath).c_str()));
  Report frame(17, 0x33);
  EXPECT_TRUE(UsbFinder_WriteDeviceData(frame.data(), 17));
  Sleep(20);
  EXPECT_EQ(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(frame.data(), 17)), answer);
  // Request and reply in one place.
  EXPECT_TRUE(UsbFinderC_ReadWriteDeviceData(frame.data(), frame.data(), 17));
  EXPECT_EQ(frame, answer);
  EXPECT_EQ(device.writes().back().report, Report(17, 0x33));
  // No length that a device refuses leaves anything but zeros, and nothing beyond the length.
  for (const uint8_t length : {uint8_t{0}, uint8_t{16}, uint8_t{255}}) {
    const std::vector<uint8_t> request(length, 0x33);
    std::vector<uint8_t> reply(256, 0xEE);
    EXPECT_FALSE(UsbFinderC_ReadWriteDeviceData(request.data(), reply.data(), length));
    EXPECT_EQ(std::count(reply.begin(), reply.end(), 0), length);
    EXPECT_EQ(reply[length], 0xEE);
    EXPECT_TRUE(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(request.data(), length)).empty());
  }
  UsbFinderC_CloseDevice();
  EXPECT_TRUE(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(frame.data(), 17)).empty());
}

template <typename Record>
bool SameResult(void (*wide)(const uint8_t*, Record*), void (*managed)(const uint8_t*, Record*),
                const uint8_t* source) {
  const auto expected = std::make_unique<Record>();
  const auto seen = std::make_unique<Record>();
  wide(source, expected.get());
  managed(source, seen.get());
  const Record blank{};
  return std::memcmp(seen.get(), expected.get(), sizeof(Record)) == 0 &&
         std::memcmp(seen.get(), &blank, sizeof(Record)) != 0;
}

TEST(ManagedVariants, Converters) {
  sim::FlashImage flash = sim::FlashImage::Default();
  flash.SetField(76, {1});
  flash.SetField(160, {1, 2, 3, 4, 5, 6});
  const uint8_t* image = flash.bytes().data();
  EXPECT_TRUE(SameResult(ProtocolDataParser, CS_ProtocolDataParser, image));
  EXPECT_TRUE(SameResult(BufferToDPILed, CS_BufferToDPILed, image + 76));
  EXPECT_TRUE(SameResult(BufferToLedBar, CS_BufferToLedBar, image + 160));
}

TEST(ManagedVariants, BatterySettings) {
  sim::Mouse mouse;
  mouse.Plug();
  BatterySteps steps;
  steps.optimizer.Connect(mouse.CommandPath());
  const auto level_after_poll = [&](uint8_t level, uint16_t voltage) {
    mouse.battery().Fix({level, 0, voltage});
    return steps.Poll();
  };
  EXPECT_EQ(level_after_poll(50, 0), 50);
  UsbServer_SetBatteryOptimizeLastBattery(0, 80);
  EXPECT_EQ(level_after_poll(50, 0), 50);
  CS_UsbServer_ReStartBatteryOptimize();
  EXPECT_EQ(level_after_poll(50, 0), 80);
  CS_UsbServer_SetBatteryOptimizeParam(0, 10000, 300000);
  EXPECT_EQ(level_after_poll(49, 0), 80);
  CS_UsbServer_SetBatteryOptimizeParam(0x100, 10000, 300000);  // not cut to its low byte, 0
  EXPECT_EQ(level_after_poll(49, 0), 49);
  std::array<uint32_t, kVoltagePoints> voltages;
  std::iota(voltages.begin(), voltages.end(), 3700);
  CS_UsbServer_SetBatteryOptimizeSection(voltages.data());
  EXPECT_EQ(level_after_poll(9, 3720), 100);
}

bool told = false;

TEST(ManagedVariants, ArrivalNotice) {
  CS_StartUsbChanged([](bool arrived) { told = arrived; }, 0);
  EXPECT_TRUE(told);
  StopUsbChanged();
}

}  // namespace
}  // namespace perilink::testing
