#include "server/dispatcher.h"

#include <gtest/gtest.h>

#include <vector>

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
      reply.insert(reply.end(), bytes.begin(), bytes.end());
      self.Deliver(Closed(reply), 1);
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
  static Report Padded(Report data, size_t size) {
    data.resize(size);
    return data;
  }
};

TEST_F(Answers, LengthFollowsTheAnswersLengthByte) {
  struct Row {
    bool keyboard;
    uint8_t command;
    uint8_t length_byte;
    size_t length;
  };
  Start();
  for (const Row& row : {
           Row{false, 0x12, 2, 2},
           Row{false, 0x12, 0, 0},
           Row{false, 0x12, 0x82, 0x82},
           Row{true, 0x12, 0x82, 2},
           Row{false, 0x03, 0, 4},
           Row{false, 0x03, 10, 4},
           Row{false, 0x03, 11, 11},
           Row{true, 0x03, 0x81, 4},
           Row{false, 0x03, 0x81, 0x81},
           Row{false, 0x04, 1, 4},
           Row{false, 0x04, 20, 20},
           Row{true, 0x04, 0x8A, 4},
       }) {
    SetKeyboardTargetFlag(row.keyboard);
    AnswerWith(row.length_byte, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    const Callback seen = Ask([&] { UsbServer_GetData(row.command); });
    EXPECT_EQ(seen.data, Padded(row.length == 0 ? Report{} : Report{1, 2, 3, 4, 5, 6, 7, 8, 9, 10},
                                row.length))
        << int{row.command} << " " << int{row.length_byte};
    Report frame = device.writes().back().report;
    frame[5] = row.length_byte;  // the request's checksum stays
    EXPECT_EQ(seen.frame, frame);
  }
}

TEST_F(Answers, FramesOfOneRequestMakeOneCallback) {
  Start();
  device.SetScript([](ScriptedDevice& self, const Report& written) {
    self.Deliver(ReplyTo(written, {written[4], 7, 7, 7, 7, 7, 7, 7, 7, 7}), 1);
    return DWORD{0};
  });
  const Callback seen = Ask([] { UsbServer_ReadFalshData(0x30, 26, 0); });
  Report data(26, 7);
  data[0] = 0x30;
  data[10] = 0x3A;
  data[20] = 0x44;
  EXPECT_EQ(seen.data, data);
  EXPECT_EQ(seen.frame, device.writes().back().report);
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
    self.Deliver(Closed(echo), 1);
    return DWORD{0};
  });
  const uint8_t data[] = {1, 2};
  const Callback seen = Ask([&] { UsbServer_SetData(kCommandWriteMemory, data, 2); }, 300);
  EXPECT_EQ(writes, 9);  // each echo was a valid report: nothing is dropped at the fifth write
  EXPECT_EQ(seen.data, (Report{1, 2}));
}

TEST_F(Answers, MemoryRepliesRefreshTheStoredRecord) {
  Start();
  const auto stored = [](size_t offset) {
    return StoredProtocolData::Instance().With([&](const ProtocolData& record) {
      return reinterpret_cast<const uint8_t*>(&record)[offset];
    });
  };
  AnswerWith(2, {0x04, 0x51});
  Ask(UsbServer_ReadReportRate);
  EXPECT_EQ(stored(0), 4);
  Ask(UsbServer_ReadCurrentDPI);
  EXPECT_EQ(stored(2), 4);
  AnswerWith(2, {0x05, 0x51});  // a wrong check byte: reported all the same
  EXPECT_EQ(Ask(UsbServer_ReadCurrentDPI).data, (Report{5, 0x51}));
  EXPECT_EQ(stored(2), 4);
  AnswerWith(8, {1, 0x54, 2, 0x53, 3, 0x00, 4, 0x51});
  Ask(UsbServer_ReadDPILed);
  EXPECT_EQ((Report{stored(144), stored(145), stored(146), stored(147)}), (Report{1, 2, 0, 4}));
  // Without a callback, too.
  UsbServer_Start(device.Path(), device.Path(), nullptr);
  AnswerWith(9, {1, 2, 3, 4, 5, 6, 0x40, 7, 0x4E});
  UsbServer_ReadLedBar();
  Sleep(100);
  EXPECT_EQ(stored(153), 6);
  EXPECT_EQ(stored(154), 7);
}

// ---- Events and the battery --------------------------------------------------------------------

class BatteryReports : public ServerTest {
 protected:
  BatteryReports() {
    UsbServer_SetBatteryOptimizeEnable(1);
    device.SetScript([this](ScriptedDevice& self, const Report& written) {
      if (written[1] == kCommandOnLine)
        self.Deliver(Answer(written, {1, 1, 2, 3}), 1);
      else if (written[1] == kCommandBatteryLevel)
        self.Deliver(Answer(written, {level, charging, 0, 0}), 1);
      else
        AnswerAll(self, written);
      return DWORD{0};
    });
  }
  size_t Polls() const {
    size_t polls = 0;
    for (const Written& written : device.writes())
      polls += written.report[1] == kCommandBatteryLevel;
    return polls;
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
      (callback.frame[1] == kCommandEvent ? seen.events : seen.levels).push_back(callback.data[0]);
    return seen;
  }

  uint8_t level = 40;
  uint8_t charging = 0;
};

TEST_F(BatteryReports, EventsAreReportedByTheirFlags) {
  Start();
  Sleep(200);
  const size_t polls = Polls();
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

TEST_F(BatteryReports, LowAndEmptyReadingsForceTheLevel) {
  Start();
  Sleep(200);
  BatteryOptimizer& optimizer = BatteryOptimizer::Instance();
  ASSERT_EQ(optimizer.ReportedLevel(), 40);
  level = 16;
  EXPECT_EQ(After(0x40), (Seen{{}, {}}));
  level = 12;
  EXPECT_EQ(After(0x40), (Seen{{15}, {}}));
  EXPECT_EQ(After(0x40), (Seen{{}, {}}));  // it is no higher than 15 now
  charging = 1;
  EXPECT_EQ(After(0x40), (Seen{{15}, {}}));  // the charger is news
  level = 0;
  EXPECT_EQ(After(0x40), (Seen{{0}, {}}));
  // A full reading below a full level makes the next steps come soon.
  level = 100;
  EXPECT_EQ(After(0x40), (Seen{{}, {}}));
  const size_t polls = Polls();
  Sleep(400);
  EXPECT_GE(Polls(), polls + 1);
  // A poll that fails leaves the level alone.
  device.SetScript(Ignore);
  EXPECT_EQ(After(0x40), (Seen{{}, {}}));
  Sleep(1000);
  EXPECT_FALSE(optimizer.SmoothingActive());
}

TEST_F(BatteryReports, PollsEveryFiveSecondsAndAnswersForTheDevice) {
  Start();
  Sleep(200);
  EXPECT_EQ(Polls(), 1u);
  ASSERT_EQ(callbacks.size(), 1u);  // the first smoothing step
  EXPECT_EQ(callbacks[0].data, (Report{40, 0, 0, 0}));
  Sleep(5000);
  EXPECT_EQ(Polls(), 2u);

  level = 30;  // not yet shown
  callbacks.clear();
  UsbServer_ReadBatteryLevel();
  Sleep(50);
  ASSERT_EQ(callbacks.size(), 1u);
  Report frame(17, 0);
  frame[0] = 8, frame[1] = 4, frame[5] = 2, frame[16] = 0x49;
  EXPECT_EQ(callbacks[0].frame, frame);
  EXPECT_EQ(callbacks[0].data, (Report{40, 0, 0, 0}));

  UsbServer_SetPCDriverStatus(0);
  Sleep(20'000);
  const size_t polls = Polls();
  Sleep(20'000);
  EXPECT_EQ(Polls(), polls);
  UsbServer_SetPCDriverStatus(1);
  Sleep(200);
  EXPECT_GT(Polls(), polls);
}

TEST_F(BatteryReports, LevelIsSavedAtTheEndOfTheLoop) {
  Start();
  Sleep(200);
  UsbServer_Exit();
  Sleep(200);
  const std::wstring record = RawRecord(L"BatteryValue_010203");
  ASSERT_GT(record.size(), 3u);
  EXPECT_EQ(record.substr(record.size() - 3), L"-40");
}

}  // namespace
}  // namespace perilink::testing
