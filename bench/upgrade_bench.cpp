// The download of a firmware: its cost per packet must not depend on the firmware's size, and it
// must leave the processor alone while the device works.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <vector>

#include "figure.h"
#include "perilink_platform/world.h"
#include "processor_time.h"
#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "upgrade/download.h"
#include "upgrade/log.h"

namespace perilink {
namespace {

constexpr double kMostCostRatio = 2;
constexpr double kMostProcessorPercent = 5;
constexpr size_t kMebibyte = size_t{1} << 20;

sim::DeviceOptions Options(uint64_t packet_micros) {
  sim::DeviceOptions options = sim::Mouse::Options();
  options.boot.accept_any_firmware = true;
  options.boot.packet_micros = packet_micros;
  options.boot.erase_micros = 0;
  options.boot.verify_micros = 0;
  return options;
}

// A record whose device waits in boot mode with nothing received.
UsbUpgradeFile Prepare(sim::Mouse& mouse, const sim::Bytes& file) {
  mouse.Unplug();
  mouse.PlugInBootMode();
  ResetUpgradeLog();
  UsbUpgradeFile record;
  ParseUpgradeImage(record, file.data(), nullptr, 10000);
  return record;
}

void MustDownload(UsbUpgradeFile& record) {
  if (!DownloadFile(record)) throw std::runtime_error("the download failed");
}

// A firmware of one size and the least processor time of its downloads: other programs can only
// make a download dearer. The time on the clock would count those programs too.
class SizedDownload {
 public:
  SizedDownload(const sim::Mouse& mouse, size_t size)
      : packets_((size + kPacketBytes - 1) / kPacketBytes),
        file_(sim::UpgradeFileBuilder(sim::ImageFor(mouse, sim::Bytes(size, 0x5A))).Build()) {}

  // Short ones are repeated, so that each size gets its share of undisturbed time.
  void Run(sim::Mouse& mouse) {
    const size_t times = std::clamp<size_t>(kPacketsOfARound / packets_, 1, kMostRepeats);
    for (size_t i = 0; i < times; ++i) {
      UsbUpgradeFile record = Prepare(mouse, file_);
      const double busy_before = bench::ProcessSeconds();
      MustDownload(record);
      cheapest_ = std::min(cheapest_, bench::ProcessSeconds() - busy_before);
    }
  }

  // What each packet beyond those of `smallest` costs: opening the device and the start of the
  // download are in both, and so in neither figure.
  double MicrosPerPacket(const SizedDownload& smallest) const {
    return (cheapest_ - smallest.cheapest_) * 1e6 /
           static_cast<double>(packets_ - smallest.packets_);
  }

 private:
  static constexpr size_t kPacketBytes = 32;
  static constexpr size_t kPacketsOfARound = 32'768;
  static constexpr size_t kMostRepeats = 300;

  size_t packets_;
  sim::Bytes file_;
  double cheapest_ = std::numeric_limits<double>::max();
};

// Microseconds of a packet of 1 KiB, 32 KiB, 1 MiB and 4 MiB, from a device that answers at once.
// The sizes take turns.
const std::vector<double>& PacketCosts() {
  static const std::vector<double> costs = [] {
    constexpr int kRounds = 5;
    sim::Mouse mouse(Options(0));
    mouse.SetLogging(false);
    std::vector<SizedDownload> downloads;
    for (const size_t size :
         {size_t{32}, size_t{1} << 10, size_t{32} << 10, kMebibyte, 4 * kMebibyte})
      downloads.emplace_back(mouse, size);
    for (int round = 0; round < kRounds; ++round) {
      for (SizedDownload& download : downloads)
        download.Run(mouse);
    }
    std::vector<double> micros;
    for (size_t i = 1; i < downloads.size(); ++i)
      micros.push_back(downloads[i].MicrosPerPacket(downloads.front()));
    return micros;
  }();
  return costs;
}

// A cost that grew with the size, were it by its logarithm only, would be three times as high; the
// processor and the allocator alone make a third of difference.
void BM_PacketCostOverSizes(benchmark::State& state) {
  for (auto _ : state)
    PacketCosts();
  const auto [cheapest, dearest] = std::ranges::minmax(PacketCosts());
  bench::ReportFigure(
      state, {"cost of a firmware packet from 1 KiB to 4 MiB, the dearest size of the cheapest",
              "×", dearest / cheapest, kMostCostRatio});
}
BENCHMARK(BM_PacketCostOverSizes)->Iterations(1);

// The device takes 2 ms for a packet. What it does itself, on the platform's event thread, is not
// the library's.
void BM_ProcessorUse(benchmark::State& state) {
  sim::Mouse mouse(Options(2000));
  const sim::Bytes file =
      sim::UpgradeFileBuilder(sim::ImageFor(mouse, sim::Bytes(500 * 32, 0x5A))).Build();
  double least = 100;
  for (auto _ : state) {
    UsbUpgradeFile record = Prepare(mouse, file);
    const double busy_before = bench::ThreadSeconds();
    const uint64_t start = platform::NowMicros();
    MustDownload(record);
    const double micros = static_cast<double>(platform::NowMicros() - start);
    least = std::min(least, 100 * (bench::ThreadSeconds() - busy_before) / (micros * 1e-6));
  }
  bench::ReportFigure(
      state, {"processor use of the thread that downloads while the device takes 2 ms a packet",
              "% of a core", least, kMostProcessorPercent});
}
BENCHMARK(BM_ProcessorUse)->Iterations(3);

void BM_PacketCost(benchmark::State& state) {
  for (auto _ : state)
    PacketCosts();
  bench::ReportFigure(state, {"a firmware packet of 1 MiB", "µs", PacketCosts()[2]});
}
BENCHMARK(BM_PacketCost)->Iterations(1);

}  // namespace
}  // namespace perilink

BENCHMARK_MAIN();
