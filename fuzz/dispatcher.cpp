// Reports of a device that need not be honest, through the server's dispatcher. An input is a list
// of steps of a host (support/host.h) and of its device (support/device_steps.h); the loop's own
// part, which is to write a frame and to give up waiting, is a step as well.
#include "server/dispatcher.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "battery/optimizer.h"
#include "perilink/config_layout.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "protocol/stored.h"
#include "sim/scripted_device.h"
#include "support/device_steps.h"
#include "support/host.h"
#include "support/images.h"
#include "support/input.h"
#include "support/records.h"
#include "support/require.h"
#include "support/world.h"
#include "transport/frame.h"

namespace perilink::fuzz {
namespace {

// The longest request that a step of the full read queues: a macro with all its events.
constexpr size_t kMostFrames = (PERILINK_MACRO_SLOT_SIZE + kFrameDataCapacity - 1) / 10;
// The reports after which an input takes no more steps, where its work is bounded.
constexpr size_t kMostReports = PERILINK_FUZZ_BOUNDED ? 128 : SIZE_MAX;

bool SameFrame(const CommandFrame& a, const CommandFrame& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

// ---- What the battery's poll talks to ----------------------------------------------------------

BatteryLevel g_battery{};

DWORD AnswerPoll(sim::ScriptedDevice& device, const sim::Bytes& written) {
  const auto& [level, charging, voltage] = g_battery;
  if (written[1] == PERILINK_COMMAND_ON_LINE) device.Deliver(sim::ReplyTo(written, {1, 1, 2, 3}));
  if (written[1] == PERILINK_COMMAND_BATTERY_LEVEL) {
    const uint16_t millivolts = voltage;
    device.Deliver(sim::ReplyTo(written, {level, charging, static_cast<uint8_t>(millivolts >> 8),
                                          static_cast<uint8_t>(millivolts)}));
  }
  return 0;
}

sim::ScriptedDevice& PolledDevice() {
  static sim::ScriptedDevice device(sim::kScriptedPath, AnswerPoll);
  return device;
}

// ---- The session -------------------------------------------------------------------------------

struct QueueView {
  size_t size = 0;
  QueueEntry head{};
};

QueueView LookAtQueue() {
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  if (queues.commands.Empty()) return {};
  return {queues.commands.Size(), queues.commands.Head()};
}

bool SameHead(const QueueView& before, const QueueView& after) {
  return before.size == after.size &&
         std::memcmp(&before.head, &after.head, sizeof(before.head)) == 0;
}

CommandFrame Blank(uint8_t command) {
  CommandFrame frame{};
  frame.report_id = PERILINK_REPORT_ID;
  frame.command = command;
  return frame;
}

class Session {
 public:
  Session(Input& input, bool with_callback) : input_(input), with_callback_(with_callback) {}

  void Run() {
    while (!input_.Empty() && reports_ < kMostReports)
      TakeStep();
  }

 private:
  void TakeStep();
  void TakeDeviceStep(DeviceStep step);

  // The loop's step: the head is written, if there is one.
  bool WriteHead(CommandFrame& written);
  void Drop();
  void Serve(size_t count);
  void Answer();
  void SpoilEcho();
  void PatchFlash();
  void ReadWhole();
  void PassTime();

  void Deliver(CommandFrame report);
  void RequireEvent(const CommandFrame& report, const std::vector<Call>& calls) const;
  void RequireTaken(const CommandFrame& report, const QueueView& before, const QueueView& after,
                    const std::vector<Call>& calls);
  void RequireAskedAgain(const QueueView& before, const QueueView& after,
                         const std::vector<Call>& calls);
  void RequireAnswer(CommandFrame request, const std::vector<Call>& calls) const;
  void RequireImage(const std::vector<Call>& calls);

  Input& input_;
  const bool with_callback_;
  Dispatcher dispatcher_{ServerState::Instance()};
  size_t reports_ = 0;
  bool awaiting_reply_ = false;
  AddressEcho echo_{2};
  bool unproven_ = false;             // an answer among the chunks may be another read's
  std::vector<CommandFrame> chunks_;  // of an answer that is not complete
  std::vector<uint8_t> image_;        // the last that a callback got
  sim::FlashImage flash_ = DefaultImage();
};

// ---- What holds after a report -----------------------------------------------------------------

void Session::Deliver(CommandFrame report) {
  ++reports_;
  report.checksum = FrameChecksum(report);
  const QueueView before = LookAtQueue();
  const bool awaited = awaiting_reply_;
  const Meaning meaning = dispatcher_.DispatchReport(*ValidFrame::Check(FrameBytes(report)));
  if (meaning == Meaning::kAnswer) awaiting_reply_ = false;
  const QueueView after = LookAtQueue();
  const std::vector<Call> calls = TakeCalls();

  const bool is_event = report.command == PERILINK_COMMAND_EVENT;
  const QueueEntry& head = before.head;
  bool is_short = false;
  const bool answers =
      !is_event && before.size > 0 && head.pending != 1 && head.frame.command == report.command;
  if (answers && report.command == PERILINK_COMMAND_READ_MEMORY) {
    const AddressMatch match = echo_.Judge({FrameAddress(head.frame), FrameDataLength(head.frame)},
                                           {FrameAddress(report), FrameDataLength(report)});
    if (echo_.known() && unproven_) return RequireAskedAgain(before, after, calls);
    if (match == AddressMatch::kForeign) {
      return Require(SameHead(before, after) && awaiting_reply_ == awaited && calls.empty(),
                     "another read's answer leaves the queue alone");
    }
    is_short = match == AddressMatch::kShort;
    unproven_ = unproven_ || match == AddressMatch::kUnproven;
  } else if (report.command == PERILINK_COMMAND_READ_MEMORY) {
    echo_.Hear({FrameAddress(report), FrameDataLength(report)});
  }
  const bool is_echo =
      report.command != PERILINK_COMMAND_WRITE_MEMORY || SameFrame(report, head.frame);
  if (answers && is_echo && !is_short) return RequireTaken(report, before, after, calls);

  QueueEntry expected = head;
  if (answers) expected.pending = 1;
  Require(after.size == before.size && std::memcmp(&after.head, &expected, sizeof(expected)) == 0 &&
              awaiting_reply_ == awaited,
          "what is no answer leaves the queue alone");
  if (is_event) {
    RequireEvent(report, calls);
  } else {
    Require(calls.empty(), "what is no answer is not reported");
  }
}

// The device has shown that it echoes addresses, after an answer of this request named another.
void Session::RequireAskedAgain(const QueueView& before, const QueueView& after,
                                const std::vector<Call>& calls) {
  const size_t again = std::min(chunks_.size(), kReplyFrameLimit);
  Require(after.size == before.size + again && after.head.pending == 1 && !awaiting_reply_ &&
              calls.empty(),
          "a request with a doubtful answer is asked again");
  chunks_.clear();
  unproven_ = false;
}

bool IsLevelReport(const Call& call) {
  return call.frame.command == PERILINK_COMMAND_BATTERY_LEVEL && call.frame.checksum == 0x49 &&
         call.data.size() == 4;
}

void Session::RequireEvent(const CommandFrame& report, const std::vector<Call>& calls) const {
  if (!with_callback_) return Require(calls.empty(), "nobody is called without a callback");
  const bool smoothed = BatteryOptimizer::Instance().Enabled();
  const uint8_t flags = smoothed ? report.data[0] & 0xBF : report.data[0];
  const bool reported = !smoothed || flags != 0;
  const size_t levels = calls.size() - (reported ? 1 : 0);
  Require(calls.size() >= (reported ? 1u : 0u) && levels <= (smoothed ? 1u : 0u),
          "an event is reported once, after at most one level");
  if (levels == 1) Require(IsLevelReport(calls.front()), "a level goes before its event");
  if (!reported) return;
  const Call& call = calls.back();
  Require(SameFrame(call.frame, report) && call.data.size() == sizeof(report.data) &&
              call.data[0] == flags &&
              std::equal(call.data.begin() + 1, call.data.end(), report.data + 1),
          "an event is reported as it came");
}

void Session::RequireTaken(const CommandFrame& report, const QueueView& before,
                           const QueueView& after, const std::vector<Call>& calls) {
  Require(!awaiting_reply_, "after an answer none is awaited");
  chunks_.push_back(report);
  const QueueEntry& head = before.head;
  if (head.last_chunk == 0) {
    Require(after.size == before.size - 1 && calls.empty(), "a part of an answer is kept");
    return;
  }
  CommandFrame request = head.frame;
  request.length = report.length;
  if (head.continuation >= 1 && head.continuation <= kLastFlashReadTag) {
    Require(after.size >= before.size - 1 && after.size <= before.size - 1 + kMostFrames,
            "a step of the full read queues at most one more");
    if (!calls.empty()) RequireImage(calls);
  } else {
    Require(after.size == before.size - 1, "an answer takes its request from the queue");
    RequireAnswer(request, calls);
  }
  chunks_.clear();
  unproven_ = false;
  Require(ServerState::Instance().LockQueues().replies.Empty(), "no part of an answer is left");
}

void Session::RequireAnswer(CommandFrame request, const std::vector<Call>& calls) const {
  if (!with_callback_) return Require(calls.empty(), "nobody is called without a callback");
  Require(calls.size() == 1, "an answer is reported once");
  const Call& call = calls.front();
  std::vector<uint8_t> data(kReplyDataSize);
  size_t length = 0;
  for (size_t i = 0; i < chunks_.size(); ++i) {
    if (i < kReplyFrameLimit)
      std::copy_n(chunks_[i].data, 10, data.begin() + static_cast<ptrdiff_t>(10 * i));
    length += chunks_[i].length & (KeyboardTargetFlag() ? uint8_t{PERILINK_LENGTH_MASK} : 0xFF);
  }
  length = std::min(length, data.size());
  if (length <= 10 && request.command == PERILINK_COMMAND_BATTERY_LEVEL) {
    if (BatteryOptimizer::Instance().Enabled()) {
      return Require(IsLevelReport(call), "the optimiser answers for the battery");
    }
    length = 4;
  }
  if (length <= 10 && request.command == PERILINK_COMMAND_ON_LINE) length = 4;
  data.resize(length);
  Require(SameFrame(call.frame, request), "an answer is reported under its request");
  Require(call.data == data, "an answer is reported whole");
}

void Session::RequireImage(const std::vector<Call>& calls) {
  Require(with_callback_ && calls.size() == 1, "an image is reported once");
  const Call& call = calls.front();
  const CommandFrame expected = Blank(PERILINK_COMMAND_READ_MEMORY);
  Require(SameFrame(call.frame, expected) && call.data.size() == PERILINK_FLASH_IMAGE_SIZE,
          "an image is reported whole");
  image_ = call.data;
  ProtocolData parsed{};
  ProtocolDataParser(ExactCopy(image_).data(), &parsed);
  RequireInRange(parsed);
}

// ---- Steps -------------------------------------------------------------------------------------

void Session::TakeStep() {
  const uint8_t step = input_.Byte() % static_cast<uint8_t>(DeviceStep::kCount);
  if (step < static_cast<uint8_t>(HostStep::kCount)) {
    TakeHostStep(static_cast<HostStep>(step), input_);
    Require(TakeCalls().empty(), "a host's command by itself reports nothing");
  } else {
    TakeDeviceStep(static_cast<DeviceStep>(step));
  }
}

void Session::TakeDeviceStep(DeviceStep step) {
  switch (step) {
    case DeviceStep::kAnswer:
      return Answer();
    case DeviceStep::kServe:
      return Serve(input_.Byte());
    case DeviceStep::kSpoiltEcho:
      return SpoilEcho();
    case DeviceStep::kReport: {
      CommandFrame report;
      input_.Fill(FrameBytes(report));
      return Deliver(report);
    }
    case DeviceStep::kEvent: {
      CommandFrame report = Blank(PERILINK_COMMAND_EVENT);
      input_.Fill(report.data);
      return Deliver(report);
    }
    case DeviceStep::kPatchFlash:
      return PatchFlash();
    case DeviceStep::kSealFlash:
      return SealAll(flash_);
    case DeviceStep::kWholeRead:
      return ReadWhole();
    case DeviceStep::kTimeout: {
      const ServerState::Queues queues = ServerState::Instance().LockQueues();
      if (!queues.commands.Empty()) queues.commands.Head().pending = 1;
      awaiting_reply_ = false;
      return;
    }
    case DeviceStep::kDrop:
      return Drop();
    case DeviceStep::kBattery:
      g_battery.level = input_.Byte();
      g_battery.charging = input_.Byte();
      g_battery.voltage = input_.Word();
      return;
    case DeviceStep::kTime:
      return PassTime();
    case DeviceStep::kCount:
      break;
  }
}

bool Session::WriteHead(CommandFrame& written) {
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  if (queues.commands.Empty()) return false;
  queues.commands.Head().pending = 0;
  awaiting_reply_ = true;
  written = queues.commands.Head().frame;
  return true;
}

void Session::Drop() {
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  queues.replies.Clear();
  queues.commands.Clear();
  chunks_.clear();
  unproven_ = false;
  awaiting_reply_ = false;
}

void Session::Serve(size_t count) {
  CommandFrame request;
  for (size_t i = 0; i < count && WriteHead(request); ++i)
    Deliver(RightAnswer(request, flash_));
}

void Session::Answer() {
  CommandFrame answer{};
  const bool written = WriteHead(answer);
  answer.length = input_.Byte();
  input_.Fill(answer.data);
  if (written) Deliver(answer);
}

void Session::SpoilEcho() {
  CommandFrame echo{};
  const bool written = WriteHead(echo);
  const size_t position = input_.Byte() % offsetof(CommandFrame, checksum);
  FrameBytes(echo)[position] = input_.Byte();
  if (written) Deliver(echo);
}

void Session::PatchFlash() {
  const size_t address = input_.Word() % sim::kFlashSize;
  flash_.SetBytes(address, input_.Bytes(input_.Byte()));
}

// Whatever a device's memory holds, a full read brings what a parse of the memory itself gives.
void Session::ReadWhole() {
  Drop();
  image_.clear();
  UsbServer_ReadAllFlashData();
  Serve(2000);
  Require(LookAtQueue().size == 0, "a full read comes to its end");
  if (!with_callback_) return;
  Require(!image_.empty(), "a full read is reported");
  ProtocolData read{};
  ProtocolData held{};
  ProtocolDataParser(image_.data(), &read);
  ProtocolDataParser(flash_.bytes().data(), &held);
  for (MacroKey& macro : held.macros) {
    if (macro.name_length == 0) macro = {};  // not read at all
  }
  Require(Same(read, held), "a full read brings what the device holds");
  StoredProtocolData::Instance().With(
      [&](const ProtocolData& record) { RequireInRange(Canonical(record)); });
}

void Session::PassTime() {
  Sleep(input_.Byte());
  BatteryOptimizer::Instance().Drive(&ServerState::CallbackForReport);
  const std::vector<Call> calls = TakeCalls();
  Require(calls.size() <= (with_callback_ ? 1u : 0u), "a smoothing step reports at most once");
  for (const Call& call : calls)
    Require(IsLevelReport(call) && call.data[0] <= 100, "a smoothed level is a percentage");
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  perilink::fuzz::EnterWorld();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  Input input(data, size);
  const bool with_callback = (input.Byte() & 1) == 0;
  StartAfresh(with_callback);
  g_battery = {};
  PolledDevice().ClearWrites();
  perilink::BatteryOptimizer::Instance().Connect(PolledDevice().Path());
  Session(input, with_callback).Run();
  return 0;
}
