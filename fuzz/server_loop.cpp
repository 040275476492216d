// The whole server on a device that need not be honest: reports of any length, when and as often
// as the device likes, come through the HID interface and the loop. The direct commands and the
// keyboard's layer keys have the same device. An input is a list of steps: of the host
// (support/host.h), of the loop and, whenever something is written to it, of the device.
#include "server/loop.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "commands/layer_keys.h"
#include "perilink/battery.h"
#include "perilink/finder.h"
#include "perilink/server.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "sim/scripted_device.h"
#include "support/device_steps.h"
#include "support/host.h"
#include "support/images.h"
#include "support/input.h"
#include "support/loop_steps.h"
#include "support/require.h"
#include "support/world.h"
#include "transport/exchange.h"
#include "transport/frame.h"

namespace perilink::fuzz {
namespace {

// Where the work for an input is bounded: the passes of the loop after which it takes no more
// steps, and the frames that are then still answered, the others dropped.
constexpr size_t kMostPasses = PERILINK_FUZZ_BOUNDED ? 96 : SIZE_MAX;
constexpr size_t kMostDrained = PERILINK_FUZZ_BOUNDED ? 4 : SIZE_MAX;

using Report = sim::Bytes;
using sim::ScriptedDevice;

class Session {
 public:
  explicit Session(Input& input) : input_(input) {}

  void Run();

 private:
  void TakeStep();
  void TakeLoopStep(LoopStep step);
  void Pass(size_t count);
  void AskDirectly(uint8_t command);
  void ReadLayer(uint8_t layer);
  // Everything that is queued is answered in the end.
  void Drain();
  size_t CutQueue();

  // The device's, when something is written to it.
  DWORD OnWrite(ScriptedDevice& device, const Report& written);
  Report TakeRawReport();

  Input& input_;
  size_t passes_ = 0;
  sim::FlashImage flash_ = DefaultImage();
  ScriptedDevice device_{sim::kScriptedPath, [this](ScriptedDevice& device, const Report& it) {
                           return OnWrite(device, it);
                         }};
  ServerLoop loop_{ServerState::Instance()};
};

// ---- The device --------------------------------------------------------------------------------

CommandFrame FrameOf(const Report& report) {
  CommandFrame frame{};
  std::copy_n(report.begin(), std::min(report.size(), sizeof(frame)), FrameBytes(frame).begin());
  return frame;
}

Report BytesOf(const CommandFrame& frame) {
  const auto bytes = FrameBytes(frame);
  return Report(bytes.begin(), bytes.end());
}

Report Session::TakeRawReport() {
  const auto bytes = input_.Bytes(input_.Byte() % 40);
  return Report(bytes.begin(), bytes.end());
}

DWORD Session::OnWrite(ScriptedDevice& device, const Report& written) {
  const CommandFrame request = FrameOf(written);
  const uint8_t step = input_.Byte();
  const uint64_t delay_ms = step >> 4;
  switch (static_cast<ReplyStep>(step % static_cast<uint8_t>(ReplyStep::kCount))) {
    case ReplyStep::kRight:
      // An event is no command: no device answers it.
      if (request.command != PERILINK_COMMAND_EVENT)
        device.Deliver(BytesOf(RightAnswer(request, flash_)), delay_ms);
      break;
    case ReplyStep::kOtherData: {
      CommandFrame answer = request;
      answer.length = input_.Byte();
      input_.Fill(answer.data);
      device.Deliver(sim::Closed(BytesOf(answer)), delay_ms);
      break;
    }
    case ReplyStep::kRaw:
      device.Deliver(TakeRawReport(), delay_ms);
      break;
    case ReplyStep::kClosed:
      device.Deliver(sim::Closed(TakeRawReport()), delay_ms);
      break;
    case ReplyStep::kSilence:
      break;
    case ReplyStep::kMany:
      for (size_t i = input_.Byte() % 48; i > 0; --i)
        device.Deliver(BytesOf(RightAnswer(request, flash_)), i % 3);
      break;
    case ReplyStep::kFailure:
      return 1 + input_.Byte();
    case ReplyStep::kGone:
      device.Unplug();
      break;
    case ReplyStep::kCount:
      break;
  }
  return 0;
}

// ---- The host ----------------------------------------------------------------------------------

void Session::Run() {
  ServerState& state = ServerState::Instance();
  state.RequestStart({device_.Path(), device_.Path()}, state.Callback());
  UsbServer_SetBatteryOptimizeEnable(0);
  CS_UsbServer_SetThreadSleepTime(1);
  Pass(1);
  while (!input_.Empty() && passes_ < kMostPasses)
    TakeStep();
  input_.Bytes(SIZE_MAX);  // from now on the device is honest
  Drain();
  loop_.End();
  Require(platform::Bus().OpenConnections() == 0, "the loop's end closes the device");
}

void Session::TakeStep() {
  const uint8_t step = input_.Byte() % static_cast<uint8_t>(LoopStep::kCount);
  if (step < static_cast<uint8_t>(HostStep::kCount)) {
    TakeHostStep(static_cast<HostStep>(step), input_);
  } else {
    TakeLoopStep(static_cast<LoopStep>(step));
  }
}

void Session::TakeLoopStep(LoopStep step) {
  switch (step) {
    case LoopStep::kPasses:
      return Pass(1 + input_.Byte() % 32);
    case LoopStep::kUnasked:
      return device_.Deliver(TakeRawReport());
    case LoopStep::kUnaskedClosed:
      return device_.Deliver(sim::Closed(TakeRawReport()));
    case LoopStep::kUnplug:
      return device_.Unplug();
    case LoopStep::kReplug:
      device_.Unplug();
      device_.Plug();
      return ServerState::Instance().RequestReopen();
    case LoopStep::kReopen:
      return ServerState::Instance().RequestReopen();
    case LoopStep::kTime:
      return Sleep(input_.Byte() * 8u);
    case LoopStep::kDirect:
      return AskDirectly(input_.Byte());
    case LoopStep::kLayer:
      return ReadLayer(input_.Byte() % 5);
    case LoopStep::kPatchFlash: {
      const size_t address = input_.Word() % sim::kFlashSize;
      return flash_.SetBytes(address, input_.Bytes(input_.Byte()));
    }
    case LoopStep::kCount:
      break;
  }
}

void Session::Pass(size_t count) {
  passes_ += count;
  for (size_t i = 0; i < count; ++i) {
    loop_.RunOnePass();
    Sleep(1);
  }
}

void Session::AskDirectly(uint8_t command) {
  CommandFrame reply;
  std::memset(&reply, 0xA5, sizeof(reply));
  const bool answered = ExchangeFrame(device_.Path(), BuildFrame(command, 0), reply, 1, 20);
  if (answered) {
    Require(reply.command == command && FrameChecksum(reply) == reply.checksum,
            "a reply that is taken is one, to this command");
  } else {
    const CommandFrame none{};
    Require(std::memcmp(&reply, &none, sizeof(reply)) == 0, "without a reply there is none");
  }
  BatteryLevel battery{};
  UsbFinder_GetBatteryLevel(device_.Path(), &battery);
  CidMid ids{};
  UsbFinder_ReadCidMid(device_.Path(), 0, &ids);
  UsbFinder_GetVersion(device_.Path());
}

void Session::ReadLayer(uint8_t layer) {
  const std::vector<uint8_t> keys = LoadLayerKeys(device_.Path(), layer);
  const size_t whole = layer >= 1 && layer <= 3 ? 512 : 1;
  Require(keys.empty() || keys.size() == whole, "a layer is read whole or not at all");
}

// Leaves as many frames as shall be answered. A full read goes on beyond them.
size_t Session::CutQueue() {
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  bool reads_all = false;
  for (size_t i = 0; i < queues.commands.Size(); ++i)
    reads_all = reads_all || queues.commands.At(i).continuation != 0;
  if (queues.commands.Size() > kMostDrained || (reads_all && PERILINK_FUZZ_BOUNDED)) {
    queues.replies.Clear();
    queues.commands.Clear();
  }
  return queues.commands.Size();
}

void Session::Drain() {
  device_.Unplug();
  device_.Plug();
  ServerState::Instance().RequestReopen();
  // A frame is sent and answered in ten passes at most: an optimiser with steps of a millisecond
  // ends each wait after one. And a full read's first frames, which are queued, bring up to thirty
  // times as many.
  const size_t queued = CutQueue();
  for (size_t left = 20'000 + 300 * queued; left > 0; --left) {
    Pass(1);
    if (ServerState::Instance().NothingQueued()) return;
  }
  Violated("an honest device gets the queue empty");
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
  const uint64_t handles = perilink::platform::OpenHandleCount();
  StartAfresh((input.Byte() & 1) == 0);
  Session(input).Run();
  Require(perilink::platform::OpenHandleCount() == handles, "no handle is left open");
  return 0;
}
