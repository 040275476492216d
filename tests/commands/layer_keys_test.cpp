#include "commands/layer_keys.h"

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

// A piece that is not answered has a second try. Reports that answer something else cost nothing,
// and no byte of theirs is taken.
TEST(LayerKeys, FaultsOfOnePiece) {
  struct Row {
    const char* name;
    std::function<void(sim::Keyboard&)> arrange;
    bool read;
    size_t requests;
  };
  const auto fault = [](const char* function) {
    return [function](sim::Keyboard&) { platform::ArmFault(function, 1, true); };
  };
  const uint64_t late_micros = 205'000;
  const Row rows[] = {
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
  for (const Row& row : rows) {
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
}  // namespace perilink
