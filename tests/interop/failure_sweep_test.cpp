// The nth call to the system fails, or the nth allocation, or every one from the nth on, for every
// n, until an export and the threads that it starts run without a failure: nothing is thrown,
// nothing stays behind, what it returns is documented for a failure, and the next call works. What
// the server's loop makes of failures the simulation shows.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "perilink/battery.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "perilink/upgrade.h"
#include "perilink/usb_changed.h"
#include "platform/ansi_text.h"
#include "server/state.h"
#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "support/failing_new.h"
#include "support/interop_values.h"
#include "support/other_mouse.h"
#include "support/scripted_device.h"
#include "upgrade/log.h"
#include "upgrade/turn.h"

namespace {

bool counting_locks = false;
uint64_t locks = 0;
uint64_t failing_lock = 0;

}  // namespace

// A lock of the library's, not of the system's or of the virtual devices', can't be had.
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
  using Lock = int (*)(pthread_mutex_t*);
  static const auto lock = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  if (counting_locks && !perilink::testing::WithinTheSystem(__builtin_return_address(0)) &&
      ++locks == failing_lock)
    return EDEADLK;
  return lock(mutex);
}

namespace perilink::testing {
namespace {

using Narrow = std::vector<std::string>;
using Wide = std::vector<std::wstring>;

// What a call has left behind: its whole work, a documented failure, or anything else.
enum class Outcome { kWhole, kFailed, kBroken };

template <typename Value>
Outcome Judge(const Value& seen, const std::type_identity_t<Value>& whole,
              std::initializer_list<std::type_identity_t<Value>> failures) {
  if (seen == whole) return Outcome::kWhole;
  return std::ranges::count(failures, seen) > 0 ? Outcome::kFailed : Outcome::kBroken;
}

struct Swept {
  const char* name;
  std::function<void()> call;
  std::function<Outcome()> judge;
  std::function<void()> prepare = [] {};
};

// What may fail beside the system functions, which have names.
constexpr const char* kAllocation = "allocation";
constexpr const char* kLogAllocation = "allocation for a log line";
constexpr const char* kLock = "lock";

void Arm(const char* what, uint64_t nth, bool for_ever) {
  if (what == kAllocation) {
    FailingNew::ArmAll(nth, for_ever);
  } else if (what == kLogAllocation) {
    FailingNew::ArmAll(
        nth, for_ever,
        {reinterpret_cast<const void*>(&LogParts), reinterpret_cast<const void*>(&LogHexLine),
         reinterpret_cast<const void*>(&LogUpgradeFile)});
  } else if (what == kLock) {
    locks = 0;
    failing_lock = nth;
    counting_locks = true;
  } else {
    platform::ArmFault(what, nth, for_ever);
  }
}

// How many there were since Arm.
uint64_t Disarm(const char* what) {
  if (std::exchange(counting_locks, false)) return locks;
  if (what == kAllocation || what == kLogAllocation) return FailingNew::DisarmAll();
  const uint64_t calls = platform::PlatformCallCount();
  platform::DisarmFault();
  return calls;
}

// Every one; under a sanitizer, which makes an upgrade many times as long, some fifty of them.
uint64_t StepOver([[maybe_unused]] uint64_t count) {
#ifdef __SANITIZE_ADDRESS__
  return 1 + count / 50;
#else
  return 1;
#endif
}

void Sweep(const Swept& swept, const char* what, bool for_ever = false) {
  const uint64_t handles = platform::OpenHandleCount();
  for (uint64_t nth = 1, count = nth; nth <= count + 1; nth += StepOver(count)) {
    SCOPED_TRACE(::testing::Message() << swept.name << ", " << nth << " " << what);
    swept.prepare();
    Arm(what, nth, for_ever);
    swept.call();
    count = Disarm(what);
    const Outcome outcome = swept.judge();
    EXPECT_NE(outcome, Outcome::kBroken);
    EXPECT_EQ(platform::OpenHandleCount(), handles);
    if (outcome == Outcome::kWhole) continue;
    EXPECT_GE(count, nth);
    swept.prepare();
    swept.call();
    EXPECT_EQ(swept.judge(), Outcome::kWhole);
  }
}

void SweepAllocations(const Swept& swept) {
  Sweep(swept, kAllocation);
}

// Calls that a failure must leave nothing behind of. Of those that release, nothing can be asked
// when they fail.
void SweepEverything(const Swept& swept) {
  SweepAllocations(swept);
  for (const char* function :
       {"SetupDiGetClassDevsW", "SetupDiEnumDeviceInterfaces", "SetupDiGetDeviceInterfaceDetailW",
        "MultiByteToWideChar", "WideCharToMultiByte", "SysAllocString", "SafeArrayCreate",
        "SafeArrayPutElement", "SafeArrayAccessData", "CreateFileW", "CreateEventW", "ResetEvent",
        "ReadFile", "WriteFile", "WaitForSingleObject", "CancelIo", "HidD_GetAttributes"})
    Sweep(swept, function);
}

Wide TextsOf(SAFEARRAY* array) {
  return array == nullptr ? Wide{} : TakeTexts(array);
}
Narrow NarrowOf(const Wide& texts) {
  Narrow narrow;
  for (const std::wstring& text : texts)
    narrow.push_back(WideToNarrow(text));
  return narrow;
}
Report BytesOf(SAFEARRAY* array) {
  return array == nullptr ? Report{} : TakeBytes(array);
}

Report BytesIn(const DataRecord10& record) {
  return {std::begin(record.bytes), std::end(record.bytes)};
}

// The number of frames queued, which are taken off.
size_t TakeQueued() {
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  const size_t count = queues.commands.Size();
  queues.commands.Clear();
  return count;
}

DWORD Echo(ScriptedDevice& self, const Report& written) {
  self.Deliver(written, 1);
  return 0;
}

// A list in its narrow and its managed form, which go through the code page.
template <typename NarrowList, typename ManagedList, typename... Arguments>
void SweepList(const Wide& found, NarrowList narrow, ManagedList managed, Arguments... arguments) {
  char** texts = nullptr;
  uint32_t count = 0;
  SAFEARRAY* array = nullptr;
  const auto judge = [&](const Narrow& seen) {
    // A failed enumeration ends with what it has; a text that can't be converted is an empty one.
    const auto same = [](const std::string& text, const std::wstring& path) {
      return text.empty() || NarrowToWide(text) == path;
    };
    const bool sound =
        seen.size() <= found.size() && std::equal(seen.begin(), seen.end(), found.begin(), same);
    const bool whole = seen.size() == found.size() && std::ranges::count(seen, "") == 0;
    return sound && whole ? Outcome::kWhole : sound ? Outcome::kFailed : Outcome::kBroken;
  };
  SweepEverything({"narrow list", [&] { texts = narrow(arguments..., &count); },
                   [&] { return judge(TakeTexts(texts, count)); }});
  SweepEverything({"managed list", [&] { array = managed(arguments...); },
                   [&] { return judge(NarrowOf(TextsOf(array))); }});
}

TEST(FailureSweep, Lists) {
  const ScriptedDevice first(L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col05#Größe 鼠");
  const ScriptedDevice second(L"\\\\?\\hid#vid_1234&pid_0001");
  const Wide both = {first.Path(), second.Path()};
  const Wide one = {first.Path()};
  sim::UpgradeImage image;
  image.boot_input = "col05";
  const sim::Bytes file = sim::UpgradeFileBuilder(image).Build();
  SweepList(both, UsbFinderC_EnumHidDeviceList, CS_UsbFinder_EnumHidDeviceList);
  SweepList(both, UsbFinderC_FindHidDevices, CS_UsbFinder_FindHidDevices, "1234", "");
  SweepList(one, UsbFinderC_FindHidDevicesByKey, CS_UsbFinder_FindHidDevicesByKey, "röße 鼠");
  SweepList(one, UsbFinderC_FindHidDevicesByDeviceId, CS_UsbFinder_FindHidDevicesByDeviceId, "1234",
            "ABCD", 1, 5);
  SweepList(one, UsbFinderC_FindHidDevicesByDefaultDeviceId,
            CS_UsbFinder_FindHidDevicesByDefaultDeviceId, "1234", "ABCD");
  SweepList(one, UsbUpgradeC_FindBootDevices, CS_UsbUpgrade_FindBootDevices, file.data());
  // Nothing is found for empty and for null text, and for bytes that are no text.
  const char* const none = nullptr;
  SweepList({}, UsbFinderC_FindHidDevicesByKey, CS_UsbFinder_FindHidDevicesByKey, "");
  SweepList({}, UsbFinderC_FindHidDevicesByKey, CS_UsbFinder_FindHidDevicesByKey, none);
  SweepList({}, UsbFinderC_FindHidDevices, CS_UsbFinder_FindHidDevices, "12\xFF\x34", "abcd");
  SweepList({}, UsbFinderC_FindHidDevices, CS_UsbFinder_FindHidDevices, none, "");
}

TEST(FailureSweep, DirectCalls) {
  ScriptedDevice device(kScriptedPath, Echo);
  const std::string path = WideToNarrow(kScriptedPath);
  const Report request = Closed({0x08, 0x42, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  SAFEARRAY* array = nullptr;
  DataRecord10 record;
  const DataRecord10 data = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};
  Report reply;
  HIDD_ATTRIBUTES attributes;
  const Swept kSwept[] = {
      {"managed reply", [&] { array = CS_UsbFinder_GetDeviceOnLineWithUsbAddress(path.c_str()); },
       [&] {
         return Judge(BytesOf(array), Closed({8, 3}), {{}, Report(17)});
       }},
      {"record",
       [&] { UsbFinderC_SetCommand(path.c_str(), 0x42, data.bytes, 10, 2, 100, &record); },
       [&] { return Judge(BytesIn(record), BytesIn(data), {Report(10, 0xEE)}); },
       [&] { std::ranges::fill(record.bytes, uint8_t{0xEE}); }},
      {"attributes", [&] { UsbFinderC_GetUsbDeviceAttribute(path.c_str(), &attributes); },
       [&] { return Judge(attributes.VendorID, 0x1234, {0}); }, [&] { attributes = {}; }},
      {"raw exchange",
       [&] {
         UsbFinderC_OpenDevice(path.c_str());
         UsbFinderC_ReadWriteDeviceData(request.data(), reply.data(), 17);
         UsbFinderC_CloseDevice();
       },
       [&] { return Judge(reply, request, {Report(17)}); }, [&] { reply.assign(17, 0xEE); }},
      // All frames of a call are queued, or none; a text that can't be converted is an empty one.
      {"queued text",
       [] { UsbServerC_SetDeviceDescriptorString("a text of over thirty characters"); },
       [] {
         return Judge(TakeQueued(), 3, {0, 1});
       }},
      {"layer keys", [&] { array = CS_UsbKeyboard_LoadLayerKeys(path.c_str(), 0); },
       [&] { return Judge(BytesOf(array).size(), 1, {0}); }},
  };
  for (const Swept& swept : kSwept)
    SweepEverything(swept);
}

// Nothing is thrown when a lock can't be had, and the next call works.
TEST(FailureSweep, Locks) {
  const uint32_t voltages[21] = {};
  const auto record = std::make_unique<ProtocolData>();
  uint32_t count = 0;
  QueueEntry entry{};
  std::wstring text;
  const std::function<void()> kCalls[] = {
      [&] { SetDllProtocolData(record.get()); },
      [&] { ProtocolDataUpdate(record.get()); },
      [&] { UsbServer_SetBatteryOptimizeSection(voltages); },
      [&] { UsbServer_SetBatteryOptimizeLastBattery(1, 2); },
      [&] { UsbServer_SetPCDriverStatus(1); },
      [&] { UsbServer_ReadVersion(); },
      [&] { UsbServer_GetCurrentInputDevice(text); },
      [&] { UsbServer_Exit(); },
      [&] { UsbServer_WriteCommand(&entry); },
      [&] { CS_UsbServer_Thread(); },
      [&] { StartUsbChanged(nullptr, 0); },
      [&] { StopUsbChanged(); },
      [&] { UsbFinderC_OpenDevice("nowhere"); },
      [&] { UsbFinderC_CloseDevice(); },
      [&] { TakeTexts(UsbUpgradeC_GetLogs(&count), count); },
      [&] { SafeArrayDestroy(CS_UsbUpgrade_FileSplit(nullptr, 0, 0)); },
      [&] { UsbUpgrade_Start(nullptr, nullptr, 1000); },
  };
  UsbServer_Exit();
  for (const auto& call : kCalls) {
    for (uint64_t nth = 1; nth <= 40; ++nth) {
      Arm(kLock, nth, false);
      EXPECT_NO_THROW(call());
      Disarm(kLock);
    }
  }
  TakeQueued();
  UsbServer_ReadVersion();
  EXPECT_EQ(TakeQueued(), 1u);
}

bool started = false;
int result = 0;  // of the last upgrade: the code of its last event

int PERILINK_CALL WatchUpgrade(const uint8_t* event, uint32_t) {
  if (event[1] == 2) result = event[2];
  return 0;
}

// Once it was started, an upgrade tells how it ended.
Outcome JudgeUpgrade() {
  if (result == 1) return Outcome::kWhole;
  return started == (result != 0) ? Outcome::kFailed : Outcome::kBroken;
}

TEST(FailureSweep, Upgrade) {
  std::optional<sim::Mouse> mouse;
  std::optional<sim::Mouse> slave;
  const auto renew_devices = [&] {
    mouse.emplace().Plug();
    slave.emplace(OtherMouse()).Plug();
  };
  renew_devices();
  const auto new_firmware = sim::MakeVirtualFirmware(0x0234, 100);
  const sim::Bytes file = sim::UpgradeFileBuilder(sim::ImageFor(*mouse, new_firmware)).Build();
  const sim::Bytes set = sim::UpgradeFileBuilder(sim::ImageFor(*mouse, new_firmware))
                             .Slave(sim::ImageFor(*slave, new_firmware))
                             .Build();
  const auto size = static_cast<uint32_t>(file.size());
  SAFEARRAY* array = nullptr;
  char** texts = nullptr;
  uint32_t count = 0;
  const auto upgrade = [&set] {
    started = UsbUpgrade_Start(set.data(), WatchUpgrade, 2000);
    while (!TakeUpgradeTurn())
      Sleep(10);
    GiveUpgradeTurn();
    Sleep(10);
  };
  const auto await_restart = [&] {
    Sleep(1000);
    started = false;
    result = 0;
    renew_devices();
  };
  // By its last line; the failure is no log at all.
  const auto judge_log = [](const auto& log, const auto& last) {
    return Judge(log.empty() ? last.substr(0, 0) : log.back(), last, {last.substr(0, 0)});
  };
  SweepAllocations({"managed split", [&] { array = CS_UsbUpgrade_FileSplit(file.data(), size, 0); },
                    [&] { return Judge(BytesOf(array), file, {{}}); }});
  const Swept of_set = {"upgrade of a set", upgrade, JudgeUpgrade, await_restart};
  SweepAllocations(of_set);
  Sweep(of_set, "*");
  Sweep(of_set, kAllocation, true);
  Sweep(of_set, kLock);
  // What a line of the log lacks ends nothing.
  Sweep({of_set.name, of_set.call, [] { return result == 1 ? Outcome::kWhole : Outcome::kBroken; },
         of_set.prepare},
        kLogAllocation);
  const Swept kSwept[] = {
      {"narrow log", [&] { texts = UsbUpgradeC_GetLogs(&count); },
       [&] { return judge_log(TakeTexts(texts, count), std::string("All Upgrade Success")); }},
      {"managed log", [&] { array = CS_UsbUpgrade_GetLogs(); },
       [&] { return judge_log(TextsOf(array), std::wstring(L"All Upgrade Success")); }},
  };
  for (const Swept& swept : kSwept)
    SweepAllocations(swept);
}

}  // namespace
}  // namespace perilink::testing
