#include "server/layer_keys.h"

#include <gtest/gtest.h>

#include <vector>

#include "perilink_platform/world.h"
#include "platform/win32.h"
#include "sim/keyboard.h"

namespace perilink {
namespace {

using Keys = std::vector<uint8_t>;

class LayerKeys : public testing::Test {
 protected:
  LayerKeys() { keyboard.Plug(); }
  ~LayerKeys() override { EXPECT_EQ(platform::OpenHandleCount(), 0u); }
  Keys Load(uint8_t layer) { return LoadLayerKeys(keyboard.CommandPath(), layer); }
  Keys Memory(ptrdiff_t address, size_t size) {
    const auto begin = keyboard.flash().bytes().begin() + address;
    return Keys(begin, begin + static_cast<ptrdiff_t>(size));
  }

  sim::Keyboard keyboard;
};

TEST_F(LayerKeys, ReadsTheLayersRange) {
  EXPECT_EQ(Load(1), Memory(0x000, 512));
  EXPECT_EQ(Load(2), Memory(0x200, 512));
  EXPECT_EQ(Load(3), Memory(0x400, 512));
  EXPECT_EQ(keyboard.CountRequests(0x08), 3u * 52);
  EXPECT_EQ(keyboard.Requests().back().bytes[4], 0xFE);
  EXPECT_EQ(Load(0), Memory(0, 1));
  EXPECT_EQ(Load(4), Memory(0, 1));
  EXPECT_EQ(Load(255), Memory(0, 1));
}

TEST_F(LayerKeys, EachPieceHasTwoTries) {
  keyboard.faults().Ignore(sim::At(5));
  EXPECT_EQ(Load(2), Memory(0x200, 512));
  EXPECT_EQ(keyboard.CountRequests(0x08), 53u);
  keyboard.faults().FailWrite(sim::At(7));
  EXPECT_EQ(Load(2), Memory(0x200, 512));

  keyboard.ClearRequests();
  keyboard.faults().Ignore({.first = 5, .count = 2, .command = {}});
  const ULONGLONG start_ms = GetTickCount64();
  EXPECT_EQ(Load(1), Keys());
  EXPECT_EQ(keyboard.CountRequests(0x08), 6u);
  EXPECT_GE(GetTickCount64() - start_ms, 400u);
}

TEST_F(LayerKeys, AnotherReportFailsThePiece) {
  keyboard.faults().CorruptChecksum(sim::At(3));
  EXPECT_EQ(Load(1), Keys());
  keyboard.faults().WrongCommand(sim::At(3));
  EXPECT_EQ(Load(1), Keys());
  keyboard.faults().StrayEventBefore(sim::At(3));
  EXPECT_EQ(Load(1), Keys());
}

TEST_F(LayerKeys, FailingCallsAndAbsentKeyboardsGiveNothing) {
  EXPECT_EQ(LoadLayerKeys(L"", 1), Keys());
  for (const char* function : {"CreateEventW", "CreateFileW", "WriteFile", "ReadFile"}) {
    platform::ArmFault(function, 1, true);
    EXPECT_EQ(Load(1), Keys()) << function;
    platform::DisarmFault();
  }
  keyboard.faults().UnplugAfter(sim::At(9));
  EXPECT_EQ(Load(1), Keys());
}

}  // namespace
}  // namespace perilink
