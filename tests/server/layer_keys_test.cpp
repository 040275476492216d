#include "server/layer_keys.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "perilink_platform/world.h"
#include "platform/win32.h"
#include "sim/keyboard.h"

namespace perilink {
namespace {

using Keys = std::vector<uint8_t>;

TEST(LayerKeys, ReadsTheLayersRange) {
  sim::Keyboard keyboard;
  keyboard.Plug();
  for (const auto& [layer, address, size] : {std::tuple{1, 0, 512u},
                                             {2, 0x200, 512u},
                                             {3, 0x400, 512u},
                                             {0, 0, 1u},
                                             {4, 0, 1u},
                                             {255, 0, 1u}}) {
    keyboard.ClearRequests();
    const auto begin = keyboard.flash().bytes().begin() + address;
    EXPECT_EQ(LoadLayerKeys(keyboard.CommandPath(), static_cast<uint8_t>(layer)),
              Keys(begin, begin + size));
    EXPECT_EQ(keyboard.CountRequests(0x08), (size + 9) / 10);
  }
}

// A piece that is not answered has a second try; any other report fails it.
TEST(LayerKeys, FaultsOfOnePiece) {
  struct Row {
    const char* name;
    std::function<void(sim::Keyboard&)> arrange;
    size_t keys;
    size_t requests;
  };
  const auto fault = [](const char* function) {
    return [function](sim::Keyboard&) { platform::ArmFault(function, 1, true); };
  };
  const Row rows[] = {
      {"ignored once", [](auto& k) { k.faults().Ignore(sim::At(5)); }, 512, 53},
      {"write fails once", [](auto& k) { k.faults().FailWrite(sim::At(5)); }, 512, 53},
      {"ignored twice", [](auto& k) { k.faults().Ignore(sim::At(5)).Ignore(sim::At(6)); }, 0, 6},
      {"wrong checksum", [](auto& k) { k.faults().CorruptChecksum(sim::At(3)); }, 0, 3},
      {"wrong command", [](auto& k) { k.faults().WrongCommand(sim::At(3)); }, 0, 3},
      {"an event first", [](auto& k) { k.faults().StrayEventBefore(sim::At(3)); }, 0, 3},
      {"unplugged", [](auto& k) { k.faults().UnplugAfter(sim::At(9)); }, 0, 9},
      {"no event", fault("CreateEventW"), 0, 0},
      {"not opened", fault("CreateFileW"), 0, 0},
      {"no read", fault("ReadFile"), 0, 2},
  };
  for (const Row& row : rows) {
    sim::Keyboard keyboard;
    keyboard.Plug();
    row.arrange(keyboard);
    EXPECT_EQ(LoadLayerKeys(keyboard.CommandPath(), 1).size(), row.keys) << row.name;
    EXPECT_EQ(keyboard.CountRequests(0x08), row.requests) << row.name;
    platform::DisarmFault();
    EXPECT_EQ(platform::OpenHandleCount(), 0u);
  }
}

}  // namespace
}  // namespace perilink
