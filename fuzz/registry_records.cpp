// The saved battery record through the registry and its file, and what the smoothing makes of it.
// The first byte of an input chooses how the rest gets there:
//   0  the record's text, a character for each byte
//   1  the record's raw bytes, under the type that the second byte names
//   2  the whole registry file
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "battery/optimizer.h"
#include "battery/saved_record.h"
#include "perilink_platform/win32.h"
#include "registry_tree.h"
#include "sim/scripted_device.h"
#include "support/input.h"
#include "support/require.h"
#include "support/saved_record.h"
#include "support/world.h"
#include "transport/frame.h"

namespace perilink::fuzz {
namespace {

using platform::RegistryTree;

constexpr DeviceAddress kDevice = {0x1A, 0x2B, 0x3C};
constexpr const wchar_t* kKey = L"Software\\DeviceBatteryOptimize";
constexpr const wchar_t* kName = L"BatteryValue_1a2b3c";
constexpr size_t kLongestRecord = 256 * sizeof(wchar_t);

void WriteRegistry(std::string_view text) {
  std::FILE* const file = std::fopen(RegistryFile().c_str(), "wb");
  Require(file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size() &&
              std::fclose(file) == 0,
          "the registry's file can be written");
  platform::SetRegistryFolder(RegistryFile().substr(0, RegistryFile().rfind('/')));
}

void WriteValue(DWORD type, std::span<const uint8_t> data) {
  RegistryTree tree;
  platform::RegistryValue value{kName, type, {data.begin(), data.end()}};
  tree.Ensure(kKey).values[L"batteryvalue_1a2b3c"] = std::move(value);
  WriteRegistry(tree.ToText());
}

// ---- What the smoothing makes of a record ------------------------------------------------------

uint8_t g_shown = 0;

void PERILINK_CALL OnLevel(const uint8_t* frame, uint32_t frame_length, const uint8_t* data,
                           uint32_t data_length) {
  Require(frame_length == 17 && frame[1] == PERILINK_COMMAND_BATTERY_LEVEL && data_length == 4,
          "a level report is a battery answer of four bytes");
  Require(data[0] <= 100, "a level that is shown is a percentage");
  g_shown = data[0];
}

// A battery of 60 %, of the device whose record it is.
DWORD AnswerPoll(sim::ScriptedDevice& device, const sim::Bytes& written) {
  if (written[1] == PERILINK_COMMAND_ON_LINE)
    device.Deliver(sim::ReplyTo(written, {1, kDevice[0], kDevice[1], kDevice[2]}));
  if (written[1] == PERILINK_COMMAND_BATTERY_LEVEL)
    device.Deliver(sim::ReplyTo(written, {60, 0, 0, 0}));
  return 0;
}

void CheckSmoothing() {
  static sim::ScriptedDevice device(sim::kScriptedPath, AnswerPoll);
  device.ClearWrites();
  BatteryOptimizer optimizer;
  optimizer.SetParam(0, 1, 1);
  optimizer.Connect(device.Path());
  g_shown = 255;
  for (int step = 0; step < 4; ++step) {
    Sleep(2);
    optimizer.Drive([]() -> ServerReportCallback { return &OnLevel; });
  }
  Require(g_shown != 255, "a poll that is answered starts the smoothing");
  optimizer.EndConnection();
  Require(ReadSavedRecord(kDevice).level == g_shown, "the level that was shown is saved");
}

// ---- The three ways ----------------------------------------------------------------------------

void CheckText(std::span<const uint8_t> bytes) {
  const std::wstring text(bytes.begin(), bytes.end());
  WriteValue(REG_SZ,
             {reinterpret_cast<const uint8_t*>(text.data()), text.size() * sizeof(wchar_t)});
  const std::wstring stored = text.substr(0, text.find(L'\0'));
  const bool too_long = text.size() * sizeof(wchar_t) > kLongestRecord;
  Require(SameRecord(ReadSavedRecord(kDevice), too_long ? SavedRecord{} : ExpectedRecord(stored)),
          "a record that is read is what its text says");
}

// Any bytes, of any type, may stand where the record should.
void CheckRaw(DWORD type, std::span<const uint8_t> bytes) {
  WriteValue(type, bytes);
  std::wstring text((bytes.size() + sizeof(wchar_t) - 1) / sizeof(wchar_t), L'\0');
  if (!bytes.empty()) std::memcpy(text.data(), bytes.data(), bytes.size());
  text.resize(std::min(text.size(), text.find(L'\0')));
  const bool too_long = bytes.size() > kLongestRecord;
  Require(SameRecord(ReadSavedRecord(kDevice), too_long ? SavedRecord{} : ExpectedRecord(text)),
          "a value's bytes are read as text");
}

// A text of any form may stand in the file.
void CheckFile(std::string_view text) {
  WriteRegistry(text);
  ReadSavedRecord(kDevice);
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  perilink::fuzz::EnterWorld();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  ForgetRegistry();
  Input input(data, size);
  switch (input.Byte() % 3) {
    case 0:
      CheckText(input.Bytes(size));
      break;
    case 1: {
      const uint8_t type = input.Byte() % 12;
      CheckRaw(type, input.Bytes(size));
      break;
    }
    default: {
      const auto text = input.Bytes(size);
      CheckFile({reinterpret_cast<const char*>(text.data()), text.size()});
    }
  }
  CheckSmoothing();
  return 0;
}
