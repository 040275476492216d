#include "transport/exchange.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "perilink/finder.h"
#include "support/scripted_device.h"
#include "transport/pass_through.h"

namespace perilink::testing {
namespace {

const CommandFrame kRequest = BuildFrameWithLengthByte(kCommandVersion, 0);
const Report kRight = Closed({0x08, 0x12, 0, 0, 0, 2, 0x01, 0x23});
const Report kOtherCommand = Closed({0x08, 0x0A, 0, 0, 0, 2, 0x01, 0x23});

Report WrongChecksum() {
  Report report = kRight;
  ++report[16];
  return report;
}

Report Bytes(const CommandFrame& frame) {
  const auto bytes = FrameBytes(frame);
  return Report(bytes.begin(), bytes.end());
}

// Reports to deliver upon the nth write, each after its own delay.
struct Sent {
  size_t write;
  Report report;
  uint64_t delay_ms;
};

ScriptedDevice::Script Sending(std::vector<Sent> plan) {
  return [plan = std::move(plan)](ScriptedDevice& device, const Report&) {
    for (const Sent& sent : plan) {
      if (sent.write == device.writes().size()) device.Deliver(sent.report, sent.delay_ms);
    }
    return DWORD{0};
  };
}

// An exchange on a device with the script, and what one sees of it.
struct Outcome {
  bool accepted;
  Report reply;
  std::vector<uint64_t> writes_ms;
  uint64_t elapsed_ms;
};

Outcome Exchange(ScriptedDevice::Script script, int32_t retries = kExchangeRetries,
                 const std::wstring& path = kScriptedPath) {
  ScriptedDevice device(kScriptedPath, std::move(script));
  const uint64_t start = platform::NowMicros();
  CommandFrame reply;
  std::memset(&reply, 0xEE, sizeof reply);
  Outcome outcome{};
  outcome.accepted = ExchangeFrame(path, kRequest, reply, retries, 100);
  outcome.elapsed_ms = (platform::NowMicros() - start) / 1000;
  outcome.reply = Bytes(reply);
  for (const Written& written : device.writes()) {
    EXPECT_EQ(written.report, Bytes(kRequest));
    outcome.writes_ms.push_back(written.at_ms);
  }
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
  return outcome;
}

ScriptedDevice::Script Refusing() {
  return [](ScriptedDevice&, const Report&) { return DWORD{ERROR_GEN_FAILURE}; };
}

TEST(Frame, Checksums) {
  EXPECT_EQ(kRequest.checksum, 0x3B);
  const uint8_t large[2] = {0xFF, 0xFF};
  EXPECT_EQ(ChecksumRange(large, 0, 2), 0x57);
  EXPECT_EQ(ChecksumRange(large, 1, 1), 0x55);
  EXPECT_EQ(ChecksumRange(large, 2, 1), 0x55);
}

TEST(ExchangeFrame, TriesAndReplies) {
  using Times = std::vector<uint64_t>;
  const std::vector<Sent> kAtOnce = {{1, kRight, 0}};
  const struct {
    const char* name;
    std::vector<Sent> plan;
    bool accepted;
    Times writes_ms;
    uint64_t elapsed_ms;
    int32_t retries = kExchangeRetries;
    const char* failing = nullptr;  // a call to the system
    uint64_t nth = 1;
  } kCases[] = {
      {"silence", {}, false, {0, 100, 200}, 300},
      {"a reply at once", kAtOnce, true, {0}, 0},
      {"a reply in time", {{1, kRight, 30}}, true, {0}, 30},
      // The read of the first try is still posted.
      {"a reply during the second try", {{1, kRight, 140}}, true, {0, 100}, 140},
      {"a reply during the third try", {{1, kRight, 299}}, true, {0, 100, 200}, 299},
      {"a wrong checksum", {{1, WrongChecksum(), 10}, {2, kRight, 10}}, true, {0, 10}, 20},
      // The stray report costs a try, so the request is written again.
      {"another command, then the right one",
       {{1, kOtherCommand, 0}, {1, kRight, 0}},
       true,
       {0, 0},
       0},
      {"nothing but stray reports",
       {{1, kOtherCommand, 5}, {2, WrongChecksum(), 5}, {3, kOtherCommand, 5}},
       false,
       {0, 5, 10},
       15},
      {"a stray report, then silence", {{1, kOtherCommand, 10}}, false, {0, 10, 110}, 210},
      // A report of zeros has the wrong checksum.
      {"zeros", {{1, Report(17), 0}, {2, kRight, 0}}, true, {0, 0}, 0},
      {"one try", {}, false, {0}, 100, 0},
      {"no try", kAtOnce, false, {}, 0, -1},
      {"no try", kAtOnce, false, {}, 0, INT32_MIN},
      {"a count that must not wrap around", {{2, kRight, 0}}, true, {0, 100}, 100, INT32_MAX},
      {"no event", kAtOnce, false, {}, 0, kExchangeRetries, "CreateEventW"},
      {"no read handle", kAtOnce, false, {0, 100, 200}, 300, kExchangeRetries, "CreateFileW", 2},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    if (test.failing != nullptr) platform::ArmFault(test.failing, test.nth);
    const Outcome outcome = Exchange(Sending(test.plan), test.retries);
    platform::DisarmFault();
    EXPECT_EQ(outcome.accepted, test.accepted);
    EXPECT_EQ(outcome.reply, test.accepted ? kRight : Report(17));
    EXPECT_EQ(outcome.writes_ms, test.writes_ms);
    EXPECT_EQ(outcome.elapsed_ms, test.elapsed_ms);
  }
}

TEST(ExchangeFrame, FailingWritesAndPathsCostNoTime) {
  const Outcome refused = Exchange(Refusing());
  EXPECT_EQ(refused.writes_ms, (std::vector<uint64_t>{0, 0, 0}));
  const Outcome absent = Exchange({}, kExchangeRetries, L"no such path");
  EXPECT_TRUE(absent.writes_ms.empty());
  for (const Outcome& outcome : {refused, absent}) {
    EXPECT_FALSE(outcome.accepted);
    EXPECT_EQ(outcome.reply, Report(17));
    EXPECT_EQ(outcome.elapsed_ms, 0u);
  }
}

// Around the end of the last try, at every microsecond: a reply either counts or comes too late,
// and the system is done with the exchange's memory when the exchange is over.
TEST(ExchangeFrame, ALateReplyFindsNoMemoryOfTheExchange) {
  for (uint64_t delay_us = 99'980; delay_us < 100'060; ++delay_us) {
    ScriptedDevice device(kScriptedPath, [&](ScriptedDevice& self, const Report&) {
      platform::ScheduleIn(delay_us, [&self] { self.Deliver(kRight); });
      return DWORD{0};
    });
    CommandFrame reply;
    const bool accepted = ExchangeFrame(device.Path(), kRequest, reply, 0, 100);
    EXPECT_EQ(Bytes(reply), accepted ? kRight : Report(17));
    EXPECT_EQ(accepted, delay_us <= 100'000) << delay_us;
    Sleep(1);
    EXPECT_EQ(platform::OpenHandleCount(), 0u);
  }
}

// The caller may have the reply take the request's place.
TEST(GetDeviceData, OneBufferForBoth) {
  ScriptedDevice device(kScriptedPath, Sending({{1, kRight, 0}}));
  CommandFrame frame = kRequest;
  EXPECT_TRUE(UsbFinder_GetDeviceData(device.Path(), &frame, &frame));
  EXPECT_EQ(Bytes(frame), kRight);
  EXPECT_EQ(device.writes().at(0).report, Bytes(kRequest));
}

// ---- Raw pass-through ------------------------------------------------------------------------

constexpr size_t kRawLength = 17;

struct Raw {
  explicit Raw(ScriptedDevice::Script script) : device(kScriptedPath, std::move(script)) {
    EXPECT_TRUE(OpenRawDevice(kScriptedPath));
  }
  ~Raw() {
    CloseRawDevice();
    EXPECT_EQ(platform::OpenHandleCount(), 0u);
  }

  ScriptedDevice device;
  Report request = Report(kRawLength, 0xA5);
  Report reply = Report(kRawLength, 0xEE);
};

TEST(PassThrough, TakesWhateverArrivesInTwoTries) {
  const struct {
    const char* name;
    ScriptedDevice::Script script;
    bool replied;
    size_t writes;
    uint64_t elapsed_ms;
    const char* failing = nullptr;
  } kCases[] = {
      {"nothing is tested", Sending({{1, WrongChecksum(), 30}}), true, 1, 30},
      {"during the second try", Sending({{1, WrongChecksum(), 250}}), true, 2, 250},
      {"silence", {}, false, 2, 400},
      {"refused writes", Refusing(), false, 2, 0},
      {"no event", Sending({{1, kRight, 0}}), false, 0, 0, "CreateEventW"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    Raw raw(test.script);
    if (test.failing != nullptr) platform::ArmFault(test.failing, 1);
    const uint64_t start = platform::NowMicros();
    EXPECT_EQ(ExchangeRaw(raw.request, raw.reply), test.replied);
    EXPECT_EQ((platform::NowMicros() - start) / 1000, test.elapsed_ms);
    platform::DisarmFault();
    EXPECT_EQ(raw.reply, test.replied ? WrongChecksum() : Report(kRawLength));
    EXPECT_EQ(raw.device.writes().size(), test.writes);
    for (const Written& written : raw.device.writes())
      EXPECT_EQ(written.report, raw.request);
  }
}

TEST(PassThrough, ALateReportFindsNoMemoryOfTheExchange) {
  Raw raw(Sending({{1, kRight, 401}}));
  EXPECT_FALSE(ExchangeRaw(raw.request, raw.reply));
  Sleep(10);
  // What came late is the next exchange's reply.
  EXPECT_TRUE(ExchangeRaw(raw.request, raw.reply));
}

TEST(PassThrough, FailsWithoutAnOpenPair) {
  Report report(kRawLength, 1);
  CloseRawDevice();
  EXPECT_FALSE(WriteRaw(report));
  EXPECT_FALSE(ExchangeRaw(report, report));
  EXPECT_EQ(report, Report(kRawLength));
  EXPECT_FALSE(OpenRawDevice(L"no such path"));
  EXPECT_FALSE(WriteRaw(report));
  CloseRawDevice();

  // Half a pair is released like a whole one.
  ScriptedDevice device(kScriptedPath, Refusing());
  platform::ArmFault("CreateFileW", 2);
  EXPECT_FALSE(OpenRawDevice(kScriptedPath));
  platform::DisarmFault();
  EXPECT_EQ(platform::OpenHandleCount(), 1u);
  EXPECT_FALSE(WriteRaw(report));
  device.SetScript({});
  EXPECT_TRUE(WriteRaw(report));
  CloseRawDevice();
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
}

}  // namespace
}  // namespace perilink::testing
