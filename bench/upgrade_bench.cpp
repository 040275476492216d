// The download of a firmware: its cost per packet must not depend on the firmware's size, and it
// must leave the processor alone while the device works.
#include <benchmark/benchmark.h>

#include "perilink_platform/world.h"
#include "processor_time.h"
#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "upgrade/download.h"
#include "upgrade/log.h"

namespace perilink {
namespace {

constexpr double kMostProcessorUse = 0.05;

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

// The device answers at once. Compare the packets per second over the sizes.
void BM_Download(benchmark::State& state) {
  sim::Mouse mouse(Options(0));
  mouse.SetLogging(false);
  const auto size = static_cast<size_t>(state.range(0));
  const sim::Bytes file =
      sim::UpgradeFileBuilder(sim::ImageFor(mouse, sim::Bytes(size, 0x5A))).Build();
  int64_t packets = 0;
  for (auto _ : state) {
    state.PauseTiming();
    UsbUpgradeFile record = Prepare(mouse, file);
    packets += static_cast<int64_t>(record.packets.size());
    state.ResumeTiming();
    if (!DownloadFile(record)) state.SkipWithError("the download failed");
  }
  state.SetItemsProcessed(packets);
}
BENCHMARK(BM_Download)
    ->Arg(1 << 10)
    ->Arg(32 << 10)
    ->Arg(1 << 20)
    ->Arg(4 << 20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The device takes 2 ms for a packet; the virtual device's own work is counted too.
void BM_ProcessorUse(benchmark::State& state) {
  sim::Mouse mouse(Options(2000));
  const sim::Bytes file =
      sim::UpgradeFileBuilder(sim::ImageFor(mouse, sim::Bytes(500 * 32, 0x5A))).Build();
  double busy = 0;
  uint64_t wall_micros = 0;
  for (auto _ : state) {
    UsbUpgradeFile record = Prepare(mouse, file);
    const double busy_before = bench::ProcessorSeconds();
    const uint64_t start = platform::NowMicros();
    if (!DownloadFile(record)) state.SkipWithError("the download failed");
    busy += bench::ProcessorSeconds() - busy_before;
    wall_micros += platform::NowMicros() - start;
  }
  const double use = busy / (static_cast<double>(wall_micros) * 1e-6);
  state.counters["processor_use"] = use;
  if (use > kMostProcessorUse) state.SkipWithError("uses too much of the processor");
}
BENCHMARK(BM_ProcessorUse)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace perilink

BENCHMARK_MAIN();
