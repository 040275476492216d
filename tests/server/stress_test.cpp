// Real threads: hosts call every export of the family while the device comes, goes and answers.
// What this is for is what a thread sanitizer has to say.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "battery/registry_fixture.h"
#include "perilink/battery.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "queueing_exports.h"
#include "sim/mouse.h"

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

void CloseThread(uintptr_t thread) {
  if (thread != 0) CloseHandle(reinterpret_cast<HANDLE>(thread));
}

// The host's own loop, UsbReaderWriterServer, is not among what is called: beside the server's
// thread it would be a second owner of what the loop owns.
void Act(const sim::Mouse& mouse, std::mt19937& random, ProtocolData& record) {
  const std::wstring path = mouse.CommandPath();
  const std::string narrow = mouse.CommandPathNarrow();
  const auto value = static_cast<uint8_t>(random());
  const QueueingExports& queueing = kQueueingExports[random() % kQueueingExports.size()];
  const uint32_t voltages[21] = {};
  const uint8_t data[12] = {};
  std::wstring text;
  ProtocolData previous{};
  QueueEntry entry;
  const std::function<void()> actions[] = {
      [&] { CloseThread(UsbServer_Start(path, path, OnReport)); },
      [&] { CloseThread(UsbServer_KeyboardStart(path, path, OnReport)); },
      [&] { CS_UsbServer_KeyboardStart(narrow.c_str(), "", OnReport); },
      [&] { UsbServerC_KeyboardStart(narrow.c_str(), narrow.c_str(), OnReport); },
      [&] { UsbServerC_Start(narrow.c_str(), narrow.c_str(), OnReport); },
      [&] { CS_UsbServer_Start(narrow.c_str(), "", nullptr); },
      [&] { UsbServer_Exit(); },
      [&] { CS_UsbServer_SetThreadSleepTime(1 + value % 8); },
      [&] { UsbServer_GetCurrentInputDevice(text), UsbServer_GetCurrentOutputDevice(text); },
      [&] { SafeArrayDestroy(CS_UsbServer_GetCurrentInputDevice()); },
      [&] { SafeArrayDestroy(CS_UsbServer_GetCurrentOutputDevice()); },
      [&] { queueing.exports[value % queueing.exports.size()](); },
      [&] { UsbServer_ReadEncryption(), UsbServer_ReadAllFlashData(); },
      [&] { UsbServer_ReadReportRate(), UsbServer_ReadCurrentDPI(); },
      [&] { UsbServer_ReadDPILed(), UsbServer_ReadLedBar(); },
      [&] { SafeArrayDestroy(CS_UsbKeyboard_LoadLayerKeys(narrow.c_str(), value % 5)); },
      [&] { UsbServer_SetDeviceDescriptorString(L"a text of more than ten"); },
      [&] { UsbServer_ReadFalshData(value, value, 0); },
      [&] { UsbServer_SetPCDriverStatus(value % 2); },
      [&] { UsbServer_SetData(0x07, data, value % 12); },
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
      [&] { UsbServer_GetData(value % 12); },
  };
  actions[random() % std::size(actions)]();
}

class Stress : public RegistryTest {};

TEST_F(Stress, HostsAndDevicesAtOnce) {
  const uint64_t handles = platform::OpenHandleCount();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  const auto running = [&] { return std::chrono::steady_clock::now() < end; };
  sim::Mouse mouse;
  mouse.SetLogging(false);
  mouse.Plug();
  std::vector<std::thread> hosts;
  for (uint32_t seed = 1; seed <= 3; ++seed) {
    hosts.emplace_back([&, seed] {
      std::mt19937 random(seed);
      ProtocolData record{};
      for (int i = 0; running(); ++i) {
        Act(mouse, random, record);
        if (i % 4 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    });
  }
  for (int i = 0; running(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    mouse.SendEvent(static_cast<uint8_t>(i));
    if (i % 16 == 8) mouse.Unplug();
    if (i % 16 == 12) mouse.Plug();
  }
  for (std::thread& host : hosts)
    host.join();
  UsbServer_Exit();
  for (int i = 0; i < 500 && platform::OpenHandleCount() > handles; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(platform::OpenHandleCount(), handles);
  EXPECT_GT(reports.load(), 10u);
}

}  // namespace
}  // namespace perilink::testing
