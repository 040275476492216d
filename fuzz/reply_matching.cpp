// Which of a device's reports a direct command takes for its reply, and which memory read an answer
// belongs to, each held against its rules once more. An input is a request (command, address,
// retries), then for each time that it is written a count of reports, and the reports.
#include <array>
#include <cstring>
#include <deque>
#include <optional>
#include <vector>

#include "perilink/protocol.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "sim/scripted_device.h"
#include "support/input.h"
#include "support/require.h"
#include "support/world.h"
#include "transport/exchange.h"
#include "transport/frame.h"
#include "transport/read_address.h"

namespace perilink::fuzz {
namespace {

constexpr int32_t kTimeoutMs = 20;
constexpr size_t kMostReports = 7;  // for one write

// ---- The device --------------------------------------------------------------------------------

// Most reports are near the request: one byte tells what of it they keep.
CommandFrame TakeReport(Input& input, const CommandFrame& request) {
  const uint8_t kind = input.Byte();
  CommandFrame report = request;
  if ((kind & 1) != 0) report.command = input.Byte();
  if ((kind & 2) != 0) report.address_high = report.address_low = 0;
  if ((kind & 4) != 0) report.address_low = input.Byte();
  if ((kind & 8) != 0) report.length = input.Byte();
  if ((kind & 16) != 0) input.Fill(report.data);
  if ((kind & 32) != 0) input.Fill(FrameBytes(report));
  report.checksum = FrameChecksum(report);
  if ((kind & 192) == 192) ++report.checksum;
  return report;
}

struct Replies {
  std::vector<std::vector<CommandFrame>> by_write;
  size_t writes = 0;
};
Replies g_replies;

DWORD OnWrite(sim::ScriptedDevice& device, const sim::Bytes& /*written*/) {
  for (const CommandFrame& report : g_replies.by_write.at(g_replies.writes++)) {
    const auto bytes = FrameBytes(report);
    platform::Bus().Deliver(device, bytes);
  }
  return 0;
}

sim::ScriptedDevice& Device() {
  static auto& device = *new sim::ScriptedDevice(sim::kScriptedPath, OnWrite);
  return device;
}

// ---- The rules ---------------------------------------------------------------------------------

// Reports that a try leaves unread are the next one's.
struct Expected {
  std::optional<CommandFrame> reply;
  size_t writes = 0;
  size_t waits = 0;  // tries that end with their time
};
Expected ExpectedReply(const CommandFrame& request) {
  Expected expected;
  std::deque<CommandFrame> arrived;
  bool names_addresses = false;
  for (const auto& reports : g_replies.by_write) {
    ++expected.writes;
    arrived.insert(arrived.end(), reports.begin(), reports.end());
    std::optional<CommandFrame> nameless;
    bool lost = false;
    while (!arrived.empty() && !lost) {
      const CommandFrame report = arrived.front();
      arrived.pop_front();
      const bool fits =
          report.checksum == FrameChecksum(report) && report.command == request.command;
      const bool right = request.command != PERILINK_COMMAND_READ_MEMORY ||
                         FrameAddress(report) == FrameAddress(request);
      if (fits && right) {
        expected.reply = report;
        return expected;
      }
      if (!fits) {
        lost = !nameless;
      } else if (FrameAddress(report) == 0) {
        nameless = report;
      } else {
        names_addresses = true;
      }
    }
    expected.waits += lost ? 0 : 1;
    if (nameless && !names_addresses) {
      expected.reply = nameless;
      break;
    }
  }
  return expected;
}

void CheckExchange(Input& input) {
  CommandFrame request = BuildFrame(input.Byte(), 0);
  request.address_high = input.Byte();
  request.address_low = input.Byte();
  request.checksum = FrameChecksum(request);
  const auto retries = static_cast<int32_t>(input.Byte() % 4) - 1;
  g_replies = {};
  for (int32_t tries = 0; tries <= retries; ++tries) {
    auto& reports = g_replies.by_write.emplace_back();
    for (size_t count = input.Byte() % (kMostReports + 1); count > 0; --count)
      reports.push_back(TakeReport(input, request));
  }
  const Expected expected = ExpectedReply(request);
  CommandFrame reply;
  std::memset(&reply, 0xA5, sizeof(reply));
  const uint64_t start_micros = platform::NowMicros();
  const bool taken = ExchangeFrame(Device().Path(), request, reply, retries, kTimeoutMs);
  Require((platform::NowMicros() - start_micros) / 1000 == expected.waits * kTimeoutMs,
          "a try ends with a stray report or with its time");
  const CommandFrame wanted = expected.reply.value_or(CommandFrame{});
  Require(taken == expected.reply.has_value() && std::memcmp(&reply, &wanted, sizeof(reply)) == 0,
          "the reply that is taken is the one by the rules");
  Require(g_replies.writes == expected.writes, "the request is written as often as it takes");
  Require(platform::Bus().OpenConnections() == 0, "the device is closed");
  Device().ClearWrites();
}

// ---- Memory reads ------------------------------------------------------------------------------

// Steps of addresses and lengths: 0 to 3 each, so that they meet.
void CheckAddresses(Input& input) {
  constexpr int kPatience = 2;
  AddressEcho echo(kPatience);
  std::vector<uint16_t> asked_addresses = {0, 0};
  bool echoes = false;
  bool answers_short = false;
  int shorts = 0;
  while (!input.Empty()) {
    const uint8_t step = input.Byte();
    const auto part = [step](int shift) { return static_cast<uint8_t>(step >> shift & 3); };
    const ReadRange asked = {part(0), part(2)};
    const ReadRange answered = {part(4), part(6)};
    if (asked.length == 3) {
      echoes = echoes || (answered.address != 0 && (answered.address == asked_addresses.back() ||
                                                    answered.address == asked_addresses.end()[-2]));
      echo.Hear(answered);
    } else {
      if (asked.address != asked_addresses.back()) {
        asked_addresses.push_back(asked.address);
        shorts = 0;
      }
      echoes = echoes || (answered.address != 0 && (answered.address == asked.address ||
                                                    answered.address == asked_addresses.end()[-2]));
      AddressMatch expected = AddressMatch::kRight;
      if (answered.address != asked.address) {
        expected = echoes ? AddressMatch::kForeign : AddressMatch::kUnproven;
      } else if (answered.length < asked.length && !answers_short) {
        answers_short = ++shorts > kPatience;
        if (!answers_short) expected = AddressMatch::kShort;
      }
      Require(echo.Judge(asked, answered) == expected, "an answer is judged by its address");
    }
    Require(echo.known() == echoes, "only an address that was asked for proves an echo");
  }
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
  (input.Byte() & 1) == 0 ? CheckExchange(input) : CheckAddresses(input);
  return 0;
}
