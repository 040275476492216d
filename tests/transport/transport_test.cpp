// Searches, exchanges and the raw pass-through.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "perilink/finder.h"
#include "platform/win32.h"
#include "support/scripted_device.h"
#include "transport/discovery.h"
#include "transport/exchange.h"
#include "transport/link.h"
#include "transport/pass_through.h"

namespace perilink::testing {
namespace {

// ---- Searches -----------------------------------------------------------------------------------

// In the order in which they are plugged in.
const HidPathList kPaths = {
    L"\\\\?\\hid#vid_1234&pid_abcd&mi_00#7&aa#{4d1e55b2}",
    L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col05#7&bb#{4d1e55b2}",
    L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col12#7&cc#{4d1e55b2}",
    L"\\\\?\\hid#vid_1234&pid_ef01&mi_01&col05#7&dd#{4d1e55b2}",
    L"\\\\?\\HID#VID_1234&PID_ABCD&MI_01&COL05#7&EE#{4d1e55b2}",
    L"\\\\?\\hid#vid_99é9&pid_0001#7&Ff#{4d1e55b2}",
};

class Discovery : public ::testing::Test {
 protected:
  Discovery() {
    for (const std::wstring& path : kPaths) {
      devices_.push_back(std::make_unique<ScriptedDevice>(path));
    }
  }
  ~Discovery() override {
    for (const auto& device : devices_)
      EXPECT_EQ(device->opens(), 0);
    EXPECT_EQ(platform::OpenHandleCount(), 0u);
  }

  std::vector<std::unique_ptr<ScriptedDevice>> devices_;
};

HidPathList Picked(std::initializer_list<size_t> indices) {
  HidPathList paths;
  for (const size_t index : indices)
    paths.push_back(kPaths[index]);
  return paths;
}

TEST_F(Discovery, SearchesSelectByKeyInEnumerationOrder) {
  HidPathList list = {L"left over"};  // which every search replaces
  const auto by_id = [&](const wchar_t* vendor, const wchar_t* product, int number,
                         int collection) {
    UsbFinder_FindHidDevicesByDeviceId(vendor, product, number, collection, list);
    return list;
  };
  const auto by_key = [&](const wchar_t* key) {
    UsbFinder_FindHidDevicesByKey(key, list);
    return list;
  };
  const auto find = [&](const wchar_t* vendor, const wchar_t* product) {
    UsbFinder_FindHidDevices(vendor, product, list);
    return list;
  };
  UsbFinder_EnumHidDeviceList(list);
  EXPECT_EQ(list, kPaths);
  EXPECT_EQ(find(L"1234", L"ABCD"), Picked({0, 1, 2}));
  EXPECT_EQ(find(L"1234", L""), Picked({0, 1, 2, 3}));
  EXPECT_EQ(find(L"4321", L"abcd"), Picked({}));
  EXPECT_EQ(find(L"99é9", L""), Picked({5}));
  EXPECT_EQ(by_key(L""), Picked({}));
  EXPECT_EQ(by_key(L"COL05"), Picked({1, 3}));
  // An upper-case letter in a path is beyond the reach of a lower-cased key.
  EXPECT_EQ(by_key(L"7&Ff"), Picked({}));
  EXPECT_EQ(by_id(L"1234", L"ABCD", 1, 5), Picked({1}));
  EXPECT_EQ(by_id(L"1234", L"ABCD", 1, 4), Picked({}));
  EXPECT_EQ(by_id(L"1234", L"ABCD", INT32_MIN, INT32_MIN), Picked({}));
  EXPECT_EQ(by_id(L"1234", L"", 1, 5), Picked({1, 3}));
  EXPECT_EQ(by_id(L"", L"", 1, 5), Picked({}));
  UsbFinder_FindHidDevicesByDefaultDeviceId(L"1234", L"abcd", list);
  EXPECT_EQ(list, Picked({1}));
}

TEST_F(Discovery, KeysAreBoundedAndNeverGuessed) {
  HidPathList list = {kPaths[1]};
  // The key may be an element of the list that it fills.
  UsbFinder_FindHidDevicesByKey(list[0], list);
  EXPECT_EQ(list, Picked({1}));
  // No code point, hence not in the code page: no key, rather than one with a replacement in it.
  const std::wstring no_text(1, static_cast<wchar_t>(0xD800));
  ScriptedDevice strange(L"\\\\?\\hid#vid_\xFFFD&pid_0001#7");
  UsbFinder_FindHidDevices(no_text, L"0001", list);
  EXPECT_EQ(list, Picked({}));
  // What a long id has beyond 255 characters of the key does not count; an id ends at a NUL.
  ScriptedDevice lengthy(L"\\\\?\\hid#vid_" + std::wstring(251, L'a') + L"#7");
  UsbFinder_FindHidDevices(std::wstring(400, L'A'), L"0001", list);
  EXPECT_EQ(list, HidPathList{lengthy.Path()});
  UsbFinder_FindHidDevices(std::wstring(L"1234\0junk", 9), L"ef01", list);
  EXPECT_EQ(list, Picked({3}));
}

// ---- Exchanges ----------------------------------------------------------------------------------

const CommandFrame kRequest = BuildFrameWithLengthByte(PERILINK_COMMAND_VERSION, 0);
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

ScriptedDevice::Script Refusing() {
  return [](ScriptedDevice&, const Report&) { return DWORD{ERROR_GEN_FAILURE}; };
}

struct Expected {
  bool accepted;
  std::vector<uint64_t> writes_ms;
  uint64_t elapsed_ms;
};

// An exchange on a device with the script, while the nth call of a system function may fail.
void ExpectExchange(const char* name, ScriptedDevice::Script script, const Expected& expected,
                    int32_t retries = kExchangeRetries, const char* failing = "", uint64_t nth = 1,
                    const std::wstring& path = kScriptedPath) {
  SCOPED_TRACE(name);
  ScriptedDevice device(kScriptedPath, std::move(script));
  const uint64_t start = platform::NowMicros();
  CommandFrame reply;
  std::memset(&reply, 0xEE, sizeof reply);
  platform::ArmFault(failing, nth);
  EXPECT_EQ(ExchangeFrame(path, kRequest, reply, retries, 100), expected.accepted);
  platform::DisarmFault();
  EXPECT_EQ((platform::NowMicros() - start) / 1000, expected.elapsed_ms);
  EXPECT_EQ(Bytes(reply), expected.accepted ? kRight : Report(17));
  std::vector<uint64_t> writes_ms;
  for (const Written& written : device.writes()) {
    EXPECT_EQ(written.report, Bytes(kRequest));
    writes_ms.push_back(written.at_ms);
  }
  EXPECT_EQ(writes_ms, expected.writes_ms);
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
}

// What counts as the reply is a fuzz target's.
TEST(ExchangeFrame, TriesAndTheirTimes) {
  const auto at_once = Sending({{1, kRight, 0}});
  ExpectExchange("silence", {}, {false, {0, 100, 200}, 300});
  ExpectExchange("a reply at once", at_once, {true, {0}, 0});
  ExpectExchange("a reply in time", Sending({{1, kRight, 30}}), {true, {0}, 30});
  // The read of the first try is still posted.
  ExpectExchange("in the second try", Sending({{1, kRight, 140}}), {true, {0, 100}, 140});
  ExpectExchange("in the third try", Sending({{1, kRight, 299}}), {true, {0, 100, 200}, 299});
  ExpectExchange("too late", Sending({{3, kRight, 101}}), {false, {0, 100, 200}, 300});
  ExpectExchange("stray reports cost a try each",
                 Sending({{1, kOtherCommand, 5}, {2, WrongChecksum(), 5}, {3, kRight, 5}}),
                 {true, {0, 5, 10}, 15});
  ExpectExchange("no try", at_once, {false, {}, 0}, INT32_MIN);
  ExpectExchange("a count that must not wrap", Sending({{2, kRight, 0}}), {true, {0, 100}, 100},
                 INT32_MAX);
  ExpectExchange("no event", at_once, {false, {}, 0}, kExchangeRetries, "CreateEventW");
  ExpectExchange("no read handle", at_once, {false, {0, 100, 200}, 300}, kExchangeRetries,
                 "CreateFileW", 2);
  ExpectExchange("refused writes", Refusing(), {false, {0, 0, 0}, 0});
  ExpectExchange("no device", {}, {false, {}, 0}, kExchangeRetries, "", 1, L"no such path");
}

TEST(ExchangeFrame, AMemoryReadTakesAnAnswerWithoutAddressWhenTheTryEnds) {
  const CommandFrame request = BuildFrameWithLengthByte(PERILINK_COMMAND_READ_MEMORY, 1, {}, 4);
  const Report nameless = Closed({8, PERILINK_COMMAND_READ_MEMORY, 0, 0, 0, 1, 7});
  ScriptedDevice device(kScriptedPath, Sending({{1, nameless, 5}, {1, kOtherCommand, 50}}));
  const uint64_t start = platform::NowMicros();
  CommandFrame reply;
  EXPECT_TRUE(ExchangeFrame(kScriptedPath, request, reply));
  EXPECT_EQ(reply.data[0], 7);
  EXPECT_EQ((platform::NowMicros() - start) / 1000, 100u);
}

TEST(Link, ListensToNothingBeforeItIsOpened) {
  Link link(kRight.size());
  link.Listen();
  EXPECT_FALSE(link.listening());
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

void ExpectRaw(const char* name, ScriptedDevice::Script script, bool replied, size_t writes,
               uint64_t elapsed_ms, const char* failing = "") {
  SCOPED_TRACE(name);
  Raw raw(std::move(script));
  const uint64_t start = platform::NowMicros();
  platform::ArmFault(failing, 1);
  EXPECT_EQ(ExchangeRaw(raw.request, raw.reply), replied);
  platform::DisarmFault();
  EXPECT_EQ((platform::NowMicros() - start) / 1000, elapsed_ms);
  EXPECT_EQ(raw.reply, replied ? WrongChecksum() : Report(kRawLength));
  EXPECT_EQ(raw.device.writes().size(), writes);
  for (const Written& written : raw.device.writes())
    EXPECT_EQ(written.report, raw.request);
}

TEST(PassThrough, TakesWhateverArrivesInTwoTries) {
  ExpectRaw("nothing is tested", Sending({{1, WrongChecksum(), 30}}), true, 1, 30);
  ExpectRaw("during the second try", Sending({{1, WrongChecksum(), 250}}), true, 2, 250);
  ExpectRaw("silence", {}, false, 2, 400);
  ExpectRaw("refused writes", Refusing(), false, 2, 0);
  ExpectRaw("a read that fails", Sending({{1, kRight, 30}}), false, 2, 230, "GetOverlappedResult");
  ExpectRaw("no event", Sending({{1, kRight, 0}}), false, 0, 0, "CreateEventW");
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
