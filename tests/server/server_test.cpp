// What hosts queue, what their devices answer, and the loop in between: what the simulation doesn't
// draw.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "battery/optimizer.h"
#include "battery/registry_fixture.h"
#include "commands/layer_keys.h"
#include "perilink/battery.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "protocol/stored.h"
#include "queueing_exports.h"
#include "server/loop.h"
#include "sim/flash_image.h"
#include "sim/mouse.h"
#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

struct Callback {
  Report frame;
  Report data;
};

// Puts bytes at the end of a report.
template <typename Bytes>
Report& operator+=(Report& report, const Bytes& bytes) {
  report.insert(report.end(), bytes.begin(), bytes.end());
  return report;
}

// A server on a scripted device. The optimiser is off unless a test switches it on; the idle server
// looks at its queue every millisecond.
class Server : public RegistryTest {
 protected:
  Server() {
    current_ = this;
    UsbServer_SetBatteryOptimizeEnable(0);
    CS_UsbServer_SetThreadSleepTime(1);
  }
  ~Server() override {
    UsbServer_Exit();
    Sleep(10'000);
    EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
    current_ = nullptr;
  }

  uintptr_t Start() {
    const uintptr_t thread = UsbServer_Start(device.Path(), device.Path(), &Server::OnReport);
    Sleep(2);
    return thread;
  }
  static void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t, const uint8_t* data,
                                     uint32_t data_length) {
    if (current_ == nullptr) return;
    current_->callbacks.push_back({{frame, frame + 17}, {data, data + data_length}});
    if (current_->on_callback) current_->on_callback();
  }

  // The entries that a call queues.
  static std::vector<Report> Queued(const std::function<void()>& call) {
    ServerState::Instance().LockQueues().commands.Clear();
    call();
    const ServerState::Queues queues = ServerState::Instance().LockQueues();
    std::vector<Report> entries;
    for (size_t i = 0; i < queues.commands.Size(); ++i) {
      const QueueEntry& entry = queues.commands.At(i);
      entries.push_back({entry.last_chunk, entry.pending, entry.continuation});
      entries.back() += FrameBytes(entry.frame);
    }
    return entries;
  }
  // One as the device's protocol has it, written out here once more.
  static Report Entry(Report header, Report frame) { return header += Closed(std::move(frame)); }

  // The device answers what comes a millisecond later with this length byte, and data.
  void AnswerWith(uint8_t length_byte, Report data) {
    device.SetScript([=](ScriptedDevice& self, const Report& written) {
      Report reply(written.begin(), written.begin() + 5);
      reply.push_back(length_byte);
      self.Deliver(Closed(reply += data), 1);
      return DWORD{0};
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

  ScriptedDevice device{kScriptedPath};
  std::vector<Callback> callbacks;
  std::function<void()> on_callback;

 private:
  static inline Server* current_ = nullptr;
};

// ---- What hosts queue ---------------------------------------------------------------------------

TEST_F(Server, QueuesWhatFramesHold) {
  UsbFinder_SetKeyboardMode();
  EXPECT_EQ(Queued([] { UsbServer_ReadOnLine(); }),
            std::vector<Report>{Entry({1, 1, 0}, {8, 3, 0, 0, 0, 0x80})});
  UsbFinder_SetMouseMode();
  for (const QueueingExports& row : kQueueingExports) {
    Report frame = {8, row.command, 0, 0, 0, row.length};
    frame += row.payload;
    for (const auto& queue : row.exports)
      EXPECT_EQ(Queued(queue), std::vector<Report>{Entry({1, 1, 0}, frame)}) << row.name;
  }
  EXPECT_EQ(Queued([] { UsbServer_SetData(0x77, kRecord.bytes, 11); }).size(), 0u);
  // Memory reads take the low half of an address.
  EXPECT_EQ(Queued([] { UsbServer_ReadFalshData(0x1100E, 5, 3); }),
            std::vector<Report>{Entry({1, 1, 3}, {8, 8, 0, 0x10, 0x0E, 5})});
  for (const int32_t length : {0, INT32_MIN, 8191, INT32_MAX})
    EXPECT_EQ(Queued([&] { UsbServer_ReadFalshData(0, length, 0); }).size(), 0u) << length;
  EXPECT_EQ(Queued([] { CS_UsbServer_ReadFalshData(0, 8190); }).size(), 819u);
  // A host's own entry stays as it is.
  QueueEntry entry;
  std::memset(&entry, 0xEE, sizeof(entry));
  UsbServer_InitWriteCommand(&entry);
  Report blank(20, 0);
  blank[0] = blank[1] = 1;
  EXPECT_EQ(Queued([&] { UsbServer_WriteCommand(&entry); }), std::vector<Report>{blank});
}

// A request has room for all its frames or is refused; only a full read, whose step this is, goes
// on.
TEST_F(Server, TheLimitCutsNoRequest) {
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
TEST_F(Server, TheDriversEndStopsThePolls) {
  UsbServer_SetBatteryOptimizeEnable(1);
  UsbServer_SetPCDriverStatus(1);
  EXPECT_NE(BatteryOptimizer::Instance().NextDueMs(), UINT64_MAX);
  const std::vector<QueueEntry> rest(kQueueLimit - 1);
  ServerState::Instance().Append(rest);
  UsbServer_SetPCDriverStatus(0);
  EXPECT_EQ(BatteryOptimizer::Instance().NextDueMs(), UINT64_MAX);
}

TEST_F(Server, DeviceInfoCarriesAChallengeOfTheSecond) {
  platform::SetCalendarTime(77);
  srand(77);
  Report frame = {8, 1, 0, 0, 0, 8};
  for (int i = 0; i < 4; ++i)
    frame.push_back(static_cast<uint8_t>(rand() % 256));
  for (const auto& read : {UsbServer_ReadEncryption, CS_UsbServer_ReadEncryption})
    EXPECT_EQ(Queued(read), std::vector<Report>{Entry({1, 1, 0}, frame)});
}

TEST_F(Server, DescriptorStringIsCutIntoChunks) {
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
    const std::wstring wide(text.begin(), text.end());
    EXPECT_EQ(Queued([&] { UsbServerC_SetDeviceDescriptorString(text.c_str()); }), expected);
    EXPECT_EQ(Queued([&] { UsbServer_SetDeviceDescriptorString(wide); }), expected);
  }
}

TEST_F(Server, EqualRecordsAndUnparsedOnesQueueNothing) {
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

// ---- What becomes of answers; their bytes are a fuzz target's -----------------------------------

// An answer of too few bytes may be a shorter read's. A device that gives no other is believed.
TEST_F(Server, ShortAnswersToReads) {
  struct Row {
    size_t short_answers;
    size_t writes_of_server;
    size_t writes_of_layer;
    uint8_t byte;
  };
  for (const Row& row : {Row{1, 2, 2, 0x77}, Row{9, 3, 2, 0x51}}) {
    size_t asked = 0;
    device.SetScript([&](ScriptedDevice& self, const Report& written) {
      const bool is_short = asked++ < row.short_answers;
      Report reply = ReplyTo(written, {is_short ? uint8_t{0x51} : uint8_t{0x77}});
      reply[5] = is_short ? 1 : 10;
      self.Deliver(Closed(std::move(reply)), 1);
      return DWORD{0};
    });
    Start();
    EXPECT_EQ(Ask(UsbServer_ReadLedBar).data[0], row.byte);
    EXPECT_EQ(asked, row.writes_of_server);
    asked = 0;
    EXPECT_EQ(LoadLayerKeys(device.Path(), 0), Report{row.byte});
    EXPECT_EQ(asked, row.writes_of_layer);
  }
}

// At the pace of the queue; what a slot holds is read by the simulation.
TEST_F(Server, AFullReadOnlyProbesEmptySlots) {
  sim::Mouse mouse;
  mouse.Plug();
  for (const ServerReportCallback callback : {ServerReportCallback{}, &Server::OnReport}) {
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

TEST(Decoders, ReadTheirBytes) {
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

// ---- The loop -----------------------------------------------------------------------------------

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

// Neither while an answer is awaited nor while reports come.
TEST_F(Server, DoesNotSpinOrEnumerateForNothing) {
  Start();
  platform::ArmFault("WaitForMultipleObjects", UINT64_MAX);
  UsbServer_GetData(0x21);
  Sleep(100);
  EXPECT_LE(platform::PlatformCallCount(), 5u);
  AnswerWith(0, {});
  Sleep(3000);
  platform::ArmFault("SetupDiGetClassDevsW", UINT64_MAX);
  for (int i = 0; i < 20; ++i) {
    device.Deliver(Closed({8, PERILINK_COMMAND_EVENT, 0, 0, 0, 0, 1}));
    UsbServer_GetData(0x22);
    Sleep(500);
  }
  EXPECT_LE(platform::PlatformCallCount(), 11u);
  platform::DisarmFault();
}

// A poll that is due before the head's turn does not wait for it.
TEST_F(Server, PollsBetweenTwoCommands) {
  UsbServer_SetBatteryOptimizeEnable(1);
  AnswerWith(4, {50});
  Start();
  Sleep(4994);
  UsbServer_GetData(0x21);
  Sleep(100);
  const auto writes = device.writes();
  ASSERT_EQ(writes.size(), 5u);
  EXPECT_NEAR(static_cast<double>(writes[2].at_ms - writes[0].at_ms), 5000, 1);
  EXPECT_EQ(writes[4].report[1], 0x21);
}

TEST_F(Server, ASecondLoopWaitsForTheFirst) {
  AnswerWith(1, {0x11});
  const auto server = reinterpret_cast<HANDLE>(Start());
  const HANDLE second = CreateThread(
      nullptr, 0, [](LPVOID) { return UsbReaderWriterServer(), DWORD{0}; }, nullptr, 0, nullptr);
  std::set<std::thread::id> threads;
  on_callback = [&] { threads.insert(std::this_thread::get_id()); };
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Start(), 0u);  // no thread of its own
    UsbServer_GetData(0x21);
    Sleep(100);
  }
  EXPECT_EQ(callbacks.size(), 20u);
  EXPECT_EQ(threads.size(), 1u);
  EXPECT_EQ(WaitForSingleObject(second, 0), static_cast<DWORD>(WAIT_TIMEOUT));
  UsbServer_Exit();
  for (const HANDLE thread : {server, second}) {
    EXPECT_EQ(WaitForSingleObject(thread, 100), static_cast<DWORD>(WAIT_OBJECT_0));
    CloseHandle(thread);
  }
}

TEST_F(Server, RunsOnTheHostsThreadAndWithoutSleep) {
  CS_UsbServer_SetThreadSleepTime(0);
  UsbServer_Start(L"nowhere", L"", OnReport);
  UsbServer_Exit();
  Sleep(300);
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
  ServerState::Instance().RequestStart({device.Path(), device.Path()}, OnReport);
  platform::ArmFault("CreateEventW", 1);  // the device is opened again until there is an event
  AnswerWith(1, {0x11});
  on_callback = UsbServer_Exit;
  Ask([] {
    UsbServer_GetData(0x21);
    UsbReaderWriterServer();
  });
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
}

}  // namespace
}  // namespace perilink::testing
