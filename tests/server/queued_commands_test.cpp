#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "battery/optimizer.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "queueing_exports.h"
#include "server_fixture.h"

namespace perilink::testing {
namespace {

class QueuedCommands : public ServerTest {
 protected:
  // The entries that a call queues.
  std::vector<Report> Queue(const std::function<void()>& call) {
    ServerState::Instance().LockQueues().commands.Clear();
    call();
    std::vector<Report> entries;
    for (const QueueEntry& entry : QueuedEntries()) {
      entries.push_back({entry.last_chunk, entry.pending, entry.continuation});
      entries.back() += BytesOf(entry.frame);
    }
    return entries;
  }
  // An entry as the device's protocol has it, written out here once more.
  static Report Entry(Report header, Report frame) { return header += Closed(std::move(frame)); }
};

TEST_F(QueuedCommands, QueueTheirFrames) {
  for (const bool keyboard : {false, true}) {
    keyboard ? UsbFinder_SetKeyboardMode() : UsbFinder_SetMouseMode();
    const uint8_t target = keyboard ? 0x80 : 0;
    for (const QueueingExports& row : kQueueingExports) {
      Report frame = {8, row.command, 0, 0, 0, static_cast<uint8_t>(row.length | target)};
      frame += row.payload;
      for (const auto& call : row.exports)
        EXPECT_EQ(Queue(call), std::vector<Report>{Entry({1, 1, 0}, frame)})
            << row.name << keyboard;
    }
  }
  UsbFinder_SetKeyboardMode();
  EXPECT_EQ(Queue([] { UsbServer_ReadOnLine(); })[0].back(), 0xCA);
  EXPECT_EQ(Queue([] { UsbServer_SetData(0x77, kRecord.bytes, 11); }).size(), 0u);
}

// A request has room for all its frames or is refused; only a full read, whose step this is, goes
// on.
TEST_F(QueuedCommands, TheLimitCutsNoRequest) {
  auto queues = ServerState::Instance().LockQueues();
  CommandQueue& queue = queues.commands;
  const std::vector<QueueEntry> entries(kQueueLimit - 1);
  const std::span<const QueueEntry> two = std::span(entries).first(2);
  queue.Append(entries);
  EXPECT_THROW(queue.Append(two), QueueFull);
  EXPECT_EQ(queue.Size(), kQueueLimit - 1);
  int someone;
  const std::shared_ptr<perilink::FlashRead> reader(
      std::shared_ptr<int>(), reinterpret_cast<perilink::FlashRead*>(&someone));
  queue.Append(two, reader);
  EXPECT_EQ(queue.Size(), kQueueLimit + 1);
  EXPECT_THROW(queue.Append(two.first(1)), QueueFull);
}

// Of a queue that is full, too.
TEST_F(QueuedCommands, TheDriversEndStopsThePolls) {
  UsbServer_SetBatteryOptimizeEnable(1);
  UsbServer_SetPCDriverStatus(1);
  EXPECT_NE(BatteryOptimizer::Instance().NextDueMs(), UINT64_MAX);
  const std::vector<QueueEntry> rest(kQueueLimit - QueuedEntries().size());
  ServerState::Instance().Append(rest);
  UsbServer_SetPCDriverStatus(0);
  EXPECT_EQ(BatteryOptimizer::Instance().NextDueMs(), UINT64_MAX);
}

TEST_F(QueuedCommands, DeviceInfoCarriesAChallengeOfTheSecond) {
  platform::SetCalendarTime(77);
  srand(77);
  Report frame = {8, 1, 0, 0, 0, 8};
  for (int i = 0; i < 4; ++i)
    frame.push_back(static_cast<uint8_t>(rand() % 256));
  const std::vector<Report> expected{Entry({1, 1, 0}, frame)};
  EXPECT_EQ(Queue([] { UsbServer_ReadEncryption(); }), expected);
  EXPECT_EQ(Queue([] { CS_UsbServer_ReadEncryption(); }), expected);
}

TEST_F(QueuedCommands, HostEntriesStayAsTheyAre) {
  QueueEntry entry;
  std::memset(&entry, 0xEE, sizeof(entry));
  UsbServer_InitWriteCommand(&entry);
  Report blank(20, 0);
  blank[0] = blank[1] = 1;
  EXPECT_EQ(Queue([&] { UsbServer_WriteCommand(&entry); }), std::vector<Report>{blank});
}

TEST_F(QueuedCommands, MemoryReadsAreCutIntoFrames) {
  const auto frame = [](uint16_t address, uint8_t length) {
    return Report{8,     8, 0, static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address),
                  length};
  };
  EXPECT_EQ(
      Queue([] { UsbServer_ReadFalshData(0x10FFA, 25, 3); }),
      (std::vector<Report>{Entry({0, 1, 3}, frame(0x0FFA, 10)), Entry({0, 1, 3}, frame(0x1004, 10)),
                           Entry({1, 1, 3}, frame(0x100E, 5))}));
  EXPECT_EQ(Queue([] { CS_UsbServer_ReadFalshData(0, 20); }).back(),
            Entry({1, 1, 0}, frame(10, 10)));
  for (const int32_t length : {0, INT32_MIN, 8191, INT32_MAX})
    EXPECT_EQ(Queue([&] { UsbServer_ReadFalshData(0, length, 0); }).size(), 0u) << length;
  EXPECT_EQ(Queue([] { UsbServer_ReadFalshData(0, 8190, 0); }).size(), 819u);

  const std::vector<std::pair<void (*)(), Report>> short_reads = {
      {UsbServer_ReadReportRate, frame(0, 1)},
      {UsbServer_ReadCurrentDPI, frame(4, 1)},
      {UsbServer_ReadDPILed, frame(0x4C, 8)},
      {UsbServer_ReadLedBar, frame(0xA0, 9)}};
  for (const auto& [read, expected] : short_reads)
    EXPECT_EQ(Queue(read), std::vector<Report>{Entry({1, 1, 0}, expected)});
}

TEST_F(QueuedCommands, DescriptorStringIsCutIntoChunks) {
  // Length of the text, and what its chunks declare: total, then each length.
  const std::vector<std::pair<size_t, Report>> rows = {{0, {1, 1}},
                                                       {9, {10, 10}},
                                                       {10, {11, 10, 1}},
                                                       {29, {30, 10, 10, 10}},
                                                       {200, {30, 10, 10, 10}}};
  for (const auto& [length, declared] : rows) {
    const std::string text(length, 'x');
    std::vector<Report> expected;
    for (size_t i = 1; i < declared.size(); ++i) {
      const size_t offset = 10 * (i - 1);
      Report frame = {8, 0x0C, 0, declared[0], static_cast<uint8_t>(offset), declared[i]};
      frame += text.substr(offset, declared[i]);
      expected.push_back(Entry({uint8_t{i + 1 == declared.size()}, 1, 0}, frame));
    }
    EXPECT_EQ(Queue([&] { UsbServerC_SetDeviceDescriptorString(text.c_str()); }), expected);
    EXPECT_EQ(
        Queue([&] { UsbServer_SetDeviceDescriptorString(std::wstring(text.begin(), text.end())); }),
        expected);
  }
}

TEST_F(QueuedCommands, DecodersReadTheirBytes) {
  const uint8_t data[] = {0x85, 0x23, 0x0F, 0xA0, 5, 6, 7};
  DeviceInfo info;
  GetDeviceInfo(data, &info);
  EXPECT_EQ(Report(info.bytes, info.bytes + 3), (Report{5, 6, 7}));
  BatteryLevel battery;
  GetDeviceBatteryStatus(data, &battery);
  EXPECT_EQ(battery.level, 0x85);
  EXPECT_EQ(battery.charging, 0x23);
  EXPECT_EQ(battery.voltage, 4000);
  DeviceStatus status;
  GetDeviceStatusChanged(data, &status);
  EXPECT_EQ(Report(status.flags, status.flags + 7), (Report{1, 0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(GetDeviceVersion(data), 0x8523u);
  EXPECT_TRUE(isDeviceOnLine(data));
}

// ---- What changes of the configuration become
// -----------------------------------------------------

TEST_F(QueuedCommands, AnUpdateQueuesTheFieldThatDiffers) {
  ProtocolData previous{};
  for (const bool keyboard : {false, true}) {
    SetKeyboardTargetFlag(keyboard);
    ProtocolData record = previous;
    const uint8_t level = ++record.current_dpi_level;
    const auto update = [&] { CS_ProtocolDataCompareUpdate(&record, &previous); };
    Report frame = {8, 7, 0, 0, 4, uint8_t(keyboard ? 0x82 : 2), level, uint8_t(0x55 - level)};
    EXPECT_EQ(Queue(update), std::vector<Report>{Entry({1, 1, 0xFF}, frame)});
    EXPECT_EQ(previous.current_dpi_level, level);
  }
}

TEST_F(QueuedCommands, AnUpdatesLongWritesAreCutIntoFramesOfTen) {
  ProtocolData previous{};
  ProtocolData record{};
  record.shortcuts[1].count = 6;  // 20 bytes: two whole frames
  record.macros[2].name_length = 1;
  record.macros[2].count = 70;  // 383 bytes
  const std::vector<Report> entries =
      Queue([&] { CS_ProtocolDataCompareUpdate(&record, &previous); });
  ASSERT_EQ(entries.size(), 2u + 39);
  for (size_t i = 0; i < entries.size(); ++i) {
    const size_t address = i < 2 ? 256 + 32 + 10 * i : 768 + 2 * 384 + 10 * (i - 2);
    const Report frame(entries[i].begin() + 3, entries[i].end());
    EXPECT_EQ(entries[i][0], i == 1 || i == 40) << i;
    EXPECT_EQ(frame[3] << 8 | frame[4], address) << i;
    EXPECT_EQ(frame[5], i == 40 ? 3 : 10) << i;
    EXPECT_EQ(Closed(frame), frame) << i;
  }
}

TEST_F(QueuedCommands, EqualRecordsAndUnparsedOnesQueueNothing) {
  // With QueueMutex taken: it must not be asked for.
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  ProtocolData previous{};
  ProtocolData record{};
  CS_ProtocolDataCompareUpdate(&record, &previous);
  SetDllProtocolData(&previous);
  record.report_rate = 7;
  ProtocolDataUpdate(&record);  // nothing has been parsed
  EXPECT_TRUE(queues.commands.Empty());
}

}  // namespace
}  // namespace perilink::testing
