// The parser and the compare against plain copies and comparisons of the same bytes.
#include <cstring>
#include <vector>

#include "full_flash.h"
#include "perilink/protocol_data.h"
#include "protocol/stored.h"
#include "ratio.h"

namespace perilink::bench {
namespace {

ProtocolData FullRecord() {
  ProtocolData record{};
  ProtocolDataParser(FullFlash().bytes().data(), &record);
  return record;
}

void ParseFullImage(benchmark::State& state) {
  const sim::FlashImage flash = FullFlash();
  const std::vector<uint8_t> image(flash.bytes().begin(),
                                   flash.bytes().begin() + PERILINK_FLASH_IMAGE_SIZE);
  const ProtocolData source = FullRecord();
  std::vector<uint8_t> image_copy(image.size());
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
