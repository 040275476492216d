// What hosts queue, what their devices answer, and the loop in between.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "battery/optimizer.h"
#include "commands/layer_keys.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "platform/ansi_text.h"
#include "protocol/stored.h"
#include "queueing_exports.h"
#include "server/dispatcher.h"
#include "server/loop.h"
#include "server_fixture.h"
#include "sim/flash_image.h"
#include "sim/mouse.h"

namespace perilink::testing {
namespace {

// ---- What hosts queue ---------------------------------------------------------------------------

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

// The exports of one command apart: the simulation draws them and checks their frames.
TEST_F(QueuedCommands, TakeTheTargetAndNoMoreThanAFrameHolds) {
  UsbFinder_SetKeyboardMode();
  EXPECT_EQ(Queue([] { UsbServer_ReadOnLine(); }),
            std::vector<Report>{Entry({1, 1, 0}, {8, 3, 0, 0, 0, 0x80})});
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

// The simulation draws memory reads; these are at the edges.
TEST_F(QueuedCommands, MemoryReadsTakeTheLowAddressAndBoundedLengths) {
  EXPECT_EQ(Queue([] { UsbServer_ReadFalshData(0x1100E, 5, 3); }),
            std::vector<Report>{Entry({1, 1, 3}, {8, 8, 0, 0x10, 0x0E, 5})});
  for (const int32_t length : {0, INT32_MIN, 8191, INT32_MAX})
    EXPECT_EQ(Queue([&] { UsbServer_ReadFalshData(0, length, 0); }).size(), 0u) << length;
  EXPECT_EQ(Queue([] { CS_UsbServer_ReadFalshData(0, 8190); }).size(), 819u);
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

// ---- What changes of the configuration become ---------------------------------------------------

TEST_F(QueuedCommands, EqualRecordsAndUnparsedOnesQueueNothing) {
  // With QueueMutex taken: it must not be asked for.
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  ProtocolData previous{};
  ProtocolData record{};
  CS_ProtocolDataCompareUpdate(&record, &previous);
  SetDllProtocolData(&previous);
  record.report_rate = 7;
  ProtocolDataUpdate(&record);
  EXPECT_TRUE(queues.commands.Empty());
  StoredProtocolData::Instance().Parse(sim::FlashImage::Default().bytes().data());
  EXPECT_TRUE(StoredProtocolData::Instance().parsed());
}

// At the pace of the queue; what a slot holds is read by the simulation.
TEST_F(QueuedCommands, AFullReadOnlyProbesEmptySlots) {
  sim::Mouse mouse;
  mouse.Plug();
  for (const ServerReportCallback callback : {ServerReportCallback{}, &ServerTest::OnReport}) {
    UsbServer_Start(mouse.CommandPath(), mouse.CommandPath(), callback);
    Sleep(5);
    mouse.ClearRequests();
    UsbServer_ReadAllFlashData();
    constexpr DWORD kFrames = 24 + 5 + 16 + 32;
    Sleep(kFrames * (8 + 1) * 102 / 100 + 1);
    EXPECT_EQ(mouse.Requests().size(), kFrames);
    EXPECT_EQ(StoredProtocolData::Instance().parsed(), callback != nullptr);
    EXPECT_EQ(callbacks.size(), callback != nullptr ? 1u : 0u);
  }
}

// ---- What becomes of answers --------------------------------------------------------------------

class Answers : public ServerTest {
 protected:
  // Reports back what the next frames are answered with: a length byte and the first data byte.
  void AnswerWith(uint8_t length_byte, std::initializer_list<uint8_t> data) {
    device.SetScript([=, bytes = Report(data)](ScriptedDevice& self, const Report& written) {
      Report reply(written.begin(), written.begin() + 5);
      reply.push_back(length_byte);
      return Tell(self, Closed(reply += bytes));
    });
  }
  // The one callback that a command leads to.
  Callback Ask(const std::function<void()>& command, DWORD wait_ms = 100) {
    callbacks.clear();
    command();
    Sleep(wait_ms);
    EXPECT_EQ(callbacks.size(), 1u);
    return callbacks.empty() ? Callback{} : callbacks[0];
  }
};

TEST_F(Answers, LengthFollowsTheAnswersLengthByte) {
  const std::vector<std::tuple<bool, uint8_t, uint8_t, size_t>> rows = {
      {false, 0x12, 2, 2},   {false, 0x12, 0, 0},  {false, 0x12, 0x82, 0x82},
      {true, 0x12, 0x82, 2}, {false, 0x03, 10, 4}, {false, 0x03, 11, 11},
      {true, 0x03, 0x81, 4}, {false, 0x04, 1, 4},  {true, 0x04, 0x8A, 4}};
  Start();
  for (const auto& [keyboard, command, length_byte, length] : rows) {
    SetKeyboardTargetFlag(keyboard);
    AnswerWith(length_byte, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    const Callback seen = Ask([asked = command] { UsbServer_GetData(asked); });
    Report data = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    data.resize(length);
    EXPECT_EQ(seen.data, data) << int{command} << " " << int{length_byte};
    Report frame = device.writes().back().report;
    frame[5] = length_byte;  // the request's checksum stays
    EXPECT_EQ(seen.frame, frame);
  }
}

// Whatever a host queues and a device declares, nothing beyond the buffer is read or reported.
TEST_F(Answers, LongAnswersStayWithinTheBuffer) {
  Start();
  QueueEntry entry = SingleEntry(BuildFrame(0x21, 0));
  entry.last_chunk = 0;
  const auto ask = [&](bool keyboard, uint8_t length_byte) {
    SetKeyboardTargetFlag(keyboard);
    AnswerWith(length_byte, {0x55});
    const auto queue = [&] {
      for (int i = 0; i < 840; ++i)
        UsbServer_WriteCommand(&entry);
      UsbServer_GetData(0x22);
    };
    return Ask(queue, 20'000);
  };
  // The keyboard's bit is no part of a length, not of frames that have no room either.
  EXPECT_EQ(ask(true, 0x81).data.size(), 841u);
  const Callback seen = ask(false, 255);
  ASSERT_EQ(seen.data.size(), 8192u);
  EXPECT_EQ(seen.data[8180], 0x55);
  EXPECT_EQ(seen.data[8190], 0x00);
}

// An answer of too few bytes may be a shorter read's. A device that gives no other is believed.
TEST_F(Answers, ShortAnswersToReads) {
  struct Row {
    size_t short_answers;
    size_t writes_of_server;
    size_t writes_of_layer;
    uint8_t byte;
  };
  for (const Row& row : {Row{1, 2, 2, 0x77}, Row{9, 3, 2, 0x51}}) {
    size_t asked = 0;
    device.SetScript([&](ScriptedDevice& self, const Report& written) {
      if (asked++ < row.short_answers) return Tell(self, Answer(written, {0x51}));
      return Tell(self, Answer(written, {0x77, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    });
    Start();
    EXPECT_EQ(Ask(UsbServer_ReadLedBar).data[0], row.byte);
    EXPECT_EQ(asked, row.writes_of_server);
    asked = 0;
    EXPECT_EQ(LoadLayerKeys(device.Path(), 0), Report{row.byte});
    EXPECT_EQ(asked, row.writes_of_layer);
  }
}

// ---- The loop -----------------------------------------------------------------------------------

using Commands = std::vector<int>;

class Loop : public ServerTest {
 protected:
  void Queue(std::initializer_list<uint8_t> commands, DWORD wait_ms = 0) {
    for (const uint8_t command : commands)
      UsbServer_GetData(command);
    if (wait_ms != 0) Sleep(wait_ms);
  }
};

// Neither while an answer is awaited nor while reports come to an idle loop.
TEST_F(Loop, DoesNotSpinOrEnumerateForNothing) {
  device.SetScript({});
  Start();
  platform::ArmFault("WaitForMultipleObjects", UINT64_MAX);
  Queue({0x21}, 100);
  EXPECT_LE(platform::PlatformCallCount(), 5u);
  device.SetScript(AnswerAll);
  Sleep(3000);
  platform::ArmFault("SetupDiGetClassDevsW", UINT64_MAX);
  for (int i = 0; i < 20; ++i) {
    device.Deliver(Event(1));
    Sleep(500);
  }
  EXPECT_LE(platform::PlatformCallCount(), 11u);
  platform::DisarmFault();
}

TEST(PresencePolicy, LooksOnceASecondAndOnEveryPassAfterAHint) {
  PresencePolicy policy;
  policy.OnCheck(5000);
  EXPECT_FALSE(policy.Due(5999));
  EXPECT_TRUE(policy.Due(6000));
  policy.Hint(6000);
  policy.OnCheck(6500);
  EXPECT_TRUE(policy.Due(6999));
  EXPECT_FALSE(policy.Due(7000));
}

TEST_F(Loop, ASecondLoopWaitsForTheFirst) {
  const auto server = reinterpret_cast<HANDLE>(Start());
  const HANDLE second = CreateThread(
      nullptr, 0, [](LPVOID) { return UsbReaderWriterServer(), DWORD{0}; }, nullptr, 0, nullptr);
  std::set<std::thread::id> threads;
  on_callback = [&](const Callback&) { threads.insert(std::this_thread::get_id()); };
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Start(), 0u);  // no thread of its own
    Queue({0x21, 0x22, 0x23}, 100);
  }
  EXPECT_EQ(callbacks.size(), 60u);
  EXPECT_EQ(threads.size(), 1u);
  EXPECT_EQ(WaitForSingleObject(second, 0), static_cast<DWORD>(WAIT_TIMEOUT));
  UsbServer_Exit();
  for (const HANDLE thread : {server, second}) {
    EXPECT_EQ(WaitForSingleObject(thread, 100), static_cast<DWORD>(WAIT_OBJECT_0));
    CloseHandle(thread);
  }
}

TEST_F(Loop, RunsOnTheHostsThreadAndWithoutSleep) {
  CS_UsbServer_SetThreadSleepTime(0);
  UsbServer_Start(L"nowhere", L"", OnReport);
  UsbServer_Exit();
  Sleep(300);
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
  ServerState::Instance().RequestStart({device.Path(), device.Path()}, OnReport);
  platform::ArmFault("CreateEventW", 1);  // the device is opened again until there is an event
  Queue({0x21});
  on_callback = [](const Callback&) { UsbServer_Exit(); };
  UsbReaderWriterServer();
  EXPECT_EQ(CallbackCommands(), (Commands{0x21}));
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
}

}  // namespace
}  // namespace perilink::testing
