// The narrow and managed forms do what their wide twins do.
#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "battery/battery_steps.h"
#include "perilink/battery.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "platform/ansi_text.h"
#include "protocol/image.h"
#include "sim/mouse.h"
#include "support/interop_values.h"
#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

TEST(FinderVariants, NoPathAndNoListAreNoHarm) {
  UsbFinderC_Free(nullptr, 3);
  EXPECT_EQ(TakeTexts(CS_UsbFinder_GetDllVersion()), std::vector<std::wstring>{L"x64"});
  EXPECT_FALSE(UsbFinderC_OpenDevice(""));
  EXPECT_FALSE(UsbFinderC_OpenDevice(nullptr));
  UsbFinderC_CloseDevice();
}

TEST(FinderVariants, RawExchange) {
  const Report answer = Closed({0x08, 1, 2, 3});
  ScriptedDevice device(kScriptedPath, [&](ScriptedDevice& self, const Report&) {
    self.Deliver(answer, 10);
    return DWORD{0};
  });
  ASSERT_TRUE(UsbFinderC_OpenDevice(WideToNarrow(kScriptedPath).c_str()));
  // Request and reply in one place.
  Report frame(17, 0x33);
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
}

TEST(ManagedVariants, Converters) {
  Random random(1);
  const Image image = BuildImage(RandomRecord(random));
  ProtocolData record{};
  ProtocolDataParser(image.data(), &record);
  ProtocolData again{};
  CS_ProtocolDataParser(image.data(), &again);
  EXPECT_TRUE(Same(again, record));
  CS_BufferToDPILed(&image[76], &(again = {}).dpi_led);
  EXPECT_TRUE(Same(again.dpi_led, record.dpi_led));
  CS_BufferToLedBar(&image[160], &again.led_bar);
  EXPECT_TRUE(Same(again.led_bar, record.led_bar));
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
  CS_UsbServer_ReStartBatteryOptimize();
  EXPECT_EQ(level_after_poll(49, 0), 80);
  CS_UsbServer_SetBatteryOptimizeParam(0x100, 10000, 300000);  // not cut to its low byte, 0
  EXPECT_EQ(level_after_poll(50, 0), 80);                      // 30 percent are no large difference
  EXPECT_EQ(level_after_poll(49, 0), 49);
  std::array<uint32_t, kVoltagePoints> voltages;
  std::iota(voltages.begin(), voltages.end(), 3700);
  CS_UsbServer_SetBatteryOptimizeSection(voltages.data());
  EXPECT_EQ(level_after_poll(9, 3720), 100);
}

}  // namespace
}  // namespace perilink::testing
