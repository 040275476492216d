// A host of the server: what it queues, what it hears, devices that go, come and change.
#include <algorithm>

#include "scenario.h"

namespace perilink::testing {
namespace {

using Server = Scenario;

TEST_F(Server, AnswersInOrderAndTellsOfEvents) {
  StartServer(Path());
  UsbServer_ReadVersion();
  UsbServer_GetMouseSerialNumber();
  UsbServer_GetRSSI();
  const uint16_t version = mouse.firmware().options().version;
  EXPECT_EQ(AwaitReport(sim::command::kVersion, 2),
            (Bytes{uint8_t(version >> 8), uint8_t(version)}));
  EXPECT_FALSE(AwaitReport(sim::command::kGetSerial, 10).empty());
  EXPECT_FALSE(AwaitReport(sim::command::kRssi, 1).empty());
  mouse.SendEvent(0x05);
  EXPECT_EQ(AwaitReport(sim::command::kEvent, 10).front(), 0x05);
  // A write that fails is tried again, one that nobody answers too.
  mouse.faults().FailWrite(sim::Next(3)).Drop(sim::Next());
  UsbServer_ReadVersion();
  EXPECT_FALSE(AwaitReport(sim::command::kVersion, 2).empty());
}

TEST_F(Server, WaitsForAStartWhenItsDeviceHasGone) {
  StartServer(Path());
  UsbServer_ReadVersion();
  EXPECT_FALSE(AwaitReport(sim::command::kVersion, 2).empty());
  Unplug();
  UsbServer_ReadVersion();
  Plug(mouse);
  EXPECT_TRUE(AwaitReport(sim::command::kVersion, 2, 500).empty());
  StartServer(Path());
  UsbServer_ReadVersion();
  EXPECT_FALSE(AwaitReport(sim::command::kVersion, 2).empty());
}

TEST_F(Server, GoesOverToAnotherDevice) {
  const auto keyboard = NewDevice(sim::KeyboardOptions());
  Plug(*keyboard);
  StartServer(Path());
  mouse.faults().Silence();
  UsbServer_GetRSSI();
  ASSERT_TRUE(Eventually([this] { return mouse.CountRequests(sim::command::kRssi) > 0; }));
  const std::wstring path = PathOf(*keyboard);
  EXPECT_EQ(UsbServer_KeyboardStart(path, path, OnReport), 0u) << "the thread runs already";
  UsbServer_ReadVersion();
  EXPECT_FALSE(AwaitReport(sim::command::kVersion, 2).empty());
  EXPECT_EQ(mouse.CountRequests(sim::command::kVersion), 0u);
  EXPECT_EQ(keyboard->CountRequests(sim::command::kRssi), 0u);
  EXPECT_EQ(keyboard->Requests().back().bytes[5], 0x80) << "what a keyboard's commands have";
  // A managed start uses its first path for both.
  mouse.faults().Heal();
  CS_UsbServer_Start(NarrowPath().c_str(), "elsewhere", OnReport);
  std::wstring current;
  UsbServer_GetCurrentOutputDevice(current);
  EXPECT_EQ(current, Path());
  UsbServer_ReadVersion();
  EXPECT_FALSE(AwaitReport(sim::command::kVersion, 2).empty());
  EXPECT_EQ(mouse.Requests().back().bytes[5], 0x00);
  UsbServer_Exit();
  UsbReaderWriterServer();
}

TEST_F(Server, ReadsAndUpdatesTheConfiguration) {
  StartServer(Path());
  UsbServer_ReadAllFlashData();
  const Bytes image = AwaitReport(sim::command::kReadMemory, PERILINK_FLASH_IMAGE_SIZE);
  ASSERT_EQ(image, FlashOf(mouse));
  ProtocolData record{};
  ProtocolDataParser(image.data(), &record);
  record.dpi_levels[0].color = {{0x20, 0x80, 0xE0}};
  ProtocolDataUpdate(&record);
  EXPECT_FALSE(AwaitReport(sim::command::kWriteMemory, 4).empty());
  EXPECT_EQ(FlashOf(mouse)[44], 0x20);
}

TEST_F(Server, ReportsNothingOfAReadThatBreaksOff) {
  const auto read = [](uint32_t time_ms = kPatienceMs) {
    UsbServer_ReadAllFlashData();
    return AwaitReport(sim::command::kReadMemory, PERILINK_FLASH_IMAGE_SIZE, time_ms);
  };
  for (const uint64_t frame : {1u, 2u, 40u}) {
    mouse.faults().UnplugAfter(sim::At(frame).For(sim::command::kReadMemory));
    StartServer(Path());
    EXPECT_TRUE(read(1000).empty());
    ASSERT_TRUE(Eventually([] { return Present().empty(); }));
    mouse.faults().Heal();
    Plug(mouse);
  }
  StartServer(Path());
  mouse.faults().Ignore(sim::From(40).For(sim::command::kReadMemory));
  EXPECT_TRUE(read(4000).empty());
  mouse.faults().Heal();
  EXPECT_EQ(read(), FlashOf(mouse)) << "no start is needed for that";
}

TEST_F(Server, ShowsASmoothedBattery) {
  UsbServer_SetBatteryOptimizeLastBattery(0, 80);
  UsbServer_SetBatteryOptimizeParam(0, 200, 1000);
  mouse.battery().Fix({76, 0, 0});
  StartServer(Path());
  for (int shown = 80; shown > 76;) {
    const Bytes report = AwaitReport(sim::command::kBattery, 4);
    ASSERT_FALSE(report.empty());
    EXPECT_TRUE(report[0] == shown || report[0] == shown - 1) << int{report[0]};
    shown = report[0];
  }
  EXPECT_TRUE(AwaitReport(sim::command::kBattery, 4, 600).empty()) << "below the measured level";
}

// On Windows a USB device arrives before the HID devices that it carries; a host that hears of it
// looks for its device until that is there, or has the notice delayed.
TEST_F(Server, ItsHostNoticesADevice) {
  static std::vector<bool> calls;
  static Paths at_arrival;
  CS_StartUsbChanged(
      [](bool arrived) {
        calls.push_back(arrived);
        UsbFinder_FindHidDevicesByDefaultDeviceId(L"1234", L"abcd", at_arrival);
      },
      0);
  ASSERT_EQ(calls, std::vector{true});
  const auto told = [](bool arrived) {
    return Eventually([arrived] {
      for (MSG message{}; PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);)
        DispatchMessageW(&message);
      return calls.back() == arrived;
    });
  };
  mouse.Unplug();
  ASSERT_TRUE(told(false));  // the notice of the plug before may come first
  mouse.Plug();
  ASSERT_TRUE(told(true));
  StopUsbChanged();
  EXPECT_TRUE(!kArrivesComplete || !at_arrival.empty());
  EXPECT_TRUE(Eventually([this] { return UsbFinder_GetVersion(Path()) > 0; }));
}

}  // namespace
}  // namespace perilink::testing
