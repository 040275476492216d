#include "support/host.h"

#include <cstring>
#include <memory>
#include <utility>

#include "battery/optimizer.h"
#include "perilink/battery.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "protocol/stored.h"
#include "server/state.h"
#include "support/records.h"
#include "support/require.h"
#include "support/world.h"
#include "transport/frame.h"

namespace perilink::fuzz {
namespace {

std::vector<Call>& Calls() {
  static auto* const calls = new std::vector<Call>;
  return *calls;
}

void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t frame_length, const uint8_t* data,
                            uint32_t data_length) {
  Require(frame_length == sizeof(CommandFrame), "a callback gets a whole frame");
  Require(data_length <= kReplyDataSize, "a callback gets no more than its buffer holds");
  Call call;
  std::memcpy(&call.frame, frame, sizeof(call.frame));
  call.data.assign(data, data + data_length);
  Calls().push_back(std::move(call));
}

void TakeUpdate(Input& input) {
  ProtocolData record = StoredProtocolData::Instance().With([](ProtocolData& it) { return it; });
  const size_t offset = input.Below(sizeof(record));
  const auto bytes = input.Bytes(std::min<size_t>(input.Byte(), sizeof(record) - offset));
  std::copy(bytes.begin(), bytes.end(), &record.report_rate + offset);
  ProtocolDataUpdate(&record);
}

void TakeEntry(Input& input) {
  QueueEntry entry{};
  entry.pending = 1;
  entry.last_chunk = input.Byte();
  entry.continuation = input.Byte();
  input.Fill(FrameBytes(entry.frame));
  entry.frame.checksum = FrameChecksum(entry.frame);  // a device takes no other
  UsbServer_WriteCommand(&entry);
}

}  // namespace

void TakeHostStep(HostStep step, Input& input) {
  switch (step) {
    case HostStep::kQuery:
      return UsbServer_GetData(input.Byte());
    case HostStep::kSet: {
      const uint8_t command = input.Byte();
      const ExactCopy data(input.Bytes(input.Byte() % 32));
      return UsbServer_SetData(command, data.data(), static_cast<uint8_t>(data.size()));
    }
    case HostStep::kReadAll:
      return UsbServer_ReadAllFlashData();
    case HostStep::kReadMemory: {
      const uint16_t address = input.Word();
      const auto length = static_cast<int16_t>(input.Word());
      return UsbServer_ReadFalshData(address, length, input.Byte());
    }
    case HostStep::kEntry:
      return TakeEntry(input);
    case HostStep::kUpdate:
      return TakeUpdate(input);
    case HostStep::kOptimizer: {
      UsbServer_SetBatteryOptimizeEnable(input.Byte() & 1);
      const auto seconds = static_cast<int16_t>(input.Word());
      UsbServer_SetBatteryOptimizeLastBattery(seconds, input.Byte());
      return UsbServer_SetBatteryOptimizeParam(input.Byte() & 1, 1, 1);
    }
    case HostStep::kKeyboard:
      return SetKeyboardTargetFlag((input.Byte() & 1) != 0);
    case HostStep::kCount:
      break;
  }
}

void StartAfresh(bool with_callback) {
  ForgetRegistry();
  ServerState& state = ServerState::Instance();
  state.RequestStart({}, with_callback ? &OnReport : nullptr);
  state.TakeReopenRequest();

  BatteryOptimizer& optimizer = BatteryOptimizer::Instance();
  std::destroy_at(&optimizer);
  std::construct_at(&optimizer);
  UsbServer_SetBatteryOptimizeEnable(0);

  StoredProtocolData::Instance().Replace(ProtocolData{});
  StoredProtocolData::Instance().MarkParsed();
  Calls().clear();
}

std::vector<Call> TakeCalls() {
  return std::exchange(Calls(), {});
}

}  // namespace perilink::fuzz
