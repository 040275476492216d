// Every direct command in all its families: the bytes that it sends, and what it makes of replies.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

#include "perilink/finder.h"
#include "platform/text.h"
#include "support/interop_values.h"
#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

constexpr int64_t kNow = 1'700'000'000;
const char* const kNoReply = "";
using Byte = uint8_t;

Report FromHex(const std::string& hex) {
  Report bytes;
  std::istringstream text(hex);
  for (unsigned byte; text >> std::hex >> byte;)
    bytes.push_back(static_cast<uint8_t>(byte));
  return bytes;
}

std::string ToHex(const Report& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    if (!text.empty()) text += ' ';
    text += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

// Outputs are set apart before the call, so that one sees what is left untouched.
template <typename Record>
Record Marked() {
  Record record;
  std::memset(&record, 0xEE, sizeof record);
  return record;
}

// "1 | 12 34": the result in decimal and the output's bytes.
template <typename Result, typename Record>
std::string Seen(Result result, const Record& record) {
  Report bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return std::to_string(result) + " | " + ToHex(bytes);
}

// One way to call a command: a wide or a narrow path, the outcome as text.
using WideCall = std::function<std::string(const std::wstring&)>;
using NarrowCall = std::function<std::string(const char*)>;

struct Row {
  struct Case {
    std::string reply;  // bytes 0 to 15, or kNoReply
    std::string outcome;
  };
  std::string name;
  std::string request;  // bytes 0 to 15 with the keyboard target clear, then its byte 5 when set
  uint8_t keyboard_length;
  std::vector<Case> cases;
  WideCall wide;
  std::vector<NarrowCall> narrow;
};

// A row whose families have the same form: `call` takes the function and the path.
template <typename Wide, typename Narrow, typename Call>
void Add(std::vector<Row>& rows, const char* name, Wide* wide, Narrow* narrow, std::string request,
         uint8_t keyboard_length, std::vector<Row::Case> cases, Call call) {
  rows.push_back({name,
                  std::move(request),
                  keyboard_length,
                  std::move(cases),
                  [=](const std::wstring& path) { return call(wide, path); },
                  {[=](const char* path) { return call(narrow, path); }}});
}

#define BOTH(name) #name, UsbFinder_##name, UsbFinderC_##name

// The commands that fill a record or a value, after arguments of their own.
template <typename Record>
auto Filled(auto... arguments) {
  return [arguments...](auto function, auto path) {
    Record record = Marked<Record>();
    const bool result = function(path, arguments..., &record);
    return Seen(result, record);
  };
}

const DataRecord10 kData = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};

// The request of the device info command at kNow.
std::string DeviceInfoRequest(const char* length) {
  srand(static_cast<unsigned>(kNow));
  Report bytes = FromHex(std::string("08 01 00 00 00 ") + length);
  for (int i = 0; i < 4; ++i)
    bytes.push_back(static_cast<uint8_t>(rand() & 0xFF));
  return ToHex(bytes);
}

const auto kPlain = [](auto function, auto path) { return std::to_string(function(path)); };
const auto kSetTen = [](auto function, auto path) {
  return std::to_string(function(path, &kData));
};
template <uint8_t kKeyboard>
constexpr auto kInfo = [](auto function, auto path) { return Seen(0, function(path, kKeyboard)); };

std::vector<Row> QueryRows() {
  std::vector<Row> rows;
  const std::vector<Row::Case> info = {
      {"08 01 00 00 00 08 01 02 03 04 AA BB CC 05", "0 | AA BB CC"}, {kNoReply, "0 | 00 00 00"}};
  Add(rows, BOTH(GetDeviceInfo), DeviceInfoRequest("08"), 0x88, info, kInfo<0>);
  rows.back().narrow.push_back([](const char* path) {
    DeviceInfo record = Marked<DeviceInfo>();
    CS_UsbFinder_GetDeviceInfo(path, 0, &record);
    return Seen(0, record);
  });
  Add(rows, BOTH(GetDeviceInfo), DeviceInfoRequest("88"), 0x88, info, kInfo<2>);
  Add(rows, BOTH(GetDeviceOnLine), "08 03", 0x80,
      {{"08 03 00 00 00 00 07", "1"}, {"08 03", "0"}, {kNoReply, "0"}}, kPlain);
  Add(rows, BOTH(GetDeviceOnLineWithUsbAddress), "08 03", 0x80,
      {{"08 03 00 00 00 04 00 A1 A2 A3", "1 | 08 03 00 00 00 04 00 A1 A2 A3 00 00 00 00 00 00 60"},
       {kNoReply, "0 | 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}},
      Filled<CommandFrame>());
  rows.back().narrow.push_back([](const char* path) {
    const Report reply = TakeBytes(CS_UsbFinder_GetDeviceOnLineWithUsbAddress(path));
    // The managed form has no result beside the reply.
    return std::string(reply == Report(17) ? "0" : "1") + " | " + ToHex(reply);
  });
  // The voltage travels high byte first and is stored in the host's order.
  Add(rows, BOTH(GetBatteryLevel), "08 04", 0x80,
      {{"08 04 00 00 00 04 55 01 0F A1", "1 | 55 01 A1 0F"}, {kNoReply, "0 | EE EE EE EE"}},
      Filled<BatteryLevel>());
  rows.back().narrow.push_back(
      [](const char* path) { return Filled<BatteryLevel>()(CS_UsbFinder_GetBatteryLevel, path); });
  Add(rows, BOTH(GetCurrentDPI), "08 08 00 00 04 01", 0x81,
      {{"08 08 00 00 04 01 FF 56", "255"}, {kNoReply, "0"}}, kPlain);
  Add(rows, BOTH(GetVersion), "08 12", 0x80,
      {{"08 12 00 00 00 02 F1 23", "61731"}, {kNoReply, "0"}}, kPlain);
  Add(rows, BOTH(GetSlaveVersion), "08 B3", 0x80,
      {{"08 B3 00 00 00 02 F1 23", "1 | 23 F1 00 00"}, {kNoReply, "0 | 00 00 00 00"}},
      Filled<int32_t>());
  Add(rows, "GetRSSI", UsbFinder_GetRSSI, CS_UsbFinder_GetRSSI, "08 2B", 0x80,
      {{"08 2B 00 00 00 01 C4", "1 | C4"}, {kNoReply, "0 | EE"}}, Filled<uint8_t>());
  Add(rows, BOTH(GetMouseSerialNumber), "08 20", 0x80,
      {{"08 20 00 00 00 0A 01 02 03 04 05 06 07 08 09 0A", "1 | 01 02 03 04 05 06 07 08 09 0A"},
       {kNoReply, "0 | EE EE EE EE EE EE EE EE EE EE"}},
      Filled<DataRecord10>());
  return rows;
}

std::vector<Row> ReceiverRows() {
  std::vector<Row> rows;
  Add(rows, BOTH(Set4KDongleRGB), "08 14 00 00 00 0A 01 02 03 04 05 06 07 08 09 0A", 0x8A,
      {{"08 14 00 00 00 0A 01 02 03 04 05 06 07 08 09 0A", "0"},
       {"08 14 00 00 00 0A 01 02 03 04 05 06 07 08 09 0B", "1"},
       {"08 14 05 00 00 0A 01 02 03 04 05 06 07 08 09 0A", "5"},
       {"08 14 05 00 00 0A 00", "5"},
       {kNoReply, "3"}},
      kSetTen);
  Add(rows, BOTH(Get4KDongleRGBValue), "08 15", 0x80,
      {{"08 15 00 00 00 0A 01 02 03 04 05 06 07 08 09 0A", "1 | 01 02 03 04 05 06 07 08 09 0A"},
       {"08 15 00 00 00 00 01 02 03 04 05 06 07 08 09 0A", "0 | 01 02 03 04 05 06 07 08 09 0A"},
       {kNoReply, "0 | EE EE EE EE EE EE EE EE EE EE"}},
      Filled<DataRecord10>());
  Add(rows, BOTH(SetLongRangeMode), "08 16 00 00 00 0A 02", 0x8A,
      {{"08 16 00 00 00 0A 02", "1"}, {"08 16 00 00 00 0A 01", "0"}, {kNoReply, "0"}},
      [](auto function, auto path) { return std::to_string(function(path, 2)); });
  Add(rows, BOTH(GetLongRangeMode), "08 17", 0x80,
      {{"08 17 00 00 00 01 02", "1 | 02"}, {kNoReply, "0 | 00"}}, Filled<uint8_t>());
  // Whether the bar is on travels as its mode, not as a byte of its own.
  for (const bool on : {true, false}) {
    Add(rows, BOTH(SetDongleRGBBarMode),
        on ? "08 18 00 00 00 0A 07 01 02 03 04 05" : "08 18 00 00 00 0A 00 01 02 03 04 05", 0x8A,
        {{"08 18", "1"}, {kNoReply, "0"}}, [on](auto function, auto path) {
          const RgbBarMode mode = {7, {1, 2, 3, 4, 5}, static_cast<uint8_t>(on ? 9 : 0)};
          return std::to_string(function(path, &mode));
        });
  }
  Add(rows, BOTH(GetDongleRGBBarMode), "08 19", 0x80,
      {{"08 19 00 00 00 07 01 02 03 04 05 06 07 08", "1 | 01 02 03 04 05 06 07"},
       {"08 19 00 00 00 00 01 02 03 04 05 06 07 08", "0 | 01 02 03 04 05 06 07"},
       {kNoReply, "0 | EE EE EE EE EE EE EE"}},
      Filled<RgbBarMode>());
  Add(rows, BOTH(SetDongleIDToMouse), "08 1A 00 00 00 0A 01 02 03 04 05 06 07 08 09 0A", 0x8A,
      {{"08 1A 00 00 00 01", "1"}, {"08 1A", "0"}, {kNoReply, "0"}}, kSetTen);
  Add(rows, BOTH(SetMouseSerialNumber), "08 1F 00 00 00 0A 01 02 03 04 05 06 07 08 09 0A", 0x8A,
      {{"08 1F", "1"}, {kNoReply, "0"}}, kSetTen);
  Add(rows, BOTH(SetDongleIndicatorLed), "08 2C 00 00 00 0A 01 02 03", 0x8A,
      {{"08 2C", "1"}, {kNoReply, "0"}}, [](auto function, auto path) {
        const IndicatorLed led = {{1, 2, 3}};
        return std::to_string(function(path, &led));
      });
  Add(rows, BOTH(GetDongleIndicatorLed), "08 2D", 0x80,
      {{"08 2D 00 00 00 03 01 02 03 04", "1 | 01 02 03"}, {kNoReply, "0 | EE EE EE"}},
      Filled<IndicatorLed>());
  return rows;
}

std::vector<Row> IdAndDataRows() {
  std::vector<Row> rows;
  // The check byte (byte 8) covers byte 6 alone; bit 7 of byte 5 is the flag.
  Add(rows, BOTH(ReadCidMid), "08 F1 00 00 00 83", 0x83,
      {{"08 F1 00 00 00 83 12 77 43", "1 | 12 77 01"},
       {"08 F1 00 00 00 03 12 78 43", "1 | 12 78 00"},
       {"08 F1 00 00 00 83 12 77 44", "0 | 12 77 01"},
       {kNoReply, "0 | EE EE EE"}},
      Filled<CidMid>(Byte{0x55}));
  Add(rows, BOTH(WriteCidMid), "08 F0 00 00 00 83 0A 0B 0C", 0x83,
      {{"08 F0 00 00 00 83 12 77 43", "1 | 12 77 01"},
       {"08 F0 00 00 00 03 12 77 44", "0 | 12 77 00"},
       {kNoReply, "0 | 00 00 00"}},
      Filled<CidMid>(Byte{10}, Byte{11}, Byte{12}));
  const auto set_data = [](uint8_t length) {
    return [length](auto function, auto path) {
      return std::to_string(function(path, 0x42, length == 0 ? nullptr : kData.bytes, length));
    };
  };
  const std::vector<Row::Case> set_cases = {{"08 42", "1"}, {kNoReply, "0"}};
  Add(rows, BOTH(SetData), "08 42", 0x80, set_cases, set_data(0));
  Add(rows, BOTH(SetData), "08 42 00 00 00 03 01 02 03", 0x83, set_cases, set_data(3));
  Add(rows, BOTH(SetData), "08 42 00 00 00 0A 01 02 03 04 05 06 07 08 09 0A", 0x8A, set_cases,
      set_data(10));
  const std::vector<Row::Case> data_cases = {
      {"08 42 00 00 00 00 0A 09 08 07 06 05 04 03 02 01", "1 | 0A 09 08 07 06 05 04 03 02 01"},
      {kNoReply, "0 | EE EE EE EE EE EE EE EE EE EE"}};
  Add(rows, BOTH(GetData), "08 42 00 00 00 0A", 0x8A, data_cases, Filled<DataRecord10>(Byte{0x42}));
  Add(rows, BOTH(SetCommand), "08 42 00 00 00 02 01 02", 0x82, data_cases,
      Filled<DataRecord10>(Byte{0x42}, kData.bytes, Byte{2}, 2, 100));
  // The caller's own frame, whatever the keyboard target.
  const Report raw = Closed(FromHex("08 42 00 00 00 05 01 02 03 04 05 06 07 08 09 0A"));
  Add(rows, BOTH(GetDeviceData), "08 42 00 00 00 05 01 02 03 04 05 06 07 08 09 0A", 0x05,
      {{"08 42 01", "1 | 08 42 01 00 00 00 00 00 00 00 00 00 00 00 00 00 0A"},
       {kNoReply, "0 | 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}},
      [raw](auto function, auto path) {
        CommandFrame reply = Marked<CommandFrame>();
        CommandFrame request;
        std::memcpy(&request, raw.data(), sizeof request);
        const bool result = function(path, &request, &reply);
        return Seen(result, reply);
      });
  return rows;
}

class DirectCommands : public ::testing::Test {
 protected:
  ~DirectCommands() override {
    EXPECT_EQ(platform::OpenHandleCount(), 0u);
    EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
  }

  // Answers every request with `reply`, or not at all.
  void AnswerWith(const std::string& reply) {
    device_.ClearWrites();
    device_.SetScript([reply](ScriptedDevice& device, const Report&) {
      if (reply != kNoReply) device.Deliver(Closed(FromHex(reply)), 1);
      return DWORD{0};
    });
    platform::SetCalendarTime(kNow);
  }
  template <typename Call, typename Path>
  void Check(const Row& row, const Report& request, const Call& call, const Path& path) {
    for (const Row::Case& test : row.cases) {
      AnswerWith(test.reply);
      EXPECT_EQ(call(path), test.outcome) << row.name << ", reply " << test.reply;
      const size_t tries = test.reply == kNoReply ? 3 : 1;
      const auto writes = device_.writes();
      EXPECT_EQ(writes.size(), tries) << row.name;
      for (const Written& written : writes) {
        EXPECT_EQ(ToHex(written.report), ToHex(request)) << row.name;
      }
    }
  }

  // A path beyond ASCII, so that a narrow path only finds it through the code page.
  ScriptedDevice device_{L"\\\\?\\hid#vid_1234&pid_abcd#Größe"};
  const std::string narrow_path_ = WideToNarrow(device_.Path());
};

TEST_F(DirectCommands, EveryRowOfTheTable) {
  std::vector<Row> rows = QueryRows();
  for (auto* more : {ReceiverRows, IdAndDataRows}) {
    for (Row& row : more())
      rows.push_back(std::move(row));
  }
  for (const bool keyboard : {false, true}) {
    keyboard ? UsbFinder_SetKeyboardMode() : UsbFinder_SetMouseMode();
    for (const Row& row : rows) {
      Report request = FromHex(row.request);
      request.resize(16);
      if (keyboard) request[5] = row.keyboard_length;
      request = Closed(request);
      Check(row, request, row.wide, device_.Path());
      for (const NarrowCall& call : row.narrow)
        Check(row, request, call, narrow_path_.c_str());
    }
  }
}

TEST_F(DirectCommands, RefuseDataThatNoFrameHolds) {
  const std::vector<uint8_t> data(255, 0x11);
  AnswerWith("08 42");
  for (const uint8_t length : {uint8_t{11}, uint8_t{128}, uint8_t{255}}) {
    DataRecord10 record = Marked<DataRecord10>();
    EXPECT_FALSE(UsbFinder_SetData(device_.Path(), 0x42, data.data(), length));
    EXPECT_FALSE(UsbFinder_SetCommand(device_.Path(), 0x42, data.data(), length, 2, 100, &record));
    EXPECT_EQ(Seen(0, record), Seen(0, Marked<DataRecord10>()));
  }
  EXPECT_TRUE(device_.writes().empty());
  EXPECT_EQ(device_.opens(), 0);
}

TEST_F(DirectCommands, SetCommandHasTheCallersPatience) {
  AnswerWith(kNoReply);
  DataRecord10 record;
  const uint64_t start = platform::NowMicros();
  EXPECT_FALSE(UsbFinder_SetCommand(device_.Path(), 0x42, nullptr, 0, 0, 70, &record));
  EXPECT_EQ((platform::NowMicros() - start) / 1000, 70u);
  EXPECT_EQ(device_.writes().size(), 1u);
  EXPECT_FALSE(UsbFinder_SetCommand(device_.Path(), 0x42, nullptr, 0, -1, 70, &record));
  EXPECT_EQ(device_.writes().size(), 1u);
}

}  // namespace
}  // namespace perilink::testing
