// The parser and the compare against plain copies and comparisons of the same bytes.
#include <algorithm>
#include <array>
#include <cstring>

#include "full_flash.h"
#include "perilink/protocol_data.h"
#include "protocol/stored.h"
#include "ratio.h"
#include "server/state.h"

namespace perilink::bench {
namespace {

ProtocolData FullRecord() {
  ProtocolData record{};
  ProtocolDataParser(FullFlash().bytes().data(), &record);
  return record;
}

// How fast bytes are copied depends on where they stand; here that is the same in every run.
struct Placed {
  alignas(64) std::array<uint8_t, PERILINK_FLASH_IMAGE_SIZE> image;
  alignas(64) std::array<uint8_t, PERILINK_FLASH_IMAGE_SIZE> image_copy;
  alignas(64) ProtocolData record;
  alignas(64) ProtocolData record_copy;
};

void ParseFullImage(benchmark::State& state) {
  static Placed it;
  std::ranges::copy(FullFlash().bytes().first(it.image.size()), it.image.begin());
  const auto parse = [&] {
    ProtocolDataParser(it.image.data(), &it.record);
    benchmark::DoNotOptimize(&it);
    benchmark::ClobberMemory();
  };
  const auto copy = [&] {
    std::memcpy(it.image_copy.data(), it.image.data(), it.image.size());
    std::memcpy(&it.record_copy, &it.record, sizeof(it.record));
    benchmark::DoNotOptimize(&it);
    benchmark::ClobberMemory();
  };
  ReportRatio(state, "parsing an image with all slots filled, of a `memcpy` of image and record",
              30, parse, copy);
}
BENCHMARK(ParseFullImage);

void UpdateEqualRecords(benchmark::State& state) {
  static ProtocolData record = FullRecord();
  static ProtocolData other = record;
  StoredProtocolData& stored = StoredProtocolData::Instance();
  stored.Replace(record);
  stored.MarkParsed();
  const auto update = [&] {
    ProtocolDataUpdate(&record);
    benchmark::ClobberMemory();
  };
  const auto compare = [&] {
    benchmark::DoNotOptimize(std::memcmp(&record, &other, sizeof(record)));
    benchmark::ClobberMemory();
  };
  ReportRatio(state, "update of two equal records, of a `memcmp` of the record", 4, update,
              compare);
  if (!ServerState::Instance().NothingQueued()) state.SkipWithError("equal records gave writes");
}
BENCHMARK(UpdateEqualRecords);

}  // namespace
}  // namespace perilink::bench

BENCHMARK_MAIN();
