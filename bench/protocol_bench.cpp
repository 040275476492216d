// The parser and the compare against plain copies and comparisons of the same bytes.
#include <cstring>

#include "perilink/protocol_data.h"
#include "protocol/image.h"
#include "protocol/stored.h"
#include "ratio.h"

namespace perilink::bench {
namespace {

// Every slot filled to the last event.
ProtocolData FullRecord() {
  perilink::testing::Random random(1);
  ProtocolData record = perilink::testing::RandomRecord(random);
  for (ShortcutKey& shortcut : record.shortcuts) {
    shortcut.count = 6;
    for (KeyEvent& event : shortcut.events)
      event = perilink::testing::RandomEvent(random, 1);
  }
  for (MacroKey& macro : record.macros) {
    macro.count = 70;
    for (KeyEvent& event : macro.events)
      event = perilink::testing::RandomEvent(random, 0x10000);
  }
  return record;
}

void ParseFullImage(benchmark::State& state) {
  const perilink::testing::Image image = perilink::testing::BuildImage(FullRecord());
  const ProtocolData source = FullRecord();
  perilink::testing::Image image_copy(image.size());
  static ProtocolData parsed;
  static ProtocolData record_copy;
  const auto parse = [&] {
    ProtocolDataParser(image.data(), &parsed);
    benchmark::DoNotOptimize(&parsed);
    benchmark::ClobberMemory();
  };
  const auto copy = [&] {
    std::memcpy(image_copy.data(), image.data(), image.size());
    std::memcpy(&record_copy, &source, sizeof(source));
    benchmark::DoNotOptimize(image_copy.data());
    benchmark::DoNotOptimize(&record_copy);
    benchmark::ClobberMemory();
  };
  ReportRatio(state, "parsing an image with all slots filled, of a `memcpy` of image and record",
              12, parse, copy);
}
BENCHMARK(ParseFullImage);

void UpdateEqualRecords(benchmark::State& state) {
  static ProtocolData record = FullRecord();
  static ProtocolData other = record;
  StoredProtocolData& stored = StoredProtocolData::Instance();
  stored.Replace(record);
  size_t writes = 0;
  const auto update = [&] {
    stored.Update(record, [&](const std::vector<FlashWrite>& list) { writes += list.size(); });
    benchmark::ClobberMemory();
  };
  const auto compare = [&] {
    benchmark::DoNotOptimize(std::memcmp(&record, &other, sizeof(record)));
    benchmark::ClobberMemory();
  };
  ReportRatio(state, "update of two equal records, of a `memcmp` of the record", 4, update,
              compare);
  if (writes != 0) state.SkipWithError("equal records gave writes");
}
BENCHMARK(UpdateEqualRecords);

}  // namespace
}  // namespace perilink::bench

BENCHMARK_MAIN();
