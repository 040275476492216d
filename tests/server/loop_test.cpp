#include "server/loop.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/text.h"
#include "server_fixture.h"

namespace perilink::testing {
namespace {

using Commands = std::vector<int>;

class Loop : public ServerTest {
 protected:
  void Queue(std::initializer_list<uint8_t> commands) {
    for (const uint8_t command : commands)
      UsbServer_GetData(command);
  }
  // Milliseconds from each write to the next.
  std::vector<uint64_t> Gaps() const {
    std::vector<uint64_t> gaps;
    const std::vector<Written> writes = device.writes();
    for (size_t i = 1; i < writes.size(); ++i)
      gaps.push_back(writes[i].at_ms - writes[i - 1].at_ms);
    return gaps;
  }
  void ExpectGaps(size_t count, uint64_t least, uint64_t most) const {
    const std::vector<uint64_t> gaps = Gaps();
    EXPECT_EQ(gaps.size(), count);
    for (const uint64_t gap : gaps) {
      EXPECT_GE(gap, least);
      EXPECT_LE(gap, most);
    }
  }
};

TEST_F(Loop, WritesInOrderSpacedAndOneAtATime) {
  Start();
  Queue({0x21, 0x22, 0x23, 0x24});
  Sleep(100);
  EXPECT_EQ(WrittenCommands(), (Commands{0x21, 0x22, 0x23, 0x24}));
  EXPECT_EQ(CallbackCommands(), WrittenCommands());
  ExpectGaps(3, 8, 10);

  // The next waits for the answer, however long that takes.
  device.ClearWrites();
  device.SetScript([](ScriptedDevice& self, const Report& written) {
    self.Deliver(ReplyTo(written), 60);
    return DWORD{0};
  });
  Queue({0x21, 0x22, 0x23});
  Sleep(400);
  EXPECT_EQ(CallbackCommands().size(), 7u);
  ExpectGaps(2, 60, 70);
}

TEST_F(Loop, WritesAgainWhenTheAnswerIsOverdue) {
  for (const auto& [command, timeout] : {std::pair<uint8_t, uint64_t>{0x21, 100}, {0x09, 5000}}) {
    device.SetScript([](ScriptedDevice& self, const Report&) {
      self.SetScript(AnswerAll);
      return DWORD{0};
    });
    Start();
    device.ClearWrites();
    callbacks.clear();
    Queue({command, 0x22});
    Sleep(static_cast<DWORD>(timeout + 200));
    EXPECT_EQ(WrittenCommands(), (Commands{command, command, 0x22}));
    EXPECT_EQ(CallbackCommands(), (Commands{command, 0x22}));
    EXPECT_GE(Gaps()[0], timeout);
    EXPECT_LE(Gaps()[0], timeout + 10);
  }
}

TEST_F(Loop, FifthUnansweredWriteDropsEverything) {
  device.SetScript(Ignore);
  Start();
  Queue({0x21, 0x22, 0x23});
  Sleep(2000);
  EXPECT_EQ(WrittenCommands(), Commands(5, 0x21));
  EXPECT_TRUE(QueuedEntries().empty());
  EXPECT_TRUE(callbacks.empty());

  // The count starts anew, and half an answer is forgotten.
  int answers = 0;
  device.SetScript([&](ScriptedDevice& self, const Report& written) {
    if (answers++ == 0) self.Deliver(ReplyTo(written, {0x99}), 1);
    return DWORD{0};
  });
  UsbServer_ReadFalshData(0, 20, 0);
  Sleep(2000);
  device.SetScript(AnswerAll);
  UsbServer_ReadFalshData(0, 20, 0);
  Sleep(100);
  ASSERT_EQ(callbacks.size(), 1u);
  EXPECT_EQ(callbacks[0].data.size(), 20u);
  EXPECT_EQ(callbacks[0].data[0], 0x11);
}

TEST_F(Loop, AnyValidReportStartsTheCountAgain) {
  struct Row {
    const char* name;
    Report stray;
    size_t writes;
  };
  Report wrong = Closed({8, 0x77});
  ++wrong[16];
  for (const Row& row : {Row{"foreign answer", Closed({8, 0x77}), 9}, Row{"event", Event(1), 9},
                         Row{"wrong checksum", wrong, 5}}) {
    int written = 0;
    device.SetScript([&](ScriptedDevice& self, const Report&) {
      if (++written == 4) self.Deliver(row.stray, 1);
      return DWORD{0};
    });
    Start();
    device.ClearWrites();
    Queue({0x21});
    Sleep(3000);
    EXPECT_EQ(device.writes().size(), row.writes) << row.name;
  }
}

TEST_F(Loop, LateForeignDuplicateAndBrokenAnswersAreNotReported) {
  Start();
  // The first answer comes when the head has been armed again and can't be written.
  const uint64_t start_ms = GetTickCount64();
  int writes = 0;
  device.SetScript([&](ScriptedDevice& self, const Report& written) {
    if (++writes == 1)
      self.Deliver(Answer(written, {0xEE}), 130);
    else if (GetTickCount64() < start_ms + 250)
      return DWORD{ERROR_GEN_FAILURE};
    else
      self.Deliver(Answer(written, {0x11}), 1);
    return DWORD{0};
  });
  Queue({0x21});
  Sleep(400);
  ASSERT_EQ(callbacks.size(), 1u);
  EXPECT_EQ(callbacks[0].data[0], 0x11);
  EXPECT_GT(writes, 10);  // failing writes are tried again on every pass, and count for nothing

  device.SetScript([](ScriptedDevice& self, const Report& written) {
    Report broken = Answer(written, {0xEE});
    ++broken[16];
    self.Deliver(broken, 1);
    Report foreign = written;
    ++foreign[1];
    self.Deliver(Answer(foreign, {0xEE}), 2);
    self.Deliver(Answer(written, {0x11}), 3);
    self.Deliver(Answer(written, {0xEE}), 4);
    return DWORD{0};
  });
  Queue({0x31, 0x41});
  Sleep(400);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21, 0x31, 0x41}));
  for (const Callback& callback : callbacks)
    EXPECT_EQ(callback.data, Report{0x11});
}

TEST_F(Loop, UnplugReleasesTheDeviceUntilAStart) {
  enum State { kIdle, kWaiting, kFailing };
  for (const State state : {kIdle, kWaiting, kFailing}) {
    device.SetScript(
        [=](ScriptedDevice&, const Report&) { return state == kFailing ? DWORD{31} : DWORD{0}; });
    Start();
    if (state != kIdle) Queue({0x21, 0x22});
    Sleep(20);
    EXPECT_EQ(platform::Bus().OpenConnections(), 2u);
    device.Unplug();
    Sleep(200);
    EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
    if (state != kIdle) {
      EXPECT_EQ(QueuedEntries().size(), 2u);
    }

    device.Plug();
    device.SetScript(AnswerAll);
    device.ClearWrites();
    Queue({0x23});
    Sleep(300);
    EXPECT_TRUE(device.writes().empty());
    EXPECT_EQ(Start(), 0u);
    EXPECT_TRUE(QueuedEntries().empty());
    Queue({0x24});
    Sleep(50);
    EXPECT_EQ(WrittenCommands(), (Commands{0x24}));
  }
}

TEST_F(Loop, StartGoesOverToNewPaths) {
  const std::wstring path = L"\\\\?\\hid#vid_1234&pid_abcd&mi_02&col05#other";
  HookedDevice other(path, AnswerAll);
  const uintptr_t thread = Start();
  EXPECT_NE(thread, 0u);
  device.SetScript(Ignore);
  Queue({0x21, 0x22});
  Sleep(20);
  EXPECT_EQ(UsbServer_KeyboardStart(other.Path(), other.Path(), OnReport), 0u);
  Queue({0x23});
  Sleep(50);
  EXPECT_EQ(WrittenCommands(), (Commands{0x21}));
  ASSERT_EQ(other.writes().size(), 1u);
  EXPECT_EQ(other.writes()[0].report[5], 0x80);
  EXPECT_EQ(CallbackCommands(), (Commands{0x23}));
  std::wstring current;
  UsbServer_GetCurrentInputDevice(current);
  EXPECT_EQ(current, path);

  // A managed start uses its first path for both.
  const std::string narrow = WideToNarrow(device.Path());
  CS_UsbServer_Start(narrow.c_str(), "elsewhere", OnReport);
  UsbServer_GetCurrentOutputDevice(current);
  EXPECT_EQ(current, device.Path());
  device.SetScript(AnswerAll);
  Queue({0x24});
  Sleep(50);
  EXPECT_EQ(device.writes().back().report[5], 0x00);
  EXPECT_EQ(CallbackCommands(), (Commands{0x23, 0x24}));
  const auto handle = reinterpret_cast<HANDLE>(thread);
  UsbServer_Exit();
  EXPECT_EQ(WaitForSingleObject(handle, 1000), static_cast<DWORD>(WAIT_OBJECT_0));
  CloseHandle(handle);
}

TEST_F(Loop, AStartIsNeverLost) {
  const auto thread = reinterpret_cast<HANDLE>(Start());
  // At once after an exit: the running loop goes on.
  UsbServer_Exit();
  EXPECT_EQ(Start(), 0u);
  Queue({0x21});
  Sleep(50);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21}));
  // After the loop has seen the exit, before its thread has ended: the thread runs it again.
  device.on_close = [&] { EXPECT_EQ(UsbServer_Start(device.Path(), device.Path(), OnReport), 0u); };
  UsbServer_Exit();
  Sleep(50);
  Queue({0x22});
  Sleep(50);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21, 0x22}));
  EXPECT_EQ(WaitForSingleObject(thread, 0), static_cast<DWORD>(WAIT_TIMEOUT));
  // After the thread has ended: a new one.
  UsbServer_Exit();
  EXPECT_EQ(WaitForSingleObject(thread, 1000), static_cast<DWORD>(WAIT_OBJECT_0));
  CloseHandle(thread);
  const uintptr_t again = Start();
  EXPECT_NE(again, 0u);
  CloseHandle(reinterpret_cast<HANDLE>(again));
  Queue({0x23});
  Sleep(50);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21, 0x22, 0x23}));
}

// A start between the opening and the writing of one pass: what is queued then goes out on the
// connection that the next pass replaces.
TEST_F(Loop, FrameWrittenBeforeAReopenIsWrittenAgain) {
  device.SetScript([](ScriptedDevice& self, const Report&) {
    self.SetScript(AnswerAll);
    return DWORD{0};
  });
  device.on_open = [&] {
    UsbServer_Start(device.Path(), device.Path(), OnReport);
    Queue({0x21});
  };
  Start();
  Sleep(60);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21}));
  ExpectGaps(1, 8, 12);
}

TEST_F(Loop, ReopensUntilItHasAnEvent) {
  ServerState& state = ServerState::Instance();
  state.RequestStart({device.Path(), device.Path()}, OnReport);
  ServerLoop loop(state);
  platform::ArmFault("CreateEventW", 1, true);
  loop.RunOnePass();
  loop.RunOnePass();
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
  platform::DisarmFault();
  loop.RunOnePass();
  EXPECT_EQ(platform::Bus().OpenConnections(), 2u);
  loop.End();
}

TEST_F(Loop, RunsOnTheHostsThreadAndWithoutSleep) {
  CS_UsbServer_SetThreadSleepTime(0);
  ServerState::Instance().RequestStart({device.Path(), device.Path()}, OnReport);
  Queue({0x21});
  on_callback = [](const Callback&) { UsbServer_Exit(); };
  UsbReaderWriterServer();
  EXPECT_EQ(CallbackCommands(), (Commands{0x21}));
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
}

TEST_F(Loop, WorksWithoutACallbackAndWithAbsentDevices) {
  UsbServer_Start(device.Path(), device.Path(), nullptr);
  Queue({0x21});
  device.Deliver(Event(1), 5);
  Sleep(50);
  EXPECT_EQ(WrittenCommands(), (Commands{0x21}));
  EXPECT_TRUE(QueuedEntries().empty());
  UsbServer_Start(L"nowhere", L"", OnReport);
  Queue({0x22});
  Sleep(300);
  EXPECT_EQ(QueuedEntries().size(), 1u);
}

TEST_F(Loop, CallbacksMayCallExports) {
  Start();
  on_callback = [&](const Callback& callback) {
    if (callback.frame[1] == 0x21) Queue({0x22});
    if (callback.frame[1] == 0x22) {
      EXPECT_EQ(UsbServer_Start(device.Path(), device.Path(), OnReport), 0u);
      Queue({0x23});
    }
    if (callback.frame[1] == 0x23) UsbServer_Exit();
  };
  Queue({0x21});
  Sleep(200);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21, 0x22, 0x23}));
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
}

}  // namespace
}  // namespace perilink::testing
