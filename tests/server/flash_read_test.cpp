#include "server/flash_read.h"

#include <gtest/gtest.h>

#include <vector>

#include "server_fixture.h"

#include "commands/layer_keys.h"
#include "perilink/finder.h"
#include "perilink/protocol_data.h"
#include "protocol/image.h"
#include "protocol/stored.h"
#include "sim/mouse.h"

namespace perilink::testing {
namespace {

using sim::SlotEvent;

class FlashRead : public ServerTest {
 protected:
  FlashRead() {
    mouse.Plug();
    StartOnMouse();
  }
  void StartOnMouse(ServerReportCallback callback = &ServerTest::OnReport) {
    UsbServer_Start(mouse.CommandPath(), mouse.CommandPath(), callback);
    Sleep(5);
    mouse.ClearRequests();
    callbacks.clear();
  }
  // The memory reads written so far, as address and wanted length; consecutive full frames joined.
  std::vector<std::pair<int, int>> Reads() const {
    std::vector<std::pair<int, int>> reads;
    bool open = false;
    for (const sim::Request& request : mouse.Requests()) {
      const int address = request.bytes[3] << 8 | request.bytes[4];
      const int length = request.bytes[5];
      if (open && address == reads.back().first + reads.back().second) {
        reads.back().second += length;
      } else {
        reads.emplace_back(address, length);
      }
      open = length == 10;
    }
    return reads;
  }
  // Whether an image that has been read holds the device's configuration.
  bool IsRight(const Report& image) {
    ProtocolData read{};
    ProtocolData held{};
    ProtocolDataParser(image.data(), &read);
    ProtocolDataParser(mouse.flash().bytes().data(), &held);
    for (size_t slot = 0; slot < sim::kSlotCount; ++slot)
      if (!mouse.flash().ShortcutValid(slot) && image[sim::ShortcutAddress(slot)] != 0xFF)
        return false;  // not even in bytes that no parser takes
    for (MacroKey& macro : held.macros)
      if (macro.name_length == 0) macro = {};  // not read at all
    return image.size() == PERILINK_FLASH_IMAGE_SIZE && Same(read, held);
  }
  void ExpectWholeRead() {
    callbacks.clear();
    UsbServer_ReadAllFlashData();
    WaitForCallbacks(1);
    ASSERT_EQ(callbacks.size(), 1u);
    EXPECT_EQ(callbacks[0].frame, Report({8, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(IsRight(callbacks[0].data));
  }

  static ProtocolData Stored() {
    return StoredProtocolData::Instance().With([](ProtocolData& it) { return it; });
  }

  sim::Mouse mouse;
};

std::vector<SlotEvent> Events(size_t count) {
  std::vector<SlotEvent> events;
  for (size_t i = 0; i < count; ++i)
    events.push_back({static_cast<uint8_t>(i % 3), 2, static_cast<uint8_t>(i), 1,
                      static_cast<uint16_t>(300 + i)});
  return events;
}

TEST_F(FlashRead, EmptySlotsAreOnlyProbed) {
  std::vector<std::pair<int, int>> expected = {{0, PERILINK_SETTINGS_BLOCK_SIZE}, {6912, 48}};
  for (int slot = 0; slot < 16; ++slot)
    expected.emplace_back(256 + 32 * slot, 10);
  for (int slot = 0; slot < 16; ++slot) {
    expected.emplace_back(768 + 384 * slot, 10);
    expected.emplace_back(799 + 384 * slot, 10);
  }
  const uint64_t start_ms = GetTickCount64();
  uint64_t took_ms = 0;
  on_callback = [&](const Callback&) { took_ms = GetTickCount64() - start_ms; };
  ExpectWholeRead();
  EXPECT_EQ(Reads(), expected);
  const size_t frames = mouse.Requests().size();
  EXPECT_EQ(frames, 24u + 5 + 16 + 32);
  EXPECT_LE(static_cast<double>(took_ms), 1.02 * static_cast<double>(frames * (8 + 1)) + 1);
  // What is not in use is erased, and the rest has become the library's own record.
  const auto behind_settings = callbacks[0].data.begin() + PERILINK_SETTINGS_BLOCK_SIZE;
  const auto macros = callbacks[0].data.begin() + 768;
  EXPECT_EQ(std::count(behind_settings, macros, 0xFF), macros - behind_settings);
  EXPECT_TRUE(StoredProtocolData::Instance().parsed());
}

// Each kind of slot in each position, one kind after another round the slots.
TEST_F(FlashRead, SlotsAreReadByWhatTheyHold) {
  struct Kind {
    uint8_t shortcut;
    uint8_t name;
    uint8_t events;
    bool broken;
  };
  const Kind kinds[] = {{0, 0, 0, false},  {1, 5, 3, false},    {2, 30, 70, false},
                        {6, 31, 3, false}, {255, 5, 80, false}, {7, 4, 1, false},
                        {3, 7, 2, true}};
  const auto bytes = mouse.flash().bytes();
  for (size_t turn = 0; turn < 7; ++turn) {
    for (size_t slot = 0; slot < 16; ++slot) {
      const Kind& kind = kinds[(slot + turn) % 7];
      const size_t macro = sim::MacroAddress(slot);
      mouse.flash().SetShortcut(slot, Events(kind.shortcut));
      mouse.flash().SetMacro(slot, std::string(kind.name, 'm'), Events(kind.events));
      bytes[macro] = kind.name;
      bytes[macro + 31] = kind.events;
      if (kind.broken) bytes[sim::ShortcutAddress(slot) + 3] ^= 0x10, bytes[macro + 35] ^= 0x10;
    }
    ExpectWholeRead();
  }
}

// Answers that come after their frame was written again, come twice, answer a direct command's read
// or those of a layer, always ahead: each at each place of a read, from address 0, which a device
// without an echo names too.
TEST_F(FlashRead, AnswersOfOtherReadsShiftNothing) {
  enum Fault { kLate, kTwice, kDirect, kLayer };
  for (const Fault fault : {kLate, kTwice, kDirect, kLayer}) {
    for (const uint16_t address : {uint16_t{0}, uint16_t{0x30}}) {
      for (uint64_t at = 1; at <= 5; ++at) {
        StartOnMouse();
        if (fault == kLate) mouse.faults().AnswerAfter(sim::At(at), 100'900);
        if (fault == kTwice) mouse.faults().Duplicate(sim::At(at));
        mouse.firmware().options().latency_micros = fault == kLayer ? 2'800 : 1'000;
        UsbServer_ReadFalshData(address, 200, 0);
        if (fault == kDirect) {
          Sleep(static_cast<DWORD>(9 * at - 1));
          EXPECT_EQ(UsbFinder_GetCurrentDPI(mouse.CommandPath()), mouse.flash()[4]) << at;
        }
        if (fault == kLayer) {
          Sleep(static_cast<DWORD>(at));
          EXPECT_EQ(LoadLayerKeys(mouse.CommandPath(), 1).size(), 512u);
        }
        WaitForCallbacks(1);
        const auto expected = mouse.flash().bytes().subspan(address, 200);
        ASSERT_EQ(callbacks.size(), 1u);
        EXPECT_EQ(callbacks[0].data, Report(expected.begin(), expected.end()))
            << "fault " << fault << ", address " << address << ", answer " << at;
      }
    }
  }
}

// At every moment of the read: what the update has stored stays stored, and the next change of the
// same field reaches the device.
TEST_F(FlashRead, AnUpdateDuringAReadIsNotUndone) {
  ExpectWholeRead();
  ProtocolData record = Stored();
  const auto settle = [&] {
    for (int i = 0; i < 100 && !QueuedEntries().empty(); ++i)
      Sleep(100);
  };
  for (DWORD moment_ms = 0; moment_ms < 750; moment_ms += 13) {
    UsbServer_ReadAllFlashData();
    Sleep(moment_ms);
    for (ProtocolData& change : std::vector{record, record}) {
      record.report_rate = change.report_rate = static_cast<uint8_t>(record.report_rate % 100 + 1);
      change.macros[14].name_length = record.macros[14].name_length = 4;
      record.macros[14].name[0] = change.macros[14].name[0] = change.report_rate;
      ProtocolDataUpdate(&change);
      settle();
      EXPECT_EQ(mouse.flash()[0], change.report_rate) << moment_ms;
      EXPECT_EQ(mouse.flash()[sim::MacroAddress(14) + 1], change.report_rate) << moment_ms;
      ProtocolData held{};
      ProtocolDataParser(mouse.flash().bytes().data(), &held);
      EXPECT_TRUE(Same(held, Stored())) << moment_ms;
    }
  }
}

// The answer to its last request is taken when a start export has dropped the rest.
TEST_F(FlashRead, NothingOfAReadReachesTheNextConnection) {
  UsbServer_Exit();
  Sleep(200);
  ServerState& state = ServerState::Instance();
  FlashReads reads(state);
  FlashReads::Step step{.tag = 1, .reader = nullptr, .connection = state.LockQueues().connection};
  const std::vector<uint8_t> data(kReplyDataSize);
  reads.Continue(step, std::span<const uint8_t, kReplyDataSize>(data), &ServerTest::OnReport);
  EXPECT_EQ(QueuedEntries().size(), 5u);
  state.RequestStart({L"elsewhere", L"elsewhere"}, &ServerTest::OnReport);
  for (const int tag : {82, 17, 81}) {
    step.tag = static_cast<uint8_t>(tag);
    reads.Continue(step, std::span<const uint8_t, kReplyDataSize>(data), &ServerTest::OnReport);
  }
  EXPECT_TRUE(QueuedEntries().empty());
  EXPECT_TRUE(callbacks.empty());
  EXPECT_FALSE(StoredProtocolData::Instance().parsed());
}

TEST_F(FlashRead, TwoReadsAtOnceGiveTwoImagesInSpiteOfFaults) {
  mouse.flash().SetShortcut(3, Events(6));
  mouse.flash().SetMacro(15, "macro", Events(40));
  mouse.faults().Random(7, {.drop = 0.05, .corrupt = 0.05, .wrong_command = 0.05, .limit = 40});
  UsbServer_ReadAllFlashData();
  UsbServer_ReadAllFlashData();
  WaitForCallbacks(2);
  ASSERT_EQ(callbacks.size(), 2u);
  EXPECT_TRUE(IsRight(callbacks[0].data));
  EXPECT_TRUE(IsRight(callbacks[1].data));
}

TEST_F(FlashRead, WithoutACallbackNothingIsParsed) {
  StartOnMouse(nullptr);
  UsbServer_ReadAllFlashData();
  Sleep(2000);
  EXPECT_EQ(mouse.Requests().size(), 24u + 5 + 16 + 32);
  EXPECT_FALSE(StoredProtocolData::Instance().parsed());
}

}  // namespace
}  // namespace perilink::testing
