#include <gtest/gtest.h>

#include <vector>

#include "server_fixture.h"

#include "perilink/finder.h"
#include "perilink/protocol_data.h"

namespace perilink::testing {
namespace {

class ConfigUpdate : public ServerTest {
 protected:
  ConfigUpdate() {
    previous.report_rate = 1;
    previous.current_dpi_level = 2;
  }
  std::vector<QueueEntry> Compare(ProtocolData record) {
    ServerState::Instance().LockQueues().commands.Clear();
    CS_ProtocolDataCompareUpdate(&record, &previous);
    return QueuedEntries();
  }

  ProtocolData previous{};
};

TEST_F(ConfigUpdate, QueuesOneEntryForOneField) {
  for (const bool keyboard : {false, true}) {
    SetKeyboardTargetFlag(keyboard);
    previous.current_dpi_level = 2;
    ProtocolData record = previous;
    record.current_dpi_level = 3;
    const std::vector<QueueEntry> entries = Compare(record);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].last_chunk, 1);
    EXPECT_EQ(entries[0].pending, 1);
    EXPECT_EQ(entries[0].continuation, 0xFF);
    Report expected = {8, 7, 0, 0, 4, 2, 3, 0x52, 0, 0, 0, 0, 0, 0, 0, 0, 0xEB};
    if (keyboard) expected[5] = 0x82, expected[16] = 0x6B;
    EXPECT_EQ(BytesOf(entries[0].frame), expected);
    EXPECT_EQ(previous.current_dpi_level, 3);
  }
}

TEST_F(ConfigUpdate, LongWritesAreCutIntoFramesOfTen) {
  ProtocolData record = previous;
  record.shortcuts[1].count = 6;  // 20 bytes: two whole frames
  record.macros[2].name_length = 1;
  record.macros[2].count = 70;  // 383 bytes
  const std::vector<QueueEntry> entries = Compare(record);
  ASSERT_EQ(entries.size(), 2u + 39);
  for (size_t i = 0; i < entries.size(); ++i) {
    const size_t address = i < 2 ? 256 + 32 + 10 * i : 768 + 2 * 384 + 10 * (i - 2);
    EXPECT_EQ(entries[i].frame.address_high, address >> 8) << i;
    EXPECT_EQ(entries[i].frame.address_low, address & 0xFF) << i;
    EXPECT_EQ(entries[i].frame.length, i == 40 ? 3 : 10) << i;
    EXPECT_EQ(entries[i].last_chunk, i == 1 || i == 40) << i;
    EXPECT_EQ(FrameChecksum(entries[i].frame), entries[i].frame.checksum) << i;
  }
}

TEST_F(ConfigUpdate, EqualRecordsAndUnparsedOnesQueueNothing) {
  // With QueueMutex taken: it must not be asked for.
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  ProtocolData record = previous;
  CS_ProtocolDataCompareUpdate(&record, &previous);
  SetDllProtocolData(&previous);
  record.report_rate = 7;
  ProtocolDataUpdate(&record);  // nothing has been parsed
  EXPECT_TRUE(queues.commands.Empty());
}

}  // namespace
}  // namespace perilink::testing
