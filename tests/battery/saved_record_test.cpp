#include "battery/saved_record.h"

#include <gtest/gtest.h>

#include <string>

#include "battery/registry_fixture.h"

namespace perilink {
namespace {

constexpr DeviceAddress kDevice = {0x1A, 0x2B, 0x3C};

TEST(SavedRecord, Parses) {
  struct {
    std::wstring text;
    uint32_t time;
    int level;
  } const cases[] = {
      {L"01700000000-85", 1700000000, 85},
      {L"-7", 0, 7},
      {L"-", 0, 0},
      {L"1-300", 1, 300 - 256},
      // Numbers of any length wrap; 10^20 is 1661992960 modulo 2^32.
      {L"100000000000000000000-1", 1661992960, 1},
      {L"14-" + std::wstring(200, L'0') + L"9", 14, 9},
      // Everything else counts as no record.
      {L"", 0, 100},
      {L"85", 0, 100},
      {L"1-2-3", 0, 100},
      {L"1--2", 0, 100},
      {L" 1-2", 0, 100},
      {L"0x1-2", 0, 100},
      {L"\u0661-2", 0, 100},
  };
  for (const auto& c : cases) {
    const SavedRecord record = ParseSavedRecord(c.text);
    EXPECT_EQ(record.time, c.time) << testing::PrintToString(c.text);
    EXPECT_EQ(record.level, c.level) << testing::PrintToString(c.text);
  }
}

using SavedRecordTest = RegistryTest;

TEST_F(SavedRecordTest, WritesBothHalvesOfTheTimeAndBoundsWhatItReads) {
  EXPECT_EQ(ReadSavedRecord(kDevice).level, 100);  // neither key nor value yet
  WriteSavedRecord(kDevice, (int64_t{3} << 32) + 12, 9);
  EXPECT_EQ(RawRecord(), L"312-9");
  EXPECT_EQ(ReadSavedRecord(kDevice).time, 312u);
  EXPECT_EQ(ReadSavedRecord({0x1A, 0x2B, 0x3D}).level, 100);

  const std::wstring full = std::wstring(253, L'0') + L"-42";
  SetRawRecord(full);  // fills the buffer to its last character, without an end
  EXPECT_EQ(ReadSavedRecord(kDevice).level, 42);
  SetRawRecord(L"0" + full);
  EXPECT_EQ(ReadSavedRecord(kDevice).level, 100);
  SetRawRecord(std::wstring(L"1-2\0-3", 6));
  EXPECT_EQ(ReadSavedRecord(kDevice).level, 2);
}

}  // namespace
}  // namespace perilink
