// Every direct command in all its families: the bytes that it sends, and what it makes of replies.
// And what a keyboard's layers are read with.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

#include "commands/layer_keys.h"
#include "perilink/finder.h"
#include "perilink_platform/world.h"
#include "platform/ansi_text.h"
#include "platform/win32.h"
#include "sim/keyboard.h"
#include "support/interop_values.h"
#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

constexpr int64_t kNow = 1'700'000'000;
const char* const kNoReply = "";
using Byte = uint8_t;

// Bytes 0 to 15 of a frame: all of them, or its command, its length and data.
Report FromHex(const std::string& hex) {
  Report bytes;
  std::istringstream text(hex);
  for (unsigned byte; text >> std::hex >> byte;)
    bytes.push_back(static_cast<uint8_t>(byte));
  if (bytes[0] != PERILINK_REPORT_ID) {
    bytes.insert(bytes.begin(), PERILINK_REPORT_ID);
    bytes.insert(bytes.begin() + 2, 3, uint8_t{0});
  }
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

// What a command without an accepted reply makes of an output of so many bytes.
std::string Untouched(size_t size) {
  return "0 | " + ToHex(Report(size, 0xEE));
}
std::string Zeroed(size_t size) {
  return "0 | " + ToHex(Report(size));
}

// One way to call a command: a wide or a narrow path, the outcome as text.
using WideCall = std::function<std::string(const std::wstring&)>;
using NarrowCall = std::function<std::string(const char*)>;

struct Row {
  struct Case {
    std::string reply;
    std::string outcome;
  };
  std::string name;
  std::string request;  // with the keyboard target clear; it sets bit 7 of byte 5
  std::vector<Case> cases;
  WideCall wide;
  std::vector<NarrowCall> narrow;
  bool own_frame = false;  // the caller's, which the keyboard target leaves alone
};

std::vector<Row> rows;

// A row whose families have the same form: `call` takes the function and the path.
template <typename Wide, typename Narrow, typename Call>
void Add(const char* name, Wide* wide, Narrow* narrow, std::string request, std::string no_reply,
         std::vector<Row::Case> cases, Call call) {
  cases.push_back({kNoReply, std::move(no_reply)});
  rows.push_back({name,
                  std::move(request),
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

// Those that return a number alone.
auto Plain(auto... arguments) {
  return [arguments...](auto function, auto path) {
    return std::to_string(function(path, arguments...));
  };
}

const std::string kTen = "01 02 03 04 05 06 07 08 09 0A";
const DataRecord10 kData = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};

// The request of the device info command at kNow.
std::string DeviceInfoRequest(const char* length) {
  srand(static_cast<unsigned>(kNow));
  Report bytes = FromHex(std::string("01 ") + length);
  for (int i = 0; i < 4; ++i)
    bytes.push_back(static_cast<uint8_t>(rand() & 0xFF));
  return ToHex(bytes);
}
const auto kTenBytes = Filled<DataRecord10>();
template <uint8_t kKeyboard>
constexpr auto kInfo = [](auto function, auto path) { return Seen(0, function(path, kKeyboard)); };

void AddQueries() {
  const std::vector<Row::Case> info = {{"01 08 01 02 03 04 AA BB CC 05", "0 | AA BB CC"}};
  Add(BOTH(GetDeviceInfo), DeviceInfoRequest("08"), Zeroed(3), info, kInfo<0>);
  rows.back().narrow.push_back([](const char* path) {
    DeviceInfo record = Marked<DeviceInfo>();
    CS_UsbFinder_GetDeviceInfo(path, 0, &record);
    return Seen(0, record);
  });
  Add(BOTH(GetDeviceInfo), DeviceInfoRequest("88"), Zeroed(3), info, kInfo<2>);
  Add(BOTH(GetDeviceOnLine), "03", "0", {{"03 00 07", "1"}, {"03", "0"}}, Plain());
  Add(BOTH(GetDeviceOnLineWithUsbAddress), "03", Zeroed(17),
      {{"03 04 00 A1 A2 A3", "1 | 08 03 00 00 00 04 00 A1 A2 A3 00 00 00 00 00 00 60"}},
      Filled<CommandFrame>());
  rows.back().narrow.push_back([](const char* path) {
    const Report reply = TakeBytes(CS_UsbFinder_GetDeviceOnLineWithUsbAddress(path));
    // The managed form has no result beside the reply.
    return reply == Report(17) ? Zeroed(17) : "1 | " + ToHex(reply);
  });
  // The voltage travels high byte first and is stored in the host's order.
  const auto battery = Filled<BatteryLevel>();
  Add(BOTH(GetBatteryLevel), "04", Untouched(4), {{"04 04 55 01 0F A1", "1 | 55 01 A1 0F"}},
      battery);
  rows.back().narrow.push_back(
      [=](const char* path) { return battery(CS_UsbFinder_GetBatteryLevel, path); });
  Add(BOTH(GetCurrentDPI), "08 08 00 00 04 01", "0", {{"08 08 00 00 04 01 FF 56", "255"}}, Plain());
  Add(BOTH(GetVersion), "12", "0", {{"12 02 F1 23", "61731"}}, Plain());
  Add(BOTH(GetSlaveVersion), "B3", Zeroed(4), {{"B3 02 F1 23", "1 | 23 F1 00 00"}},
      Filled<int32_t>());
  Add("GetRSSI", UsbFinder_GetRSSI, CS_UsbFinder_GetRSSI, "2B", Untouched(1),
      {{"2B 01 C4", "1 | C4"}}, Filled<uint8_t>());
  Add(BOTH(GetMouseSerialNumber), "20", Untouched(10), {{"20 0A " + kTen, "1 | " + kTen}},
      kTenBytes);
}

void AddReceiverCommands() {
  Add(BOTH(Set4KDongleRGB), "14 0A " + kTen, "3",
      {{"14 0A " + kTen, "0"},
       {"14 0A 01 02 03 04 05 06 07 08 09 0B", "1"},
       {"08 14 05 00 00 0A " + kTen, "5"},
       {"08 14 05 00 00 0A 00", "5"}},
      Plain(&kData));
  Add(BOTH(Get4KDongleRGBValue), "15", Untouched(10),
      {{"15 0A " + kTen, "1 | " + kTen}, {"15 00 " + kTen, "0 | " + kTen}}, kTenBytes);
  Add(BOTH(SetLongRangeMode), "16 0A 02", "0", {{"16 0A 02", "1"}, {"16 0A 01", "0"}},
      Plain(Byte{2}));
  Add(BOTH(GetLongRangeMode), "17", Zeroed(1), {{"17 01 02", "1 | 02"}}, Filled<uint8_t>());
  // Whether the bar is on travels as its mode, not as a byte of its own.
  static const RgbBarMode bar_on = {7, {1, 2, 3, 4, 5}, 9};
  static const RgbBarMode bar_off = {7, {1, 2, 3, 4, 5}, 0};
  Add(BOTH(SetDongleRGBBarMode), "18 0A 07 01 02 03 04 05", "0", {{"18", "1"}}, Plain(&bar_on));
  Add(BOTH(SetDongleRGBBarMode), "18 0A 00 01 02 03 04 05", "0", {{"18", "1"}}, Plain(&bar_off));
  Add(BOTH(GetDongleRGBBarMode), "19", Untouched(7),
      {{"19 07 01 02 03 04 05 06 07 08", "1 | 01 02 03 04 05 06 07"},
       {"19 00 01 02 03 04 05 06 07 08", "0 | 01 02 03 04 05 06 07"}},
      Filled<RgbBarMode>());
  Add(BOTH(SetDongleIDToMouse), "1A 0A " + kTen, "0", {{"1A 01", "1"}, {"1A", "0"}}, Plain(&kData));
  Add(BOTH(SetMouseSerialNumber), "1F 0A " + kTen, "0", {{"1F", "1"}}, Plain(&kData));
  static const IndicatorLed led = {{1, 2, 3}};
  Add(BOTH(SetDongleIndicatorLed), "2C 0A 01 02 03", "0", {{"2C", "1"}}, Plain(&led));
  Add(BOTH(GetDongleIndicatorLed), "2D", Untouched(3), {{"2D 03 01 02 03 04", "1 | 01 02 03"}},
      Filled<IndicatorLed>());
}

void AddIdAndDataCommands() {
  // The check byte (byte 8) covers byte 6 alone; bit 7 of byte 5 is the flag.
  Add(BOTH(ReadCidMid), "F1 83", Untouched(3),
      {{"F1 83 12 77 43", "1 | 12 77 01"},
       {"F1 03 12 78 43", "1 | 12 78 00"},
       {"F1 83 12 77 44", "0 | 12 77 01"}},
      Filled<CidMid>(Byte{0x55}));
  Add(BOTH(WriteCidMid), "F0 83 0A 0B 0C", Zeroed(3),
      {{"F0 83 12 77 43", "1 | 12 77 01"}, {"F0 03 12 77 44", "0 | 12 77 00"}},
      Filled<CidMid>(Byte{10}, Byte{11}, Byte{12}));
  const auto set = [](Byte length) { return Plain(Byte{0x42}, kData.bytes, length); };
  const uint8_t* const none = nullptr;
  Add(BOTH(SetData), "42", "0", {{"42", "1"}}, Plain(Byte{0x42}, none, Byte{0}));
  Add(BOTH(SetData), "42 03 01 02 03", "0", {{"42", "1"}}, set(3));
  Add(BOTH(SetData), "42 0A " + kTen, "0", {{"42", "1"}}, set(10));
  const std::vector<Row::Case> get = {{"42 00 " + kTen, "1 | " + kTen}};
  Add(BOTH(GetData), "42 0A", Untouched(10), get, Filled<DataRecord10>(Byte{0x42}));
  Add(BOTH(SetCommand), "42 02 01 02", Untouched(10), get,
      Filled<DataRecord10>(Byte{0x42}, kData.bytes, Byte{2}, 2, 100));
  static CommandFrame raw;
  std::ranges::copy(Closed(FromHex("42 05 " + kTen)), &raw.report_id);
  Add(BOTH(GetDeviceData), "42 05 " + kTen, Zeroed(17),
      {{"08 42 01", "1 | 08 42 01 00 00 00 00 00 00 00 00 00 00 00 00 00 0A"}},
      Filled<CommandFrame>(&raw));
  rows.back().own_frame = true;
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
  AddQueries();
  AddReceiverCommands();
  AddIdAndDataCommands();
  for (const bool keyboard : {false, true}) {
    keyboard ? UsbFinder_SetKeyboardMode() : UsbFinder_SetMouseMode();
    for (const Row& row : rows) {
      Report request = FromHex(row.request);
      request.resize(16);
      if (keyboard && !row.own_frame) request[5] |= 0x80;
      request = Closed(request);
      Check(row, request, row.wide, device_.Path());
      for (const NarrowCall& call : row.narrow)
        Check(row, request, call, narrow_path_.c_str());
    }
  }
}

TEST_F(DirectCommands, RefuseDataThatNoFrameHolds) {
  const std::vector<uint8_t> data(255, 0x11);
  AnswerWith("42");
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

// ---- Layer keys ---------------------------------------------------------------------------------

using Keys = std::vector<uint8_t>;

// A piece that is not answered has a second try. Reports that answer something else cost nothing,
// and no byte of theirs is taken.
TEST(LayerKeys, FaultsOfOnePiece) {
  struct Fault {
    const char* name;
    std::function<void(sim::Keyboard&)> arrange;
    bool read;
    size_t requests;
  };
  const auto fault = [](const char* function) {
    return [function](sim::Keyboard&) { platform::ArmFault(function, 1, true); };
  };
  const uint64_t late_micros = 205'000;
  const Fault faults[] = {
      {"ignored once", [](auto& k) { k.faults().Ignore(sim::At(5)); }, true, 53},
      {"write fails once", [](auto& k) { k.faults().FailWrite(sim::At(5)); }, true, 53},
      {"ignored twice", [](auto& k) { k.faults().Ignore(sim::At(5)).Ignore(sim::At(6)); }, false,
       6},
      {"wrong checksum", [](auto& k) { k.faults().CorruptChecksum(sim::At(3)); }, true, 53},
      {"wrong command", [](auto& k) { k.faults().WrongCommand(sim::At(3)); }, true, 53},
      {"an event first", [](auto& k) { k.faults().StrayEventBefore(sim::At(3)); }, true, 52},
      {"the third late", [&](auto& k) { k.faults().AnswerAfter(sim::At(3), late_micros); }, true,
       53},
      {"the third twice", [](auto& k) { k.faults().Duplicate(sim::At(3)); }, true, 52},
      // Its address is 0: the device might echo none, until another answer shows that it does.
      {"the first late", [&](auto& k) { k.faults().AnswerAfter(sim::At(1), late_micros); }, true,
       53},
      {"the first twice", [](auto& k) { k.faults().Duplicate(sim::At(1)); }, true, 54},
      {"unplugged", [](auto& k) { k.faults().UnplugAfter(sim::At(9)); }, false, 9},
      {"no event", fault("CreateEventW"), false, 0},
      {"not opened", fault("CreateFileW"), false, 0},
      {"no read", fault("ReadFile"), false, 2},
  };
  for (const Fault& row : faults) {
    sim::Keyboard keyboard;
    keyboard.Plug();
    row.arrange(keyboard);
    const auto begin = keyboard.flash().bytes().begin();
    EXPECT_EQ(LoadLayerKeys(keyboard.CommandPath(), 1),
              row.read ? Keys(begin, begin + 512) : Keys())
        << row.name;
    EXPECT_EQ(keyboard.CountRequests(0x08), row.requests) << row.name;
    platform::DisarmFault();
    EXPECT_EQ(platform::OpenHandleCount(), 0u);
  }
}

// A device that echoes no address is read all the same.
TEST(LayerKeys, WithoutAddresses) {
  sim::Keyboard keyboard;
  keyboard.Plug();
  keyboard.faults().OnReply([](sim::Exchange& exchange) {
    sim::Bytes& report = exchange.replies[0].report;
    report[16] = static_cast<uint8_t>(report[16] + report[3] + report[4]);
    report[3] = report[4] = 0;
  });
  const auto begin = keyboard.flash().bytes().begin() + 0x200;
  EXPECT_EQ(LoadLayerKeys(keyboard.CommandPath(), 2), Keys(begin, begin + 512));
}

}  // namespace
}  // namespace perilink::testing
