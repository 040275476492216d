#include "battery/voltage_table.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <vector>

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
  VoltageTable falling, close;
  for (size_t i = 0; i < kVoltagePoints; ++i) {
    falling[i] = 4100 - 50 * static_cast<int>(i);
    close[i] = 3700 + 9 * static_cast<int>(i);  // nine steps of 1 mV where five are wanted
  }
  std::vector<VoltageTable> tables = {falling, close};
  for (const int value : {0, 3700, 65536, INT_MIN, INT_MAX}) {
    tables.emplace_back().fill(value);
    tables.emplace_back(tables.back())[20] = INT_MAX;
  }
  std::mt19937 random(1);
  for (int i = 0; i < 200; ++i)
    for (int32_t& point : tables.emplace_back())
      point = static_cast<int32_t>(random() % 5000);
  for (const VoltageTable& table : tables)
    for (int voltage = 0; voltage <= 0xFFFF; voltage += voltage < 5000 ? 1 : 251)
      ASSERT_LE(VoltageToPercent(table, static_cast<uint16_t>(voltage), 0), 100);
  EXPECT_EQ(VoltageToPercent(close, 3700 + 9 * 20 - 1, 0), 100);
  EXPECT_EQ(VoltageToPercent(falling, 3000, 0), 1);
}

}  // namespace
}  // namespace perilink
