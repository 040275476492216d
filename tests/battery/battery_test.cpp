// The voltage table, the saved record, and the optimiser's steps.
#include <gtest/gtest.h>

#include <climits>
#include <numeric>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "battery/battery_steps.h"
#include "battery/registry_fixture.h"
#include "battery/saved_record.h"
#include "battery/voltage_table.h"
#include "perilink/battery.h"
#include "perilink/protocol.h"
#include "sim/mouse.h"

namespace perilink {
namespace {

TEST(VoltageTable, DefaultTable) {
  struct {
    uint16_t voltage;
    uint8_t flag;
    int percent;
  } const cases[] = {
      {0, 0, 1},     {3000, 0, 1},   {3050, 0, 1},      {3419, 0, 4},  {3420, 0, 5},
      {3500, 0, 11}, {3539, 0, 14},  {3540, 0, 16},     {3564, 0, 17}, {3700, 0, 28},
      {4079, 1, 94}, {4080, 0, 95},  {4109, 0, 99},     {4109, 1, 99}, {4110, 0, 100},
      {4110, 1, 99}, {4110, 2, 100}, {65535, 255, 100},
  };
  for (const auto& c : cases)
    EXPECT_EQ(VoltageToPercent(kDefaultVoltages, c.voltage, c.flag), c.percent)
        << c.voltage << " mV, flag " << int{c.flag};
}

// Hosts can set any table at all.
TEST(VoltageTable, NoTableYieldsMoreThanFull) {
  VoltageTable falling, close, wild;
  for (size_t i = 0; i < kVoltagePoints; ++i) {
    falling[i] = 4100 - 50 * static_cast<int>(i);
    close[i] = 3700 + 9 * static_cast<int>(i);  // nine steps of 1 mV where five are wanted
    wild[i] = i % 2 == 0 ? INT_MIN : INT_MAX;
  }
  for (const VoltageTable& table : {falling, close, wild})
    for (int voltage = 0; voltage <= 0xFFFF; ++voltage)
      ASSERT_LE(VoltageToPercent(table, static_cast<uint16_t>(voltage), 0), 100);
  EXPECT_EQ(VoltageToPercent(close, 3700 + 9 * 20 - 1, 0), 100);
  EXPECT_EQ(VoltageToPercent(close, 3700 + 9 * 10, 0), 50);
  EXPECT_EQ(VoltageToPercent(falling, 3000, 0), 1);
}

// ---- The saved record, which the fuzz targets read ----------------------------------------------

constexpr DeviceAddress kDevice = {0x1A, 0x2B, 0x3C};

using SavedRecordTest = RegistryTest;

TEST_F(SavedRecordTest, WritesBothHalvesOfTheTime) {
  WriteSavedRecord(kDevice, (int64_t{3} << 32) + 12, 9);
  EXPECT_EQ(RawRecord(), L"312-9");
  EXPECT_EQ(ReadSavedRecord({0x1A, 0x2B, 0x3D}).level, 100);
}

// ---- The optimiser ------------------------------------------------------------------------------

constexpr DeviceAddress kAddress = {0x1A, 0x2B, 0x3C};  // of the virtual mouse
constexpr int64_t kToday = 1700000000;
constexpr uint32_t kPassMs = 50;

using sim::Bytes;
struct Report {
  double at_ms;
  Bytes frame;
  Bytes data;
};
std::vector<Report> reports;

void PERILINK_CALL Record(const uint8_t* frame, uint32_t frame_length, const uint8_t* data,
                          uint32_t data_length) {
  reports.push_back({static_cast<double>(GetTickCount64()),
                     {frame, frame + frame_length},
                     {data, data + data_length}});
}
ServerReportCallback Recording() {
  return &Record;
}

class OptimizerTest : public RegistryTest {
 protected:
  OptimizerTest() {
    platform::SetCalendarTime(kToday);
    mouse.Plug();
    Show(50);
    optimizer.Connect(mouse.CommandPath());
  }
  // Passes of the server's loop, as far as they concern the battery.
  void RunFor(uint64_t duration_ms) {
    for (const uint64_t end = GetTickCount64() + duration_ms; GetTickCount64() < end;) {
      Sleep(kPassMs);
      optimizer.Drive(&Recording);
    }
  }

  // Polls a connection that starts with this level on show.
  void StartAt(uint8_t level) {
    UsbServer_SetBatteryOptimizeLastBattery(0, level);
    optimizer.Restart();
    ASSERT_EQ(steps.Poll(), level);
  }
  static Bytes Levels() {
    Bytes levels;
    for (const Report& report : reports)
      levels.push_back(report.data[0]);
    return levels;
  }

  // What the device answers from now on.
  void Show(uint8_t level, uint8_t charging = 0, uint16_t voltage = 0) {
    mouse.battery().Fix({level, charging, voltage});
  }
  // The level on show after a poll that finds this.
  int Poll(uint8_t level, uint8_t charging = 0, uint16_t voltage = 0) {
    Show(level, charging, voltage);
    return steps.Poll();
  }
  size_t Polls() const { return mouse.CountRequests(sim::command::kBattery); }

  sim::Mouse mouse;
  BatterySteps steps;
  BatteryOptimizer& optimizer = steps.optimizer;
};

TEST(IntervalTimer, NeedsALaterMillisecond) {
  EXPECT_FALSE((IntervalTimer{true, 1000, 0}.Due(1000)));
  EXPECT_TRUE((IntervalTimer{true, 1000, 0}.Due(1001)));
  EXPECT_FALSE((IntervalTimer{true, 1000, 50}.Due(1049)));
  EXPECT_TRUE((IntervalTimer{true, 1000, 50}.Due(1050)));
  EXPECT_FALSE((IntervalTimer{true, 1000, 0}.Due(999)));
  EXPECT_FALSE((IntervalTimer{false, 1000, 0}.Due(2000)));
}

TEST_F(OptimizerTest, StartEstimate) {
  const struct {
    int age_s;
    uint8_t last, level;
    uint16_t voltage;
    int start;
  } cases[] = {
      {600, 50, 70, 0, 66},   {600, 50, 30, 0, 42}, {600, 50, 55, 0, 50},   {600, 50, 66, 0, 50},
      {600, 50, 42, 0, 50},   {59, 50, 99, 0, 50},  {0, 50, 1, 0, 50},      {60, 50, 99, 0, 51},
      {60, 50, 1, 0, 50},     {72, 50, 1, 0, 49},   {1800, 50, 100, 0, 50}, {1799, 50, 101, 0, 100},
      {1800, 10, 0, 0, 10},   {1800, 30, 1, 0, 5},  {1801, 50, 7, 0, 7},    {1801, 50, 7, 3700, 28},
      {600, 50, 7, 3700, 42}, {-2, 50, 7, 0, 7},    {-1000, 50, 7, 0, 7}};
  for (const auto& c : cases) {
    for (const bool by_host : {false, true}) {
      WriteSavedRecord(kAddress, kToday - c.age_s, by_host ? 1 : c.last);
      if (by_host) UsbServer_SetBatteryOptimizeLastBattery(c.age_s, c.last);
      EXPECT_EQ(Poll(c.level, 0, c.voltage), c.start) << c.age_s << " s, by the host: " << by_host;
      EXPECT_EQ(steps.SaveAllowed(), !by_host);
      optimizer.EndConnection();
    }
  }
}

TEST_F(OptimizerTest, FirstReportComesRightAfterTheFirstPollAndSaves) {
  Show(50, 2, 0x0E74);
  RunFor(2 * kPassMs);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].frame, (Bytes{8, 4, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x49}));
  EXPECT_EQ(reports[0].data, (Bytes{28, 2, 0x0E, 0x74}));
  EXPECT_EQ(RawRecord(), L"01700000000-28");
}

TEST_F(OptimizerTest, DischargesOnePercentAStep) {
  StartAt(60);
  Show(40);
  RunFor(3600 * 1000);
  Bytes falling(20);
  std::iota(falling.rbegin(), falling.rend(), uint8_t{40});
  ASSERT_EQ(Levels(), falling);
  for (size_t i = 0; i < reports.size(); ++i)
    EXPECT_NEAR(reports[i].at_ms - reports[0].at_ms, 10000.0 * static_cast<double>(i), 500);
  reports.clear();
  for (const uint8_t level : Bytes{90, 15, 0}) {  // a level does not rise off the charger
    Show(level);
    RunFor(30 * 1000);
  }
  EXPECT_EQ(Levels(), (Bytes{15, 0}));
}

TEST_F(OptimizerTest, ChargesSlowlyWhenNearlyFull) {
  Show(70, 1, 4110);
  StartAt(82);
  RunFor(2 * 3600 * 1000);
  Bytes rising(17);
  std::iota(rising.begin(), rising.end(), uint8_t{83});
  ASSERT_EQ(Levels(), rising);
  // 83, 84 and 85 come a step apart; from there on the charge creeps.
  EXPECT_NEAR(reports[2].at_ms - reports[0].at_ms, 20000, 4 * kPassMs);
  EXPECT_NEAR(reports[3].at_ms - reports[2].at_ms, 10000, 2 * kPassMs);
  EXPECT_NEAR(reports[4].at_ms - reports[3].at_ms, 300000, 2 * kPassMs);

  Show(70, 1, 4079);  // 94 percent: neither nearly full nor more than 10 ahead
  StartAt(84);
  RunFor(60 * 1000);
  EXPECT_EQ(steps.Level(), 84);
}

TEST_F(OptimizerTest, FullAfterTenFullReadingsInARow) {
  const auto step = [this](uint8_t level, uint8_t charging) {
    Poll(level, charging);
    Sleep(600 * 1000);
    steps.Smooth(&Recording);
  };
  Show(100, 1);
  StartAt(50);
  // Readings that break the row: almost full, and off the charger.
  const std::pair<uint8_t, uint8_t> tenth_readings[] = {{99, 1}, {100, 0}, {100, 1}};
  for (const auto& [level, charging] : tenth_readings) {
    reports.clear();
    for (int i = 0; i < 9; ++i)
      step(100, 1);
    EXPECT_TRUE(reports.empty());
    step(level, charging);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(Levels()[0] == 100, level == 100 && charging != 0);
  }
}

TEST_F(OptimizerTest, FullReadingsFollowEachOtherQuickly) {
  Show(100, 1);
  StartAt(50);
  const size_t polls = Polls();
  RunFor(2 * kPassMs);
  EXPECT_EQ(steps.PollMs(), 100u);
  EXPECT_EQ(steps.SmoothingMs(), 100u);
  RunFor(1200);
  EXPECT_EQ(Levels(), (Bytes{100}));
  EXPECT_GE(Polls() - polls, 8u);
  RunFor(3600 * 1000);  // nothing hurries any more
  EXPECT_EQ(Levels(), (Bytes{100}));
  EXPECT_LE(Polls() - polls, 740u);
}

TEST_F(OptimizerTest, EventsPollAtOnceAndForceTheLevel) {
  EXPECT_EQ(optimizer.NextDueMs(), GetTickCount64() + 1);
  StartAt(40);
  optimizer.SetDriverStatus(false);
  const std::tuple<uint8_t, uint8_t, Bytes> readings[] = {
      {16, 0, {}},   {15, 0, {15}}, {12, 0, {}},  // no higher than 15 now
      {12, 1, {15}},                              // the charger is news
      {0, 1, {0}},   {0, 1, {0}},   {100, 1, {}}};
  for (const auto& [level, charging, reported] : readings) {
    reports.clear();
    Show(level, charging);
    EXPECT_EQ(optimizer.TakeEvent(0x41, &Recording), 0x01);
    EXPECT_EQ(Levels(), reported) << int{level};
    EXPECT_EQ(steps.PollMs(), level == 100 ? 100u : 5000u) << int{level};
  }
}

TEST_F(OptimizerTest, JumpsOverLargeDifferencesIfAllowed) {
  StartAt(80);
  EXPECT_EQ(Poll(49), 80);
  UsbServer_SetBatteryOptimizeParam(0x10, 10000, 300000);
  EXPECT_EQ(Poll(50), 80);
  EXPECT_EQ(Poll(49), 49);
}

TEST_F(OptimizerTest, FailedPollsKeepTheLevelAndEndSmoothing) {
  StartAt(60);
  uint8_t charging = 0;
  for (const uint8_t unanswered : {sim::command::kOnLine, sim::command::kBattery}) {
    mouse.faults().Ignore(sim::Always().For(unanswered));
    reports.clear();
    RunFor(60 * 1000);
    EXPECT_FALSE(steps.Active());
    EXPECT_FALSE(steps.Armed());
    EXPECT_EQ(steps.Level(), 60);
    EXPECT_TRUE(reports.empty());
    mouse.faults().Heal();
    charging ^= 1;
    Show(70, charging);
    RunFor(6 * 1000);
    EXPECT_TRUE(steps.Active());
    EXPECT_EQ(reports.size(), 1u);
  }
}

TEST_F(OptimizerTest, AForcedLevelBeginsANewStep) {
  StartAt(40);
  Show(38);
  RunFor(5'000);
  Show(12);
  EXPECT_EQ(optimizer.TakeEvent(0x40, &Recording), std::nullopt);
  reports.clear();
  RunFor(9'500);
  EXPECT_TRUE(reports.empty());
  RunFor(1'000);
  EXPECT_EQ(Levels(), (Bytes{14}));
}

// While a poll talks to the device the host's driver goes, and later comes back.
TEST_F(OptimizerTest, DriverStatusCountsDuringAStep) {
  StartAt(60);
  Show(30);
  mouse.faults().OnRequest([this](sim::Exchange&) { optimizer.SetDriverStatus(false); },
                           sim::At(1));
  RunFor(6'000);
  reports.clear();
  const size_t polls = Polls();
  RunFor(60'000);
  EXPECT_TRUE(reports.empty());
  EXPECT_EQ(Polls(), polls);
  optimizer.SetDriverStatus(true);
  RunFor(60'000);
  EXPECT_EQ(Levels(), (Bytes{59, 58, 57, 56, 55, 54}));
}

TEST_F(OptimizerTest, ConnectionsSaveAtTheirEnd) {
  mouse.faults().Silence();
  steps.Poll();
  optimizer.EndConnection();
  EXPECT_EQ(RawRecord(L"BatteryValue_000000"), L"01700000000-0");

  mouse.faults().Heal();
  steps.Poll();
  steps.SetLevel(44);
  UsbServer_SetBatteryOptimizeEnable(0);
  optimizer.EndConnection();
  EXPECT_EQ(RawRecord(), L"");
  UsbServer_SetBatteryOptimizeEnable(1);
  const size_t polls = Polls();
  optimizer.SetDriverStatus(true);
  optimizer.EndConnection();
  EXPECT_EQ(RawRecord(), L"01700000000-44");
  RunFor(10'000);
  EXPECT_EQ(Polls(), polls);

  // With the host's own records in use the registry stays as it is, until the next connection.
  StartAt(70);
  steps.Report(70, &Recording, true);
  optimizer.EndConnection();
  EXPECT_EQ(RawRecord(), L"01700000000-44");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Poll(50), 44);
    EXPECT_TRUE(steps.SaveAllowed());
    optimizer.Restart();
  }
}

TEST_F(OptimizerTest, HostTableLastsOneConnection) {
  uint32_t table[kVoltagePoints];
  for (uint32_t i = 0; i < kVoltagePoints; ++i)
    table[i] = 1000 + 100 * i;
  UsbServer_SetBatteryOptimizeSection(table);
  for (const int level : {52, 52, 1}) {
    if (level == 1) optimizer.EndConnection();
    SetRawRecord(L"");
    optimizer.Restart();
    EXPECT_EQ(Poll(9, 0, 2050), level);
  }
}

}  // namespace
}  // namespace perilink
