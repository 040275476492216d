#include "server/dispatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "commands/layer_keys.h"
#include "perilink/finder.h"
#include "protocol/stored.h"
#include "server_fixture.h"

namespace perilink::testing {
namespace {

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
  AnswerWith(255, {0x55});
  QueueEntry entry = SingleEntry(BuildFrame(0x21, 0));
  entry.last_chunk = 0;
  const Callback seen = Ask(
      [&] {
        for (int i = 0; i < 840; ++i)
          UsbServer_WriteCommand(&entry);
        UsbServer_GetData(0x22);
      },
      20'000);
  ASSERT_EQ(seen.data.size(), 8192u);
  EXPECT_EQ(seen.data[8180], 0x55);
  EXPECT_EQ(seen.data[8190], 0x00);

  // Tags of the flash read on frames of the host's: no callback of theirs, and no harm.
  AnswerWith(10, {7, 7, 7, 7, 7, 7, 7, 7, 7, 7});
  for (int tag = 1; tag <= 255; ++tag) {
    callbacks.clear();
    entry = SingleEntry(BuildFrame(0x21, 0));
    entry.continuation = static_cast<uint8_t>(tag);
    UsbServer_WriteCommand(&entry);
    Sleep(30);
    EXPECT_EQ(!callbacks.empty() && callbacks[0].frame[1] == 0x21, tag > 82) << tag;
    ServerState::Instance().LockQueues().commands.Clear();
  }
}

TEST_F(Answers, WriteIsRepeatedUntilItsEchoIsExact) {
  Start();
  int writes = 0;
  device.SetScript([&](ScriptedDevice& self, const Report& written) {
    Report echo = written;
    if (++writes < 9) echo[2] = 1;  // a status where the request has none
    return Tell(self, Closed(echo));
  });
  const uint8_t data[] = {1, 2};
  const Callback seen =
      Ask([&] { UsbServer_SetData(PERILINK_COMMAND_WRITE_MEMORY, data, 2); }, 300);
  EXPECT_EQ(writes, 9);  // each echo was a valid report: nothing is dropped at the fifth write
  EXPECT_EQ(seen.data, (Report{1, 2}));
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

TEST_F(Answers, MemoryRepliesRefreshTheStoredRecord) {
  const auto report_rate = [] {
    return StoredProtocolData::Instance().With(
        [](const ProtocolData& record) { return record.report_rate; });
  };
  Start();
  AnswerWith(2, {0x05, 0x51});  // a wrong check byte: reported all the same
  EXPECT_EQ(Ask(UsbServer_ReadReportRate).data, (Report{5, 0x51}));
  EXPECT_EQ(report_rate(), 0);
  UsbServer_Start(device.Path(), device.Path(), nullptr);  // without a callback, too
  AnswerWith(2, {0x04, 0x51});
  UsbServer_ReadReportRate();
  Sleep(100);
  EXPECT_EQ(report_rate(), 4);
}

// ---- Events and the battery --------------------------------------------------------------------

class BatteryReports : public ServerTest {
 protected:
  BatteryReports() {
    UsbServer_SetBatteryOptimizeEnable(1);
    device.SetScript([this](ScriptedDevice& self, const Report& written) {
      if (written[1] == PERILINK_COMMAND_ON_LINE) return Tell(self, Answer(written, {1, 1, 2, 3}));
      if (written[1] != PERILINK_COMMAND_BATTERY_LEVEL) return AnswerAll(self, written);
      return Tell(self, Answer(written, {level, charging, 0, 0}));
    });
  }
  auto Polls() const {
    return std::ranges::count(WrittenCommands(), PERILINK_COMMAND_BATTERY_LEVEL);
  }
  // What an event leads to: the levels reported, and whether the event itself was, with its flags.
  struct Seen {
    std::vector<int> levels;
    std::vector<int> events;
    bool operator==(const Seen&) const = default;
  };
  Seen After(uint8_t flags) {
    callbacks.clear();
    device.Deliver(Event(flags));
    Sleep(50);
    Seen seen;
    for (const Callback& callback : callbacks)
      (callback.frame[1] == PERILINK_COMMAND_EVENT ? seen.events : seen.levels)
          .push_back(callback.data[0]);
    return seen;
  }

  uint8_t level = 40;
  uint8_t charging = 0;
};

TEST_F(BatteryReports, EventsAreReportedByTheirFlags) {
  Start();
  Sleep(200);
  const auto polls = Polls();
  EXPECT_EQ(After(0x00), (Seen{{}, {}}));
  EXPECT_EQ(After(0x85), (Seen{{}, {0x85}}));
  EXPECT_EQ(callbacks[0].frame, Event(0x85));
  EXPECT_EQ(callbacks[0].data, (Report{0x85, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(Polls(), polls);
  EXPECT_EQ(After(0x40), (Seen{{}, {}}));
  EXPECT_EQ(Polls(), polls + 1);
  EXPECT_EQ(After(0x41), (Seen{{}, {0x01}}));
  EXPECT_EQ(callbacks[0].frame, Event(0x41));
  EXPECT_EQ(Polls(), polls + 2);

  UsbServer_SetBatteryOptimizeEnable(0);
  EXPECT_EQ(After(0x00), (Seen{{}, {0x00}}));
  EXPECT_EQ(After(0x41), (Seen{{}, {0x41}}));
  EXPECT_EQ(Polls(), polls + 2);
}

TEST_F(BatteryReports, ReadingsForceTheLevel) {
  const std::vector<std::tuple<uint8_t, uint8_t, std::vector<int>>> readings = {
      {16, 0, {}},   {15, 0, {15}}, {12, 0, {}},  // no higher than 15 now
      {12, 1, {15}},                              // the charger is news
      {0, 1, {0}},   {100, 1, {}}};
  Start();
  Sleep(200);
  for (const auto& [read_level, read_charging, reported] : readings) {
    level = read_level;
    charging = read_charging;
    EXPECT_EQ(After(0x40), (Seen{reported, {}})) << int{level};
  }
}

// Neither the host that has gone nor the next one gets what the left device's battery was.
TEST_F(BatteryReports, AStartDuringAPollEndsItsReport) {
  static int calls_of_the_next = 0;
  const ServerReportCallback next = [](const uint8_t*, uint32_t, const uint8_t*, uint32_t) {
    ++calls_of_the_next;
  };
  Start();
  Sleep(200);
  callbacks.clear();
  device.SetScript([this](ScriptedDevice& self, const Report& written) {
    if (written[1] == PERILINK_COMMAND_BATTERY_LEVEL)
      self.Deliver(Answer(written, {level, charging, 0, 0}), 50);
    return DWORD{0};
  });
  level = 12;
  device.Deliver(Event(0x41));
  Sleep(10);
  UsbServer_Start(L"", L"", next);
  Sleep(1000);
  EXPECT_EQ(CallbackCommands(), std::vector<int>{});
  EXPECT_EQ(calls_of_the_next, 0);
}

TEST_F(BatteryReports, PollsEveryFiveSecondsAndAnswersForTheDevice) {
  Start();
  Sleep(200);
  EXPECT_EQ(Polls(), 1);
  ASSERT_EQ(callbacks.size(), 1u);  // the first smoothing step
  EXPECT_EQ(callbacks[0].data, (Report{40, 0, 0, 0}));
  Sleep(5000);
  EXPECT_EQ(Polls(), 2);

  level = 30;  // not yet shown
  callbacks.clear();
  UsbServer_ReadBatteryLevel();
  Sleep(50);
  ASSERT_EQ(callbacks.size(), 1u);
  EXPECT_EQ(callbacks[0].frame, Report({8, 4, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x49}));
  EXPECT_EQ(callbacks[0].data, (Report{40, 0, 0, 0}));

  UsbServer_SetPCDriverStatus(0);
  Sleep(20'000);
  const auto polls = Polls();
  Sleep(20'000);
  EXPECT_EQ(Polls(), polls);
  UsbServer_SetPCDriverStatus(1);
  Sleep(200);
  EXPECT_GT(Polls(), polls);
  const auto last = std::find_if(callbacks.rbegin(), callbacks.rend(), [](const Callback& it) {
    return it.frame[1] == PERILINK_COMMAND_BATTERY_LEVEL;
  });
  const std::wstring reported = L"-" + std::to_wstring(last->data[0]);
  UsbServer_Exit();
  Sleep(200);
  EXPECT_TRUE(RawRecord(L"BatteryValue_010203").ends_with(reported));
}

}  // namespace
}  // namespace perilink::testing
