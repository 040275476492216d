// What the library adds to one exchange with a device that answers at once, over the virtual bus in
// real time.
//
// The device measures its own share, from the written report to the delivered answer, which is
// taken off; what is left is the library's and the platform's.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "figure.h"
#include "perilink/finder.h"
#include "sim/scripted_device.h"

namespace perilink {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double kMostMicros = 20;

double MicrosSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double Percentile(std::vector<double>& values, double fraction) {
  const auto nth = values.begin() +
                   static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

void Exchange(benchmark::State& state) {
  const sim::Bytes answer = sim::Closed({0x08, 0x12, 0, 0, 0, 2, 0x01, 0x23});
  double device_micros = 0;
  sim::ScriptedDevice device(sim::kScriptedPath, [&](sim::ScriptedDevice& self, const sim::Bytes&) {
    const auto start = Clock::now();
    self.Deliver(answer);
    device_micros = MicrosSince(start);
    return DWORD{0};
  });
  const std::wstring path = device.Path();
  std::vector<double> overheads;
  for (auto _ : state) {
    const auto start = Clock::now();
    const int32_t version = UsbFinder_GetVersion(path);
    const double elapsed = MicrosSince(start);
    if (version != 0x0123) return state.SkipWithError("no reply accepted");
    overheads.push_back(elapsed - device_micros);
    // Without this the device's log of writes grows in every round.
    device.ClearWrites();
  }
  bench::ReportFigure(state, {"what the library adds to an exchange, 99th percentile", "µs",
                              Percentile(overheads, 0.99), kMostMicros});
}
BENCHMARK(Exchange)->Unit(benchmark::kMicrosecond)->Iterations(20'000);

}  // namespace
}  // namespace perilink

BENCHMARK_MAIN();
