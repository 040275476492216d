// Real threads: hosts call exports of every family while the devices come, go, answer and are
// upgraded. What this is for is what a thread sanitizer has to say.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "arrival/arrival.h"
#include "battery/registry_fixture.h"
#include "perilink/battery.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "perilink/upgrade.h"
#include "perilink/usb_changed.h"
#include "platform/ansi_text.h"
#include "protocol/stored.h"
#include "server/queueing_exports.h"
#include "server/state.h"
#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "support/interop_values.h"
#include "support/other_mouse.h"
#include "upgrade/turn.h"

namespace perilink::testing {
namespace {

std::atomic<uint64_t> reports{0};

void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t, const uint8_t* data, uint32_t length) {
  uint64_t sum = frame[1];
  for (uint32_t i = 0; i < length; ++i)
    sum += data[i];
  reports.fetch_add(sum != 0, std::memory_order_relaxed);
  if (frame[1] == 0x12) UsbServer_ReadOnLine();
}

void ReadLog() {
  uint32_t count = 0;
  char** const lines = UsbUpgradeC_GetLogs(&count);
  TakeTexts(lines, count);
}

int PERILINK_CALL OnUpgrade(const uint8_t* event, uint32_t) {
  if (event[1] == 2) ReadLog();
  return 0;
}

void CloseThread(uintptr_t thread) {
  if (thread != 0) CloseHandle(reinterpret_cast<HANDLE>(thread));
}

void Pump() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
}

void Act(const sim::Mouse& mouse, const sim::Bytes& file, std::mt19937& random,
         ProtocolData& record) {
  const std::wstring path = mouse.CommandPath();
  const std::string narrow = mouse.CommandPathNarrow();
  const auto value = static_cast<uint8_t>(random());
  const QueueingExports& queueing = kQueueingExports[random() % kQueueingExports.size()];
  const uint32_t voltages[21] = {};
  std::wstring text;
  ProtocolData previous{};
  QueueEntry entry;
  BatteryLevel battery{};
  sim::Bytes report(17, 0x42);
  sim::Bytes image(file.size());
  uint32_t length = 0;
  const std::function<void()> actions[] = {
      [&] { CloseThread(UsbServer_Start(path, path, OnReport)); },
      [&] { CloseThread(UsbServer_KeyboardStart(path, path, OnReport)); },
      [&] { UsbServerC_Start(narrow.c_str(), narrow.c_str(), OnReport); },
      [&] { CS_UsbServer_Start(narrow.c_str(), "", nullptr); },
      [&] { UsbServer_Exit(); },
      [&] { CS_UsbServer_SetThreadSleepTime(1 + value % 8); },
      [&] { UsbServer_GetCurrentInputDevice(text), UsbServer_GetCurrentOutputDevice(text); },
      [&] { queueing.exports[value % queueing.exports.size()](); },
      [&] { UsbServer_ReadEncryption(), UsbServer_ReadAllFlashData(); },
      [&] { SafeArrayDestroy(CS_UsbKeyboard_LoadLayerKeys(narrow.c_str(), value % 5)); },
      [&] { UsbServer_SetDeviceDescriptorString(L"a text of more than ten"); },
      [&] { UsbServer_ReadFalshData(value, value, 0); },
      [&] { UsbServer_SetPCDriverStatus(value % 2); },
      [&] { UsbServer_InitWriteCommand(&entry), UsbServer_WriteCommand(&entry); },
      [&] { ProtocolDataUpdate(&record); },
      [&] { CS_ProtocolDataCompareUpdate(&record, &previous); },
      [&] { SetDllProtocolData(&record); },
      [&] { UsbServer_SetBatteryOptimizeEnable(value); },
      [&] { UsbServer_SetBatteryOptimizeSection(voltages); },
      [&] { UsbServer_SetBatteryOptimizeLastBattery(value, value); },
      [&] { UsbServer_SetBatteryOptimizeParam(value, value, value); },
      [&] { CS_UsbServer_ReStartBatteryOptimize(); },
      [&] { value % 2 ? UsbFinder_SetKeyboardMode() : UsbFinder_SetMouseMode(); },
      [&] { record.report_rate = value; },
      [&] { UsbServer_Exit(), UsbReaderWriterServer(); },
      // Every open of the device hears every reply, so an exchange may use up its tries on those to
      // the other threads: that it returns counts, not what.
      [&] { UsbFinderC_GetVersion(narrow.c_str()), UsbFinder_GetDeviceInfo(path, 1); },
      [&] { UsbFinderC_GetBatteryLevel(narrow.c_str(), &battery); },
      [&] { TakeBytes(CS_UsbFinder_GetDeviceOnLineWithUsbAddress(narrow.c_str())); },
      [&] { TakeTexts(CS_UsbFinder_FindHidDevicesByKey("vid_1234")); },
      // Against its contract the hosts share the open pair; nothing worse than false comes of it.
      [&] { UsbFinderC_OpenDevice(narrow.c_str()); },
      [&] { UsbFinder_WriteDeviceData(report.data(), 17); },
      [&] { UsbFinderC_ReadWriteDeviceData(report.data(), report.data(), 17); },
      [&] { UsbFinderC_CloseDevice(); },
      [&] { UsbUpgrade_Start(file.data(), OnUpgrade, 1000); },
      [&] { UsbUpgrade_Start(sim::Bytes(8192).data(), nullptr, 0); },
      [&] { EXPECT_TRUE(UsbUpgrade_FileSplit(file.data(), 0, image.data(), &length, 0)); },
      [&] { ReadLog(), UsbUpgrade_EnableSaveLogFile(0); },
      [&] { StartUsbChanged([](bool) {}, 0); },
      [&] { StopUsbChanged(), Pump(); },
  };
  actions[random() % std::size(actions)]();
}

class Stress : public RegistryTest {};

TEST_F(Stress, HostsAndDevicesAtOnce) {
  const uint64_t handles = platform::OpenHandleCount();
  // Long enough for the library to have been at work, on a slow machine too.
  constexpr uint32_t kEnoughReports = 11;
  const auto start = std::chrono::steady_clock::now();
  const auto running = [&] {
    const auto passed = std::chrono::steady_clock::now() - start;
    return passed < std::chrono::seconds(reports < kEnoughReports ? 30 : 3);
  };
  sim::Mouse mouse;
  mouse.SetLogging(false);
  mouse.Plug();
  sim::Mouse upgraded(OtherMouse());
  upgraded.Plug();
  const sim::Bytes file =
      sim::UpgradeFileBuilder(sim::ImageFor(upgraded, sim::MakeVirtualFirmware(0x0234, 100)))
          .Build();
  constexpr int kHosts = 3;
  std::barrier together(kHosts);
  std::vector<std::thread> hosts;
  for (uint32_t seed = 1; seed <= kHosts; ++seed) {
    hosts.emplace_back([&, seed] {
      std::mt19937 random(seed);
      ProtocolData record{};
      for (int i = 0; running(); ++i) {
        Act(mouse, file, random, record);
        if (i % 4 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
      // However many start at the same moment, they make one window: a single stop ends it.
      for (int round = 0; round < 300; ++round) {
        together.arrive_and_wait();
        StartUsbChanged(nullptr, 0);
        together.arrive_and_wait();
        StopUsbChanged();
        together.arrive_and_wait();
        Pump();
        together.arrive_and_wait();
        EXPECT_EQ(FindWindowW(kNoticeClass, nullptr), nullptr);
      }
    });
  }
  for (int i = 0; running(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    mouse.SendEvent(static_cast<uint8_t>(i));
    if (i % 16 == 8) mouse.Unplug();
    if (i % 16 == 12) mouse.Plug();
  }
  // A host that runs the loop itself needs to be told, and another may just have started it again.
  std::atomic<bool> joined{false};
  std::thread ender([&] {
    for (; !joined; std::this_thread::sleep_for(std::chrono::milliseconds(10)))
      UsbServer_Exit();
  });
  for (std::thread& host : hosts)
    host.join();
  joined = true;
  ender.join();
  UsbServer_Exit();
  UsbFinderC_CloseDevice();
  while (!TakeUpgradeTurn())
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  GiveUpgradeTurn();
  for (int i = 0; i < 500 && platform::OpenHandleCount() > handles; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(platform::OpenHandleCount(), handles);
  EXPECT_GE(reports.load(), kEnoughReports);
}

// The server works without a pause: the device answers at once, or refuses every write. It is not
// to hold its lock while it waits for the next write.
TEST_F(Stress, AHostIsNotKeptWaiting) {
  using Clock = std::chrono::steady_clock;
  sim::DeviceOptions options = sim::Mouse::Options();
  options.firmware.latency_micros = 0;
  sim::Mouse mouse(options);
  mouse.SetLogging(false);
  mouse.Plug();
  for (const bool refuses : {false, true}) {
    if (refuses) mouse.faults().FailWrite(sim::Always());
    CloseThread(UsbServer_Start(mouse.CommandPath(), mouse.CommandPath(), OnReport));
    UsbServer_ReadFalshData(0, 4000, 0);
    std::vector<Clock::duration> waits;
    for (const auto end = Clock::now() + std::chrono::seconds(1); Clock::now() < end;) {
      const auto start = Clock::now();
      UsbServer_ReadFalshData(0, 20, 0);
      waits.push_back(Clock::now() - start);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::ranges::sort(waits);
    EXPECT_LT(waits[waits.size() / 2], std::chrono::milliseconds(2)) << "of " << waits.size();
  }
  UsbServer_Exit();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
}

// What one thread stores is not undone by another's update that can't be queued.
TEST_F(Stress, ARefusedUpdateTakesNothingBack) {
  QueueEntry entry;
  UsbServer_InitWriteCommand(&entry);
  for (int i = 0; i < PERILINK_QUEUE_LIMIT; ++i)
    UsbServer_WriteCommand(&entry);
  StoredProtocolData& stored = StoredProtocolData::Instance();
  stored.MarkParsed();
  std::atomic<bool> done{false};
  std::thread updater([&] {
    ProtocolData record{};
    record.report_rate = 0xFF;
    while (!done)
      ProtocolDataUpdate(&record);
  });
  int undone = 0;
  for (uint8_t round = 0; round < 200; ++round) {
    ProtocolData record{};
    record.report_rate = round;
    SetDllProtocolData(&record);
    std::this_thread::yield();
    undone += stored.With([](const ProtocolData& it) { return it.report_rate; }) != round;
  }
  done = true;
  updater.join();
  EXPECT_EQ(undone, 0);
  EXPECT_EQ(ServerState::Instance().LockQueues().commands.Size(), size_t{PERILINK_QUEUE_LIMIT});
}

}  // namespace
}  // namespace perilink::testing
