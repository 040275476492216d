// Hosts that call discovery, pass-through and direct commands from several threads at once.
#include <gtest/gtest.h>

#include <thread>

#include "perilink/finder.h"
#include "platform/ansi_text.h"
#include "support/interop_values.h"
#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 25;

void AskEverything(const std::string& path) {
  const std::wstring wide_path = NarrowToWide(path);
  DataRecord10 record{};
  BatteryLevel battery{};
  CidMid ids{};
  UsbFinder_SetKeyboardMode();
  EXPECT_EQ(TakeTexts(CS_UsbFinder_FindHidDevicesByKey(path.c_str())).size(), 1u);
  // Every open of the device hears every reply, so an exchange may use up its tries on those to
  // the other threads: what it returns does not count here, that it returns does.
  UsbFinderC_GetVersion(path.c_str());
  UsbFinder_GetDeviceInfo(wide_path, 1);
  UsbFinderC_GetBatteryLevel(path.c_str(), &battery);
  UsbFinder_SetMouseMode();
  UsbFinder_ReadCidMid(wide_path, 0, &ids);
  UsbFinderC_SetCommand(path.c_str(), 0x42, record.bytes, 10, 1, 5, &record);
  EXPECT_EQ(TakeBytes(CS_UsbFinder_GetDeviceOnLineWithUsbAddress(path.c_str())).size(), 17u);
  // Against its contract the host shares the open pair; nothing worse than false comes of it.
  Report report(17, 0x42);
  UsbFinder_WriteDeviceData(report.data(), 17);
  UsbFinderC_ReadWriteDeviceData(report.data(), report.data(), 17);
  UsbFinderC_CloseDevice();
}

TEST(FinderStress, SeveralThreads) {
  ScriptedDevice device(kScriptedPath, [](ScriptedDevice& self, const Report& written) {
    self.Deliver(ReplyTo(written, {0x12, 0, 0x43}));
    return DWORD{0};
  });
  const std::string path = WideToNarrow(kScriptedPath);
  for (int round = 0; round < kRounds; ++round) {
    EXPECT_TRUE(UsbFinderC_OpenDevice(path.c_str()));
    std::vector<std::thread> hosts;
    hosts.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i)
      hosts.emplace_back([&] { AskEverything(path); });
    for (std::thread& host : hosts)
      host.join();
    UsbFinderC_CloseDevice();
  }
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
}

}  // namespace
}  // namespace perilink::testing
