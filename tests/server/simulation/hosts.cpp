#include "hosts.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "battery/voltage_table.h"
#include "commands/layer_keys.h"
#include "note.h"
#include "perilink/battery.h"
#include "perilink/config_layout.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "perilink/upgrade.h"
#include "perilink/usb_changed.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "platform/ansi_text.h"
#include "server/queueing_exports.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "support/failing_new.h"
#include "transport/frame.h"
#include "upgrade/turn.h"
#include "watch.h"

namespace perilink::testing {
namespace {

constexpr uint16_t kNewVersion = 0x0234;
constexpr uint8_t kUpdateTag = 0xFF;
constexpr uint64_t kCalmMicros = 1'500'000;
constexpr uint64_t kNoEndMicros = 1'000'000'000;

// By the devices' own builder.
CommandFrame Frame(uint8_t command, size_t length, std::span<const uint8_t> payload = {},
                   size_t address = 0) {
  const uint8_t target = KeyboardTargetFlag() ? sim::kKeyboardBit : uint8_t{0};
  const sim::Frame made = sim::MakeFrame(command, static_cast<uint8_t>(length | target), payload,
                                         static_cast<uint16_t>(address));
  CommandFrame frame;
  std::copy(made.begin(), made.end(), FrameBytes(frame).begin());
  return frame;
}

std::vector<CommandFrame> ReadFrames(size_t address, size_t length) {
  std::vector<CommandFrame> frames;
  for (size_t at = 0; at < length; at += 10)
    frames.push_back(
        Frame(PERILINK_COMMAND_READ_MEMORY, std::min<size_t>(length - at, 10), {}, address + at));
  return frames;
}

// A main host acts, and a second one beside it. Then all heals, the server comes to rest, and
// everything is let go of.
class Hosts {
 public:
  explicit Hosts(uint64_t seed) : random_(seed) { current_ = this; }

  void Run() {
    static constexpr Action kActions[] = {
        &Hosts::QueueSomething, &Hosts::QueueSomething, &Hosts::QueueSomething,
        &Hosts::QueueSomething, &Hosts::QueueSomething, &Hosts::QueueSomething,
        &Hosts::Start,          &Hosts::Start,          &Hosts::Exit,
        &Hosts::SetBattery,     &Hosts::SetBattery,     &Hosts::SetTarget,
        &Hosts::SetSleepTime,   &Hosts::SendEvent,      &Hosts::Plug,
        &Hosts::Unplug,         &Hosts::DrawFaults,     &Hosts::FailCalls,
        &Hosts::FailAllocation, &Hosts::ChangeBattery,  &Hosts::UpgradeOnce,
        &Hosts::AskSomething};
    const uint64_t handles = platform::OpenHandleCount();
    for (const auto& device : watch_.devices)
      device->mouse.Plug();
    SetSleepTime();
    Start();
    const HANDLE second = CreateThread(nullptr, 0, &Hosts::SecondHost, this, 0, nullptr);
    for (int step = 0; step < 25; ++step)
      Act(kActions);
    platform::DisarmFault();
    WaitForSingleObject(second, INFINITE);
    CloseHandle(second);
    Heal();
    End();
    if (platform::Bus().OpenConnections() != 0) Broken("a device is not released");
    if (platform::OpenHandleCount() != handles) Broken("handles are left open");
  }

 private:
  using Action = void (Hosts::*)();
  static constexpr uint32_t kCallbackCount = 4;

  uint32_t Draw(size_t bound) { return static_cast<uint32_t>(random_() % bound); }
  bool OneIn(size_t bound) { return Draw(bound) == 0; }
  uint8_t DrawByte() { return static_cast<uint8_t>(Draw(256)); }
  Device& DrawDevice() { return *watch_.devices[OneIn(3) ? 1 : 0]; }

  // ---- What hosts queue
  // --------------------------------------------------------------------------

  void Queue(std::span<const CommandFrame> frames, uint8_t tag,
             const std::function<void()>& queue) {
    const uint64_t failing = DrawFailure(50);
    watch_.server.Queue(
        frames, tag, [&] { RunFailing(failing, queue); }, failing != 0);
  }

  // Which allocation of a call fails; 0 for none. In a callback they are the server's.
  uint64_t DrawFailure(size_t one_in) {
    return healed_ || watch_.OnServerThread() || !OneIn(one_in) ? 0 : 1 + Draw(8);
  }

  // True when it has failed.
  static bool RunFailing(uint64_t nth, const std::function<void()>& run) {
    if (nth == 0) return run(), false;
    FailingNew::Arm(nth);
    run();
    FailingNew::Disarm();
    return FailingNew::HasFailed();
  }

  void QueueCommand() {
    const QueueingExports& drawn = kQueueingExports[Draw(kQueueingExports.size())];
    const bool clears = drawn.command == PERILINK_COMMAND_CLEAR_SETTING;
    if (OneIn(2) && !(clears && healed_) && drawn.command != PERILINK_COMMAND_DRIVER_STATUS &&
        drawn.command != PERILINK_COMMAND_USB_UPDATE_MODE) {
      const CommandFrame frame = Frame(drawn.command, drawn.length, drawn.payload);
      return Queue({&frame, 1}, 0, drawn.exports[Draw(drawn.exports.size())]);
    }
    // Written to the memory, by a host that goes its own way, or something unknown.
    const auto command =
        static_cast<uint8_t>(OneIn(4) ? uint32_t{PERILINK_COMMAND_WRITE_MEMORY} : 0x21 + Draw(4));
    uint8_t data[4];
    std::memcpy(data, &++serial_, sizeof(data));
    const CommandFrame frame = Frame(command, 4, data);
    Queue({&frame, 1}, 0, [&] { UsbServer_SetData(command, data, 4); });
  }

  void QueueRead() {
    struct Named {
      size_t address;
      size_t length;
      void (*read)();
    };
    static constexpr Named kNamed[] = {{0, 1, UsbServer_ReadReportRate},
                                       {4, 1, UsbServer_ReadCurrentDPI},
                                       {0x4C, 8, UsbServer_ReadDPILed},
                                       {0xA0, 9, UsbServer_ReadLedBar}};
    if (OneIn(2)) {
      const Named& named = kNamed[Draw(std::size(kNamed))];
      return Queue(ReadFrames(named.address, named.length), 0, named.read);
    }
    const uint32_t address = Draw(OneIn(2) ? 200 : 7000);
    const uint32_t length = 1 + Draw(OneIn(20) ? 300 : 40);
    Queue(ReadFrames(address, length), 0,
          [&] { UsbServer_ReadFalshData(address, static_cast<int32_t>(length), 0); });
  }

  void QueueFullRead() {
    Queue(ReadFrames(0, PERILINK_SETTINGS_BLOCK_SIZE), 1, UsbServer_ReadAllFlashData);
  }

  void QueueSomething() {
    const uint32_t kind = Draw(20);
    if (kind < 7) return QueueCommand();
    if (kind < 12) return QueueRead();
    if (kind < 18) return Update();
    if (OneIn(3)) QueueFullRead();
  }

  // ---- Updates
  // -----------------------------------------------------------------------------------

  void Change(ProtocolData& record) {
    const auto draw_events = [this](KeyEvent* events, size_t count, uint32_t delays) {
      for (KeyEvent& event : std::span(events, count))
        event = {static_cast<uint8_t>(Draw(3)),
                 static_cast<uint8_t>(Draw(16)),
                 {DrawByte(), DrawByte()},
                 Draw(delays)};
    };
    const uint32_t kind = Draw(8);
    if (kind == 0) {
      ShortcutKey& shortcut = record.shortcuts[Draw(16)];
      shortcut.count = OneIn(3) ? 0 : static_cast<uint8_t>(2 + Draw(5));
      draw_events(shortcut.events, shortcut.count, 1);
    } else if (kind == 1) {
      MacroKey& macro = record.macros[Draw(16)];
      macro.name_length = static_cast<uint8_t>(Draw(12));
      for (uint8_t& unit : std::span(macro.name, macro.name_length))
        unit = DrawByte();
      macro.count = OneIn(3) ? 0 : static_cast<uint8_t>(2 + Draw(9));
      draw_events(macro.events, macro.count, 0x10000);
    } else {
      const ConfigGroup& group = kConfigGroups[Draw(kConfigGroups.size())];
      const ConfigField& field = group.fields[Draw(group.field_count)];
      auto* const bytes = reinterpret_cast<uint8_t*>(&record) + group.record_offset +
                          Draw(group.count) * group.record_stride + field.record_offset;
      for (uint8_t& byte : std::span(bytes, field.width))
        byte = DrawByte();
    }
  }

  // Of the library's own record, or of two that are the host's.
  void Update() {
    const bool own = OneIn(6);
    const ProtocolData previous = own ? previous_ : watch_.config.record();
    ProtocolData record = previous;
    for (uint32_t changes = Draw(4); changes > 0; --changes)
      Change(record);
    const uint64_t failing = DrawFailure(20);
    bool failed = false;
    const std::vector<CommandFrame> writes = watch_.server.Queue({}, kUpdateTag, [&] {
      failed = RunFailing(failing, [&] {
        own ? CS_ProtocolDataCompareUpdate(&record, &previous_) : ProtocolDataUpdate(&record);
      });
    });
    // When nothing could be queued nothing has changed.
    const bool updated = !writes.empty() || !failed;
    if (updated) ConfigModel::CheckUpdate(previous, record, writes);
    if (updated && !own) watch_.config.OnUpdate(record);
    if (own) ConfigModel::CheckUpdate(previous_, updated ? record : previous, {});
    watch_.config.Check();
  }

  // ---- What they ask devices themselves
  // ----------------------------------------------------------

  void AskFrame() {
    const std::wstring path = DrawDevice().path();
    std::array<uint8_t, 2> field = {DrawByte(), 0};
    field[1] = sim::CheckOf(std::span(field).first(1));
    const size_t address = 2 * Draw(6);
    const CommandFrame drawn[] = {Frame(PERILINK_COMMAND_VERSION, 0),
                                  Frame(PERILINK_COMMAND_BATTERY_LEVEL, 0),
                                  Frame(PERILINK_COMMAND_ON_LINE, 0),
                                  Frame(PERILINK_COMMAND_READ_MEMORY, 10, {}, 10 * Draw(600)),
                                  Frame(0x21, 2, field),
                                  Frame(PERILINK_COMMAND_GET_LONG_RANGE, 0),
                                  Frame(PERILINK_COMMAND_WRITE_MEMORY, 2, field, address)};
    const CommandFrame& request = drawn[Draw(std::size(drawn))];
    watch_.Ask(request);
    CommandFrame reply;
    const bool replied = UsbFinder_GetDeviceData(path, &request, &reply);
    const Watch::Question question = watch_.TakeAnswer();
    if (request.command == PERILINK_COMMAND_READ_MEMORY) return;
    CommandFrame expected{};
    if (question.answer) expected = question.answer->report;
    if (replied != question.answer.has_value() ||
        std::memcmp(&reply, &expected, sizeof(reply)) != 0)
      Broken("a direct command returns something else than its device has said");
  }

  // Bytes of the memory, by whoever reads them: each is one that was there.
  void AskBytes() {
    Device& device = DrawDevice();
    const uint32_t layer = OneIn(4) ? 1 + Draw(3) : 0;
    const bool dpi = OneIn(2);
    watch_.Ask(dpi ? std::optional(Frame(PERILINK_COMMAND_READ_MEMORY, 1, {}, 4)) : std::nullopt);
    std::vector<uint8_t> bytes;
    if (dpi) {
      bytes.push_back(static_cast<uint8_t>(UsbFinder_GetCurrentDPI(device.path())));
    } else {
      bytes = LoadLayerKeys(device.path(), static_cast<uint8_t>(layer));
    }
    const Moment since = watch_.TakeAnswer().oldest;
    if (dpi) {  // 0 is no answer; one without an address counts when no other comes
      if (bytes[0] != 0 && !device.Held(since, 4, bytes[0]) && !device.Held(since, 0, bytes[0]))
        Broken("a DPI level is returned that the device never held");
      return;
    }
    if (!bytes.empty() && bytes.size() != (layer == 0 ? 1u : 512u))
      Broken("a layer of another size");
    for (size_t i = 0; i < bytes.size(); ++i)
      if (!device.Held(since, (layer == 0 ? 0 : (layer - 1) * 512) + i, bytes[i]))
        Broken("a key is read that was never there");
  }

  void AskSomething() { OneIn(3) ? AskBytes() : AskFrame(); }

  void UpgradeOnce() {
    if (upgraded_ != nullptr || !OneIn(4)) return;
    upgraded_ = &DrawDevice();
    const sim::Bytes file =
        sim::UpgradeFileBuilder(
            sim::ImageFor(upgraded_->mouse, sim::MakeVirtualFirmware(kNewVersion, 100)))
            .Build();
    UsbUpgrade_Start(file.data(), OnUpgrade, 2000);
  }

  static int PERILINK_CALL OnUpgrade(const uint8_t* message, uint32_t) {
    const FailingNew::Pause pause;
    Note("upgrade", message[1], message[2]);
    if (message[1] != 2 || message[2] == 10) return 0;
    if (++current_->results_ > 1) Broken("an upgrade ends twice");
    const uint16_t version = current_->upgraded_->mouse.firmware().options().version;
    if (message[2] == 1 && version != kNewVersion) Broken("a device is upgraded that is not");
    return 0;
  }

  // ---- Devices that come and go
  // ------------------------------------------------------------------

  void Listen() {
    if (std::exchange(listens_, true)) return;
    unheard_since_ = Device::Changes();
    heard_ = 0;
    StartUsbChanged(OnUsbChange, 0);
    if (heard_-- != 1) Broken("listening does not begin with an arrival");
  }

  // On the thread that listens.
  void Pump() {
    if (!listens_) return;
    // One more may come while the last message is looked for.
    const uint64_t changes = Device::Changes() - unheard_since_;
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
      DispatchMessageW(&message);
    if (heard_ < changes || heard_ > Device::Changes() - unheard_since_)
      Broken("a device comes or goes unheard");
  }

  static void PERILINK_CALL OnUsbChange(bool arrived) {
    const FailingNew::Pause pause;
    ++current_->heard_;
    if (arrived && !current_->healed_ && current_->OneIn(3)) current_->Start();
  }

  // ---- What else hosts do
  // ------------------------------------------------------------------------

  void Start() { StartOn(OneIn(3) ? 1 : 0); }

  void StartOn(size_t device) {
    static constexpr ServerReportCallback kCallbacks[kCallbackCount] = {OnReport<0>, OnReport<1>,
                                                                        OnReport<2>, OnReport<3>};
    const ServerReportCallback callback = kCallbacks[++starts_ % kCallbackCount];
    const std::wstring input = MarkedPath(watch_.devices[device]->path(), starts_, false);
    const std::wstring output = MarkedPath(watch_.devices[device]->path(), starts_, true);
    const bool keyboard = OneIn(3);
    watch_.OnStart(starts_, device);
    if (OneIn(2)) {
      const auto start = keyboard ? UsbServer_KeyboardStart : UsbServer_Start;
      const uintptr_t thread = start(input, output, callback);
      if (thread != 0) CloseHandle(reinterpret_cast<HANDLE>(thread));
    } else {
      const auto start = keyboard ? UsbServerC_KeyboardStart : UsbServerC_Start;
      start(WideToNarrow(input).c_str(), WideToNarrow(output).c_str(), callback);
    }
    if (KeyboardTargetFlag() != keyboard) Broken("a start sets another target");
  }

  void Exit() {
    watch_.OnExit();
    UsbServer_Exit();
  }

  void SetBattery() {
    uint32_t voltages[kVoltagePoints];
    for (size_t i = 0; i < kVoltagePoints; ++i)
      voltages[i] = static_cast<uint32_t>(3000 + 5 * i * (1 + starts_ % 9));
    const uint8_t byte = OneIn(3) ? 0 : DrawByte();
    const uint32_t time = Draw(OneIn(3) ? 10'000 : 200);
    const CommandFrame frame = Frame(PERILINK_COMMAND_DRIVER_STATUS, 1, {&byte, 1});
    switch (Draw(6)) {
      case 0:
        UsbServer_SetBatteryOptimizeEnable(byte);
        return watch_.battery.SetEnabled(byte != 0);
      case 1:
        return UsbServer_SetBatteryOptimizeParam(byte % 2, time, Draw(1000));
      case 2:
        return UsbServer_SetBatteryOptimizeSection(voltages);
      case 3:
        return UsbServer_SetBatteryOptimizeLastBattery(static_cast<int32_t>(time) - 2, byte);
      case 4:
        return CS_UsbServer_ReStartBatteryOptimize();
      default:
        watch_.server.Queue({&frame, 1}, 0, [&] { UsbServer_SetPCDriverStatus(byte); });
        watch_.battery.SetDriverStatus(byte != 0);
    }
  }

  void SetTarget() { OneIn(2) ? UsbFinder_SetKeyboardMode() : UsbFinder_SetMouseMode(); }

  void SetSleepTime() {
    const uint32_t sleep_ms = 5 + Draw(100);
    CS_UsbServer_SetThreadSleepTime(sleep_ms);
    watch_.OnSleepTime(sleep_ms);
  }

  // ---- What happens to them
  // ----------------------------------------------------------------------

  void SendEvent() {
    Device& device = DrawDevice();
    for (uint32_t events = OneIn(10) ? 40 : 1; events > 0; --events) {
      const auto flags = static_cast<uint8_t>(OneIn(2) ? Draw(256) : 0x40);
      platform::ScheduleIn(Draw(20'000), [&device, flags] { device.SendEvent(flags); });
    }
  }

  void Plug() {
    Device& device = DrawDevice();
    device.mouse.Plug();
    if (OneIn(4)) device.mouse.SetAsleep(OneIn(2));
  }

  void Unplug() {
    Device& device = DrawDevice();
    const uint64_t in_micros = Draw(30'000);
    const uint64_t for_micros = Draw(OneIn(2) ? 30'000 : 3'000'000);
    platform::ScheduleIn(in_micros, [&device, for_micros] {
      for_micros > 1'000'000 ? device.mouse.Unplug() : device.mouse.ReplugAfter(for_micros);
    });
  }

  void DrawFaults() {
    Device& device = DrawDevice();
    sim::Faults& faults = device.mouse.faults();
    faults.Heal();
    const auto chance = [&] { return OneIn(3) ? Draw(30) / 100.0 : 0.0; };
    if (!OneIn(3))
      faults.Random(random_(), {.fail_write = chance(),
                                .drop = chance(),
                                .corrupt = chance(),
                                .wrong_command = chance(),
                                .delay = chance(),
                                .stray_event = chance(),
                                .duplicate = chance()});
    const sim::When when = sim::At(1 + Draw(30));
    if (OneIn(2)) faults.Ignore({.first = 1 + Draw(20), .count = 3 + Draw(6), .command = {}});
    if (OneIn(6)) faults.LosePower(when, sim::PowerLoss::kDuringWrite);
    if (OneIn(6)) faults.UnplugAfter(when);
    if (OneIn(6)) faults.EchoDiffers(sim::At(1 + Draw(5)));
    if (OneIn(6)) faults.FailOpen({.first = 1 + Draw(4), .count = 1 + Draw(4), .command = {}});
    device.Watch();
  }

  void FailCalls() {
    static constexpr const char* kCalls[] = {"CreateFileW",
                                             "CreateEventW",
                                             "ReadFile",
                                             "WriteFile",
                                             "GetOverlappedResult",
                                             "ResetEvent",
                                             "CancelIo",
                                             "WaitForSingleObject",
                                             "WaitForMultipleObjects",
                                             "SetWaitableTimer",
                                             "SetEvent",
                                             "SetupDiGetClassDevsW",
                                             "SetupDiEnumDeviceInterfaces",
                                             "SetupDiGetDeviceInterfaceDetailW"};
    if (OneIn(3)) {
      platform::DisarmFault();
      return watch_.Disturb(kCalmMicros);
    }
    platform::ArmFault(kCalls[Draw(std::size(kCalls))], 1 + Draw(10));
    watch_.Disturb(kNoEndMicros);
  }

  void FailAllocation() {
    if (OneIn(3)) watch_.FailAllocation(1 + Draw(4));
  }

  void ChangeBattery() {
    const uint8_t level = OneIn(3) ? (OneIn(2) ? 0 : 100) : static_cast<uint8_t>(Draw(101));
    const auto volts = static_cast<uint16_t>(OneIn(2) ? 0 : 3000 + Draw(1200));
    DrawDevice().mouse.battery().Fix({level, static_cast<uint8_t>(OneIn(2) ? 1 : 0), volts});
  }

  // ---- A run
  // -------------------------------------------------------------------------------------

  void OnCallback(size_t number, const uint8_t* frame, uint32_t frame_length,
                  std::span<const uint8_t> data) {
    const FailingNew::Pause pause;
    if (frame_length != sizeof(CommandFrame)) Broken("a frame of another length");
    CommandFrame heard;
    std::memcpy(&heard, frame, sizeof(heard));
    const auto start = static_cast<StartNumber>(starts_ - (starts_ - number) % kCallbackCount);
    watch_.server.OnCallback(start, heard, data);
    if (healed_) return;
    const uint32_t action = Draw(60);
    if (action < 3) QueueSomething();
    if (action == 3) Start();
    if (action == 4) Exit();
  }

  template <size_t number>
  static void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t frame_length,
                                     const uint8_t* data, uint32_t length) {
    current_->OnCallback(number, frame, frame_length, {data, length});
  }

  void Rest(DWORD milliseconds) {
    Sleep(milliseconds);
    watch_.CheckTimes();
  }

  void Act(std::span<const Action> actions) {
    (this->*actions[Draw(actions.size())])();
    if (OneIn(3)) return;
    Rest(OneIn(25) ? 1500 : Draw(40));
  }

  static DWORD WINAPI SecondHost(LPVOID self) {
    auto& host = *static_cast<Hosts*>(self);
    static constexpr Action kActions[] = {&Hosts::QueueSomething, &Hosts::AskSomething,
                                          &Hosts::AskSomething,   &Hosts::AskSomething,
                                          &Hosts::SendEvent,      &Hosts::Listen};
    for (int step = 0; step < 12; ++step) {
      host.Act(kActions);
      host.Pump();
    }
    if (!host.listens_) return 0;
    StopUsbChanged();
    host.Pump();
    return 0;
  }

  // Everything works again: what is queued is answered, and the configuration is read.
  void Heal() {
    healed_ = true;
    platform::DisarmFault();
    watch_.Disturb(kCalmMicros);
    while (!TakeUpgradeTurn())
      Rest(50);
    GiveUpgradeTurn();
    Rest(1000);  // it restarts
    for (const auto& device : watch_.devices) {
      device->mouse.faults().Heal();
      device->Watch();
      device->mouse.Plug();
      device->mouse.SetAsleep(false);
    }
    StartOn(watch_.devices[0]->present() ? 0 : 1);
    for (int i = 0; i < 4; ++i)
      QueueSomething();
    QueueFullRead();
    // What hosts do while a full read runs.
    for (int i = 0; i < 4; ++i) {
      Rest(Draw(400));
      if (OneIn(16)) StartOn(watch_.devices[0]->present() ? 0 : 1);
      OneIn(6) ? QueueFullRead() : OneIn(3) ? AskSomething() : QueueSomething();
    }
    for (int i = 0; i < 2000 && !watch_.server.AtRest(); ++i)
      Rest(100);
    if (!watch_.server.AtRest()) Broken("healed, and requests are not answered");
  }

  void End() {
    Exit();
    for (int i = 0; i < 100 && !watch_.Idle(); ++i)
      Rest(50);
    Rest(10);
    if (!watch_.Idle()) Broken("the loop has not ended");
    for (const auto& device : watch_.devices)
      device->mouse.Unplug();
  }

  static inline Hosts* current_ = nullptr;

  std::mt19937_64 random_;
  Watch watch_{random_};
  StartNumber starts_ = 0;
  bool healed_ = false;
  uint32_t serial_ = 0;
  ProtocolData previous_{};     // a host's own
  Device* upgraded_ = nullptr;  // the one device that is
  int results_ = 0;             // of the upgrade
  bool listens_ = false;        // for devices that come and go
  uint64_t unheard_since_ = 0;  // the number of changes when it began to
  uint64_t heard_ = 0;
};

}  // namespace

void RunHosts(uint64_t seed) {
  std::make_unique<Hosts>(seed)->Run();
}

}  // namespace perilink::testing
