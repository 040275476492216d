#include "server/loop.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/ansi_text.h"
#include "server_fixture.h"

namespace perilink::testing {
namespace {

using Commands = std::vector<int>;

constexpr const wchar_t* kOtherPath = L"\\\\?\\hid#vid_1234&pid_abcd&mi_02&col05#other";

class Loop : public ServerTest {
 protected:
  void Queue(std::initializer_list<uint8_t> commands, DWORD wait_ms = 0) {
    for (const uint8_t command : commands)
      UsbServer_GetData(command);
    if (wait_ms != 0) Sleep(wait_ms);
  }
};

TEST_F(Loop, SpacingFollowsTheAnswers) {
  struct Row {
    uint8_t command;
    DWORD answer_ms;  // of the first write; 0 for none
    Commands written;
    uint64_t gap_ms;
  };
  for (const Row& row :
       {Row{0x21, 1, {0x21, 0x22}, 8}, Row{0x21, 60, {0x21, 0x22}, 60},
        Row{0x21, 0, {0x21, 0x21, 0x22}, 100}, Row{0x09, 0, {0x09, 0x09, 0x22}, 5000}}) {
    device.SetScript([&](ScriptedDevice& self, const Report& written) {
      self.SetScript(AnswerAll);
      if (row.answer_ms != 0) self.Deliver(ReplyTo(written), row.answer_ms);
      return DWORD{0};
    });
    Start();
    device.ClearWrites();
    callbacks.clear();
    Queue({row.command, 0x22}, static_cast<DWORD>(row.gap_ms + 200));
    EXPECT_EQ(WrittenCommands(), row.written);
    EXPECT_EQ(CallbackCommands(), (Commands{row.command, 0x22}));
    const std::vector<Written> writes = device.writes();
    EXPECT_GE(writes[1].at_ms - writes[0].at_ms, row.gap_ms);
    EXPECT_LE(writes[1].at_ms - writes[0].at_ms, row.gap_ms + 10);
  }
}

TEST_F(Loop, FifthUnansweredWriteSinceAValidReportDropsEverything) {
  struct Row {
    const char* name;
    Report stray;  // after the fourth write
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
    Queue({0x21, 0x22}, 3000);
    EXPECT_EQ(WrittenCommands(), Commands(row.writes, 0x21)) << row.name;
    EXPECT_TRUE(QueuedEntries().empty());
  }
}

TEST_F(Loop, LateForeignDuplicateAndBrokenAnswersAreNotReported) {
  Start();
  // The first answer comes when the head has been armed again and can't be written.
  const uint64_t start_ms = GetTickCount64();
  device.SetScript([&](ScriptedDevice& self, const Report& written) {
    const bool first = self.writes().size() == 1;
    if (!first && GetTickCount64() < start_ms + 250) return DWORD{ERROR_GEN_FAILURE};
    self.Deliver(Answer(written, {uint8_t(first ? 0xEE : 0x11)}), first ? 130 : 1);
    return DWORD{0};
  });
  Queue({0x21}, 400);
  ASSERT_EQ(callbacks.size(), 1u);
  EXPECT_EQ(callbacks[0].data[0], 0x11);
  EXPECT_GT(device.writes().size(),
            10u);  // failing writes are tried again on every pass, and count for nothing

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
  Queue({0x31, 0x41}, 400);
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
    EXPECT_EQ(QueuedEntries().size(), state == kIdle ? 0u : 2u);

    device.Plug();
    device.SetScript(AnswerAll);
    device.ClearWrites();
    Queue({0x23}, 300);
    EXPECT_TRUE(device.writes().empty());
    EXPECT_EQ(Start(), 0u);
    EXPECT_TRUE(QueuedEntries().empty());
    Queue({0x24}, 50);
    EXPECT_EQ(WrittenCommands(), (Commands{0x24}));
  }
}

TEST_F(Loop, StartGoesOverToNewPaths) {
  HookedDevice other(kOtherPath, AnswerAll);
  const uintptr_t thread = Start();
  EXPECT_NE(thread, 0u);
  device.SetScript({});
  Queue({0x21, 0x22}, 20);
  EXPECT_EQ(UsbServer_KeyboardStart(other.Path(), other.Path(), OnReport), 0u);
  Queue({0x23}, 50);
  EXPECT_EQ(WrittenCommands(), (Commands{0x21}));
  ASSERT_EQ(other.writes().size(), 1u);
  EXPECT_EQ(other.writes()[0].report[5], 0x80);
  EXPECT_EQ(CallbackCommands(), (Commands{0x23}));

  // A managed start uses its first path for both.
  const std::string narrow = WideToNarrow(device.Path());
  CS_UsbServer_Start(narrow.c_str(), "elsewhere", OnReport);
  std::wstring current;
  UsbServer_GetCurrentOutputDevice(current);
  EXPECT_EQ(current, device.Path());
  device.SetScript(AnswerAll);
  Queue({0x24}, 50);
  EXPECT_EQ(device.writes().back().report[5], 0x00);
  EXPECT_EQ(CallbackCommands(), (Commands{0x23, 0x24}));
  CloseHandle(reinterpret_cast<HANDLE>(thread));
}

TEST_F(Loop, AStartIsNeverLost) {
  const auto thread = reinterpret_cast<HANDLE>(Start());
  // At once after an exit: the running loop goes on.
  UsbServer_Exit();
  EXPECT_EQ(Start(), 0u);
  Queue({0x21}, 50);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21}));
  // After the loop has seen the exit, before its thread has ended: the thread runs it again.
  device.on_close = [&] { EXPECT_EQ(UsbServer_Start(device.Path(), device.Path(), OnReport), 0u); };
  UsbServer_Exit();
  Sleep(50);
  Queue({0x22}, 50);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21, 0x22}));
  EXPECT_EQ(WaitForSingleObject(thread, 0), static_cast<DWORD>(WAIT_TIMEOUT));
  // After the thread has ended: a new one.
  UsbServer_Exit();
  EXPECT_EQ(WaitForSingleObject(thread, 1000), static_cast<DWORD>(WAIT_OBJECT_0));
  CloseHandle(thread);
  const uintptr_t again = Start();
  EXPECT_NE(again, 0u);
  CloseHandle(reinterpret_cast<HANDLE>(again));
  // A callback may start and exit, too.
  on_callback = [&](const Callback& callback) {
    if (callback.frame[1] == 0x24) return UsbServer_Exit();
    EXPECT_EQ(UsbServer_Start(device.Path(), device.Path(), OnReport), 0u);
    Queue({0x24});
  };
  Queue({0x23}, 100);
  EXPECT_EQ(CallbackCommands(), (Commands{0x21, 0x22, 0x23, 0x24}));
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
}

// A start for another device, when the loop has opened this one and is about to write.
TEST_F(Loop, WhatIsQueuedForAnotherDeviceNeverReachesThisOne) {
  HookedDevice other(kOtherPath, AnswerAll);
  device.on_open = [&] {
    UsbServer_Start(other.Path(), other.Path(), OnReport);
    UsbServer_SetClearSetting();
  };
  Start();
  Sleep(60);
  EXPECT_TRUE(device.writes().empty());
  EXPECT_EQ(other.writes().size(), 1u);
  EXPECT_EQ(CallbackCommands(), (Commands{PERILINK_COMMAND_CLEAR_SETTING}));
}

// What fails once, or for a while, on a device that is there makes it neither deaf nor lost.
TEST_F(Loop, FailedReadsAndEnumerationsAreGotOver) {
  for (const char* function : {"ReadFile", "GetOverlappedResult", "SetupDiGetClassDevsW",
                               "SetupDiEnumDeviceInterfaces", "SetupDiGetDeviceInterfaceDetailW"}) {
    Start();
    callbacks.clear();
    platform::ArmFault(function, 1, true);
    device.Deliver(Event(1));
    Sleep(2500);
    platform::DisarmFault();
    Sleep(50);
    Queue({0x21});
    device.Deliver(Event(2));
    Sleep(100);
    ASSERT_GE(callbacks.size(), 2u) << function;
    EXPECT_EQ(CallbackCommands()[callbacks.size() - 1] + CallbackCommands()[callbacks.size() - 2],
              0x21 + PERILINK_COMMAND_EVENT)
        << function;
  }
}

TEST_F(Loop, ASecondLoopWaitsForTheFirst) {
  const auto server = reinterpret_cast<HANDLE>(Start());
  const HANDLE second = CreateThread(
      nullptr, 0, [](LPVOID) { return UsbReaderWriterServer(), DWORD{0}; }, nullptr, 0, nullptr);
  std::set<std::thread::id> threads;
  on_callback = [&](const Callback&) { threads.insert(std::this_thread::get_id()); };
  for (int i = 0; i < 20; ++i) {
    Start();
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
