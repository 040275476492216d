#include "server/flash_read.h"

#include <gtest/gtest.h>

#include <vector>

#include "perilink/protocol_data.h"
#include "protocol/stored.h"
#include "server_fixture.h"
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
  // The image that a whole read must give: what is not in use is erased.
  Report ExpectedImage() {
    Report image(PERILINK_FLASH_IMAGE_SIZE, 0xFF);
    const auto copy = [&](size_t address, size_t size) {
      std::copy_n(mouse.flash().bytes().begin() + static_cast<ptrdiff_t>(address), size,
                  image.begin() + static_cast<ptrdiff_t>(address));
    };
    copy(0, 233);
    copy(6912, 48);
    for (size_t slot = 0; slot < 16; ++slot) {
      const size_t shortcut = sim::ShortcutAddress(slot);
      const uint8_t count = mouse.flash()[shortcut];
      if (count >= 2 && count <= 6 && mouse.flash().ShortcutValid(slot))
        copy(shortcut, 3 * size_t{count} + 2);
      const size_t macro = sim::MacroAddress(slot);
      const uint8_t name = mouse.flash()[macro];
      if (name < 1 || name > 30) continue;
      MacroKey record{};
      const uint8_t events = mouse.flash()[macro + 31];
      Report read(384, 0);  // no more of the slot than the read asks for
      const size_t size = events >= 2 && events <= 70 ? 5 * size_t{events} + 33 : name + 1u;
      std::copy_n(mouse.flash().bytes().begin() + static_cast<ptrdiff_t>(macro), size,
                  read.begin());
      BufferToMacroKey(read.data(), &record);
      MacroKeyToBuffer(&record, image.data() + macro);
    }
    return image;
  }
  void ExpectWholeRead() {
    callbacks.clear();
    UsbServer_ReadAllFlashData();
    WaitForCallbacks(1);
    ASSERT_EQ(callbacks.size(), 1u);
    EXPECT_EQ(callbacks[0].frame, Report({8, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(callbacks[0].data, ExpectedImage());
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
  std::vector<std::pair<int, int>> expected = {{0, 233}, {6912, 48}};
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
  // It has become the library's own record.
  EXPECT_TRUE(StoredProtocolData::Instance().parsed());
  ProtocolData parsed{};
  ProtocolDataParser(callbacks[0].data.data(), &parsed);
  StoredProtocolData::Instance().With([&](const ProtocolData& record) {
    EXPECT_EQ(std::memcmp(&record, &parsed, sizeof(parsed)), 0);
  });
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

TEST_F(FlashRead, AReadThatBreaksOffReportsNothingAndTheNextSucceeds) {
  for (const uint64_t stop_at : {3u, 27u, 40u, 70u}) {
    callbacks.clear();
    mouse.faults().Ignore(sim::From(stop_at));
    UsbServer_ReadAllFlashData();
    Sleep(2500);
    EXPECT_TRUE(callbacks.empty());
    EXPECT_TRUE(QueuedEntries().empty());
    mouse.faults().Heal();
    ExpectWholeRead();
    mouse.faults().UnplugAfter(sim::At(stop_at));
    callbacks.clear();
    UsbServer_ReadAllFlashData();
    Sleep(2500);
    EXPECT_TRUE(callbacks.empty());
    mouse.faults().Heal();
    mouse.Plug();
    StartOnMouse();
    ExpectWholeRead();
  }
}

TEST_F(FlashRead, TwoReadsAtOnceGiveTwoImagesInSpiteOfFaults) {
  mouse.flash().SetShortcut(3, Events(6));
  mouse.flash().SetMacro(15, "macro", Events(40));
  mouse.faults().Random(7, {.drop = 0.05, .corrupt = 0.05, .wrong_command = 0.05, .limit = 40});
  UsbServer_ReadAllFlashData();
  UsbServer_ReadAllFlashData();
  WaitForCallbacks(2);
  ASSERT_EQ(callbacks.size(), 2u);
  EXPECT_EQ(callbacks[0].data, ExpectedImage());
  EXPECT_EQ(callbacks[1].data, ExpectedImage());
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
