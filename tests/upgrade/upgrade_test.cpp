// Whole upgrades: what the host hears and what the log says, line by line.
#include "support/other_mouse.h"
#include "upgrade/events.h"
#include "upgrade/log.h"
#include "upgrade_rig.h"

namespace perilink::testing {
namespace {

const std::string kSighted = "WaitBootMode-Found one device-wait stable";
const Lines kReset = {"Start Upgrade Thread ",
                      "Found Normal Device",
                      "Start ResetToBootMode-waitNormal-0",
                      "ResetToBootMode-hDeviceWrite =H",
                      "ResetToBootMode-hDeviceRead =H",
                      "T:  ResetToBootMode-Write data:11 00 08 0d 00 00 00 01 ",
                      "ResetToBootMode-Write data success-Wait Usb",
                      "ResetToBootMode-Device Respone Success"};
const Lines kStable =
    Lines{"Start WaitBootMode"} + Lines(3, kSighted) + Lines{"WaitBootMode-usb stable"};

Lines Written(const std::string& dump) {
  return {"T:  Write Data Success:" + dump};
}
Lines Received(const std::string& dump) {
  return {"T:  Received Data:" + dump};
}
Lines Echoed(const std::string& dump) {
  return Written(dump) + Received(dump);
}
const Lines kDownload = Lines{"Start DownloadFile"} + Written("00 b0 00 00 00 00 01 00 ") +
                        Received("00 b0 00 00 00 00 00 00 ") +
                        Received("00 5b b5 01 01 00 00 00 ") + Echoed("00 b1 c0 20 00 00 01 00 ") +
                        Echoed("00 b1 c0 20 00 00 01 00 ") + Echoed("00 b1 c0 20 00 00 01 00 ") +
                        Echoed("00 b1 c1 04 00 00 01 00 ") + Received("00 5b b5 88 00 00 00 00 ");

const Event kResetEchoed = {3, 17, 1, 0};
const Event kBootStable = {3, 17, 2, 0};
const Events kReady = {{3, 16, 3, 0}, {3, 1, 1, 0}};
const Events kDeviceEnd = {{3, 0x88, 0, 0}};
const Events kSuccess = {{1, 100, 0, 0}, kSucceeded};

TEST_F(UpgradeTest, LogsOneImageFromItsFirstLineToItsLast) {
  sim::Mouse mouse;
  mouse.Plug();
  ASSERT_TRUE(RunUpgrade(FileFor(mouse)));
  const std::string command = "vid_1234&pid_abcd&mi_01&col05";
  const std::string boot = "vid_1234&pid_b007";
  const Lines fields = {"bootInputEndPoint:" + boot, "bootOutputEndPoint:" + boot,
                        "normalInputEndPoint:" + command, "normalOutputEndPoint:" + command,
                        "senserName:none"};
  Lines parsed = {"File check init", "File header check ok", "File header memset",
                  "File header icName:VIRTUAL", "File header fileId:virtual upgrade"};
  for (const std::string& field : fields)
    parsed.push_back("File header " + field);
  parsed = parsed + Lines{"File header info ok", "Create Upgrade Packet OK"};
  const Lines record = Lines{"T",          "  UsbUpgradeFile",   "isEnd:true",
                             "valid:true", "totalPacketCount:0", "icName:VIRTUAL"} +
                       fields + Lines{"productName:Virtual mouse"};
  EXPECT_EQ(Log(), parsed + record + kReset + kStable + kDownload + Lines{"All Upgrade Success"});
  EXPECT_EQ(events, Events{kResetEchoed} + Progress(1, 84, 205) + Events{kBootStable} + kReady +
                        Progress(85, 88, 205, 40) + kDeviceEnd + kSuccess);
  EXPECT_EQ(mouse.firmware().options().version, kNewVersion);
}

// The write stays where it is until the device is unplugged; the upgrade does not.
TEST_F(UpgradeTest, AWriteThatNeverCompletesHoldsNoUpgrade) {
  sim::Mouse mouse;
  mouse.Plug();
  mouse.faults().HoldWrite(sim::Next());
  ASSERT_TRUE(RunUpgrade(FileFor(mouse)));
  EXPECT_EQ(WithoutProgress(), (Events{{2, 8, 0, 1}}));
  for (const bool feature_report : {true, false}) {
    for (const bool start_packet : {true, false}) {
      mouse.boot_faults().HoldWrite(sim::At(start_packet ? 1 : 3));
      ASSERT_TRUE(RunUpgrade(FileFor(mouse, feature_report)));
      EXPECT_EQ(events.back(), (Event{2, 2, 3, 0}));
      mouse.boot_faults().Heal();
    }
  }
  ASSERT_TRUE(RunUpgrade(FileFor(mouse)));
  EXPECT_EQ(events.back(), kSucceeded);
  EXPECT_EQ(mouse.firmware().options().version, kNewVersion);
  mouse.Unplug();
  Sleep(2000);
}

TEST_F(UpgradeTest, OneImageByEveryWay) {
  for (unsigned way = 0; way < 8; ++way) {
    SCOPED_TRACE(way);
    const bool echo = (way & 1) != 0;
    const bool feature = (way & 2) != 0;
    sim::DeviceOptions options = sim::Mouse::Options();
    options.boot.separate_interfaces = (way & 4) != 0;
    options.boot.echo_reset = echo;
    const sim::Frame reset = sim::MakeFrame(0x0D, echo);
    options.boot.reset_command.assign(reset.begin(), reset.end());
    sim::Mouse mouse(options);
    mouse.Plug();
    // A host that looks finds the line in the log already, and at the end the device let go. What
    // its callback throws ends nothing.
    on_event = [&](const Event& event) {
      EXPECT_TRUE(event[0] != 2 || platform::Bus().OpenConnections() == 0);
      EXPECT_TRUE(echo || events.size() != 1 ||
                  RawLog().back() == "ResetToBootMode-Write data success");
      throw 1;
    };
    // A limit of three cycles, which begins anew with each sighting.
    ASSERT_TRUE(RunUpgrade(FileFor(mouse, feature), 399));
    EXPECT_EQ(WithoutProgress(), Events({echo ? kResetEchoed : kBootStable, kBootStable}) + kReady +
                                     kDeviceEnd + Events{kSucceeded});
    EXPECT_EQ(std::ranges::count(ThreadLog(), "ResetToBootMode-Write data success"), !echo);
    const std::vector<sim::Request> requests = mouse.Requests();
    EXPECT_EQ(std::ranges::count(requests, feature, &sim::Request::feature), 6);
    EXPECT_EQ(requests.size(), 6u);
    // Each packet follows at once on the reply to the one before.
    EXPECT_LE(last_event_ms - requests[1].at_micros / 1000, 51u + 4 * 1 + 20 + 2);
  }
}

// An upgrade with a fault, by its events without progress, the last lines of its log and how long
// it took.
template <typename Arrange>
void ExpectFailure(const char* name, const Events& expected, const Lines& last_lines,
                   Arrange arrange, uint32_t timeout = 2000, uint64_t took_ms = 0) {
  SCOPED_TRACE(name);
  const uint64_t start_ms = platform::NowMicros() / 1000;
  sim::Mouse mouse;
  sim::UpgradeImage image = sim::ImageFor(mouse, NewFirmware());
  mouse.Plug();
  arrange(mouse, image);
  ASSERT_TRUE(RunUpgrade(sim::UpgradeFileBuilder(image).Build(), timeout));
  platform::DisarmFault();
  on_event = nullptr;
  EXPECT_EQ(WithoutProgress(), expected);
  const Lines log = ThreadLog();
  ASSERT_GE(log.size(), last_lines.size());
  EXPECT_EQ(Lines(log.end() - std::ssize(last_lines), log.end()), last_lines);
  EXPECT_NE(mouse.firmware().options().version, kNewVersion);
  EXPECT_TRUE(took_ms == 0 || took_ms == last_event_ms - start_ms) << last_event_ms - start_ms;
}

TEST_F(UpgradeTest, FailuresOfTheReset) {
  const Lines no_echo = {"ResetToBootMode-Timer Out Error"};
  const Lines not_written = {"ResetToBootMode-Write Usb Error"};
  const auto drop = [](auto& mouse, auto&) { mouse.faults().Drop(sim::Next()); };
  ExpectFailure("not echoed", {{2, 2, 1, 0}}, no_echo, drop, 2000, 1000);
  const auto stray = [](auto& mouse, auto&) {
    mouse.faults().StrayReportBefore(sim::Next(), sim::MakeFrame(0x0E, 0));
  };
  ExpectFailure("another report before the echo", {{2, 2, 1, 0}}, no_echo, stray, 2000, 1000);
  // Only the checksum can tell: the command itself is wrong, and the echo is exact.
  ExpectFailure("wrong checksum", {{2, 2, 1, 0}}, no_echo, [](auto& mouse, auto& image) {
    image.reset.data[16] ^= 1;
    mouse.faults().OnRequest([](sim::Exchange& it) { sim::Seal(it.request); });
    mouse.faults().OnReply([](sim::Exchange& it) { it.replies[0].report[16] ^= 1; });
  });
  ExpectFailure("no output interface", {{2, 4, 1, 0}},
                {"Not found Normal Device", "Start ResetToBootMode-waitNormal-0",
                 "ResetToBootMode-Found Multi Devices-input Size =1",
                 "ResetToBootMode-Found Multi Devices-output Size =0"},
                [](auto&, auto& image) { image.normal_output = ""; });
  const auto nothing = [](auto&, auto&) {};
  ExpectFailure("no cycles", {{2, 6, 1, 0}}, {"ResetToBootMode-TimeOut-0"}, nothing, 99);
  ExpectFailure("not written", {{2, 8, 0, 1}}, not_written,
                [](auto& mouse, auto&) { mouse.faults().FailWrite(sim::Next()); });
  ExpectFailure("no event", {{2, 8, 1, 0}},
                Lines{"ResetToBootMode-osReader.hEvent = 0", kReset[5]} + not_written,
                [](auto&, auto&) { platform::ArmFault("CreateEventW", 1); });
  ExpectFailure("not opened", {{2, 8, 0, 1}},
                Lines{"ResetToBootMode-hDeviceWrite =-1", "ResetToBootMode-hDeviceRead =-1"} +
                    Lines{kReset[5]} + not_written,
                [](auto& mouse, auto&) { mouse.faults().FailOpen(sim::Next(2)); });
}

TEST_F(UpgradeTest, FailuresInBootMode) {
  const auto unopened = [](const char* handles) {
    return Lines{"WaitBootMode-usb stable", std::string("DownloadFile-HANDLE Error,") + handles};
  };
  const auto does_not_come_back = [](sim::Mouse& mouse, auto&) {
    mouse.OnModeChange([&mouse](sim::Mode mode) {
      if (mode == sim::Mode::kChanging) mouse.Unplug();
    });
    // The ticks keep their pace whatever a host does with an event; the first comes before them.
    on_event = [](const Event&) { Sleep(3); };
  };
  const Lines not_found = {"Start WaitBootMode", "WaitBootMode-NotBootFoundDeviceError-TimeOut-3"};
  ExpectFailure("does not come back", {kResetEchoed, {2, 7, 1, 0}}, not_found, does_not_come_back,
                399, 844);
  for (const auto half : {&sim::UpgradeImage::boot_input, &sim::UpgradeImage::boot_output})
    ExpectFailure(
        "half of it", {kResetEchoed, {2, 7, 1, 0}}, not_found,
        [half](auto&, auto& image) { image.*half = "vid_9999"; }, 399);
  ExpectFailure("no output", {kResetEchoed, kBootStable, {2, 9, 0, 1}},
                unopened("hDeviceWrite=-1  hDeviceRead =H"),
                [](auto& mouse, auto&) { mouse.boot_faults().FailOpen(sim::At(1)); });
  ExpectFailure("no input", {kResetEchoed, kBootStable, {2, 9, 1, 0}},
                unopened("hDeviceWrite=H  hDeviceRead =-1"),
                [](auto& mouse, auto&) { mouse.boot_faults().FailOpen(sim::At(2)); });
  ExpectFailure("gone", {kResetEchoed, kBootStable, {2, 9, 0, 0}},
                unopened("hDeviceWrite=0  hDeviceRead =0"), [](auto& mouse, auto&) {
                  on_event = [&mouse](const Event& event) {
                    if (event == kBootStable) mouse.Unplug();
                  };
                });
  // Three are the reset's: its read and its writer.
  ExpectFailure("no event", {kResetEchoed, kBootStable, {2, 2, 3, 0}},
                Written("00 b0 00 00 00 00 01 00 ") + Lines{"Upgrade Timeout"},
                [](auto&, auto&) { platform::ArmFault("CreateEventW", 4); });
  ExpectFailure("firmware refused",
                Events{kResetEchoed, kBootStable} + kReady + Events{{2, 10, 4, 0}, {2, 2, 3, 0}},
                Received("00 5a a5 04 00 00 00 00 ") + Lines{"Upgrade Timeout"},
                [](auto&, auto& image) { image.payload.back() ^= 1; });
}

TEST_F(UpgradeTest, TwoDevicesOfOneKindAreRefused) {
  sim::DeviceOptions twin_options = sim::Mouse::Options();
  twin_options.instance = "twin";
  sim::Mouse mouse;
  sim::Mouse twin(twin_options);
  mouse.Plug();
  twin.PlugInBootMode();
  ASSERT_TRUE(RunUpgrade(FileFor(mouse)));
  EXPECT_EQ(WithoutProgress(), Events({kResetEchoed, {2, 5, 2, 2}}));
  const Lines log = ThreadLog();
  EXPECT_EQ(Lines(log.end() - 3, log.end()),
            (Lines{"Start WaitBootMode", kSighted, "WaitBootMode-Multi Boot Device Error"}));
  EXPECT_EQ(EventCount(254), 254);
}

TEST_F(UpgradeTest, ASightingLostStartsTheCountAgainAndTenMismatchesEndTheRepeats) {
  sim::Mouse mouse;
  mouse.PlugInBootMode();
  mouse.boot_faults().EchoDiffers(sim::Next(10));
  // Seen at 210 and 420 ms, gone at 630 ms.
  platform::ScheduleIn(500'000, [&mouse] { mouse.Unplug(); });
  platform::ScheduleIn(700'000, [&mouse] { mouse.PlugInBootMode(); });
  ASSERT_TRUE(RunUpgrade(FileFor(mouse)));
  EXPECT_EQ(mouse.CountRequests(0xB1), 10u);
  EXPECT_EQ(events.back(), (Event{2, 2, 3, 0}));
  const Lines log = ThreadLog();
  EXPECT_EQ(std::ranges::count(log, kSighted), 5);
  EXPECT_EQ(Lines(log.end() - 2, log.end()), (Lines{"Repeat timeout", "Upgrade Timeout"}));
}

// The lines that tell the order of devices and steps.
Lines Milestones() {
  Lines lines;
  for (const std::string& line : ThreadLog()) {
    for (const char* start : {"Main and", "Start Upgrade", "Start Reset", "Start Wait",
                              "Start Down", "Upgrade One", "All Up", "ResetToBootMode-TimeOut"})
      if (line.starts_with(start)) lines.push_back(line);
  }
  return lines;
}
const Lines kSteps = {"Start ResetToBootMode-waitNormal-0", "Start WaitBootMode",
                      "Start DownloadFile"};
const Lines kBoth = {"Start Upgrade Thread ", "Main and Slave Mode,totalPacketCount = 210"};

class SetTest : public UpgradeTest {
 protected:
  sim::Mouse main_;
  sim::Mouse slave_{OtherMouse()};
  const sim::Bytes file_ = sim::UpgradeFileBuilder(sim::ImageFor(main_, NewFirmware()))
                               .Slave(sim::ImageFor(slave_, NewFirmware()))
                               .Build();
};

TEST_F(SetTest, SlaveInNormalModeGoesFirst) {
  main_.Plug();
  slave_.Plug();
  ASSERT_TRUE(RunUpgrade(file_));
  EXPECT_EQ(Milestones(), kBoth + Lines{"Start Upgrade Slave "} + kSteps +
                              Lines({"Upgrade One Device OK", "Start Upgrade Main "}) + kSteps +
                              Lines{"All Upgrade Success"});
  // The second device goes on from the first one's progress, with no percentage sent of its own.
  EXPECT_EQ(events, Events{kResetEchoed} + Progress(1, 84, 210) + Events{kBootStable} + kReady +
                        Progress(85, 88, 210, 40) + kDeviceEnd + Events{kResetEchoed} +
                        Progress(89, 172, 210) + Events{kBootStable} + kReady +
                        Progress(173, 176, 210, 81) + kDeviceEnd + kSuccess);
  EXPECT_EQ(main_.firmware().options().version, kNewVersion);
  EXPECT_EQ(slave_.firmware().options().version, kNewVersion);
}

TEST_F(SetTest, MainInBootModeGoesFirstAndTheSlaveIsAwaited) {
  main_.PlugInBootMode();
  main_.OnModeChange([this](sim::Mode mode) {
    if (mode == sim::Mode::kNormal) slave_.Plug();
  });
  ASSERT_TRUE(RunUpgrade(file_));
  EXPECT_EQ(Milestones(), kBoth + Lines{"Start Upgrade Main Boot"} + kSteps +
                              Lines({"Upgrade One Device OK", "Start Upgrade Slave",
                                     "Start ResetToBootMode-waitNormal-1", "Start WaitBootMode",
                                     "Start DownloadFile", "All Upgrade Success"}));
  EXPECT_EQ(events, Progress(1, 63, 210) + Events{kBootStable} + kReady +
                        Progress(64, 67, 210, 30) + kDeviceEnd + Progress(68, 130, 210) +
                        Events{kResetEchoed} + Progress(131, 214, 210, 61) + Events{kBootStable} +
                        kReady + Progress(215, 218, 210, 101) + kDeviceEnd + kSuccess);

  // A slave that never comes: limit 5, so the sixth cycle gives up.
  slave_.Unplug();
  main_.Unplug();
  main_.PlugInBootMode();
  main_.OnModeChange(nullptr);
  ASSERT_TRUE(RunUpgrade(file_, 599));
  EXPECT_EQ(events.back(), (Event{2, 6, 1, 0}));
  EXPECT_EQ(Milestones().back(), "ResetToBootMode-TimeOut-5");
}

TEST_F(SetTest, AFailureOfTheFirstEndsBoth) {
  main_.Plug();
  slave_.Plug();
  slave_.boot_faults().Silence();
  ASSERT_TRUE(RunUpgrade(file_));
  EXPECT_EQ(WithoutProgress(), (Events{kResetEchoed, kBootStable, {2, 2, 3, 0}}));
}

TEST_F(SetTest, EndsThatHaveNoEvent) {
  main_.Plug();
  ASSERT_TRUE(RunUpgrade(file_));
  EXPECT_EQ(ThreadLog(), kBoth);
  EXPECT_EQ(events, Events{});
  EXPECT_FALSE(UsbUpgrade_Start(nullptr, RecordEvent, 2000));
  // Nothing of the set is left for the next upgrade.
  ASSERT_TRUE(RunUpgrade(FileFor(main_)));
  EXPECT_EQ(events.back(), kSucceeded);
}

TEST_F(SetTest, ASearchThatFailsIsRepeatedForASecond) {
  main_.Plug();
  slave_.Plug();
  for (const char* search : {"SetupDiGetClassDevsW", "SetupDiEnumDeviceInterfaces"}) {
    for (uint64_t nth = 1; nth <= 6; ++nth) {
      platform::ArmFault(search, nth);
      ASSERT_TRUE(RunUpgrade(file_));
      platform::DisarmFault();
      EXPECT_EQ(events.back(), kSucceeded) << search << nth;
    }
  }
  platform::ArmFault("SetupDiGetClassDevsW", 1, true);
  ASSERT_TRUE(RunUpgrade(file_));
  platform::DisarmFault();
  EXPECT_EQ(events, (Events{{2, 2, 4, 0}}));
  EXPECT_EQ(ThreadLog().back(), "Upgrade broken off");
}

TEST_F(SetTest, ASecondStartChangesNothing) {
  main_.Plug();
  main_.boot_faults().AnswerAfter({1, 4, {}}, 700'000);  // together longer than the limit for each
  int calls = 0;
  on_event = [&](const Event& event) {
    ++calls;
    const Lines before = RawLog();
    EXPECT_FALSE(UsbUpgrade_Start(file_.data(), nullptr, 1));
    EXPECT_EQ(RawLog(), before);
    if (event == kSucceeded) Sleep(50);
  };
  const sim::Bytes file = FileFor(main_);
  EXPECT_TRUE(CS_UsbUpgrade_Start(file.data(), RecordEvent, 2000));
  EXPECT_FALSE(UsbUpgrade_Start(file_.data(), RecordEvent, 2000));
  // Whoever has heard of the end may start again at once, even while the callback hears of it.
  while (events.empty() || events.back() != kSucceeded)
    Sleep(1);
  EXPECT_GT(calls, 10);
  EXPECT_TRUE(UsbUpgrade_Start(file_.data(), nullptr, 2000));
}

}  // namespace
}  // namespace perilink::testing
