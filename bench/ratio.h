// Figures that hold on any machine: the time of a piece of work as a multiple of the time of a
// plain one, taken in turns within one run.
#ifndef PERILINK_BENCH_RATIO_H_
#define PERILINK_BENCH_RATIO_H_

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>

namespace perilink::bench {

// Nanoseconds of one call, over a batch.
template <typename Work>
double TimeBatch(Work& work, int calls) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < calls; ++i)
    work();
  const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
  return time.count() / calls;
}

// Reports work and yardstick in nanoseconds and their ratio, each at its fastest (what else the
// machine does only ever adds time), and fails the benchmark when the ratio is over `limit`.
template <typename Work, typename Yardstick>
void Ratio(benchmark::State& state, double limit, Work work, Yardstick yardstick) {
  constexpr int kCalls = 100;
  double work_ns = std::numeric_limits<double>::max();
  double yardstick_ns = work_ns;
  for (auto _ : state) {
    yardstick_ns = std::min(yardstick_ns, TimeBatch(yardstick, kCalls));
    work_ns = std::min(work_ns, TimeBatch(work, kCalls));
  }
  const double ratio = work_ns / yardstick_ns;
  state.counters["work_ns"] = work_ns;
  state.counters["yardstick_ns"] = yardstick_ns;
  state.counters["ratio"] = ratio;
  state.counters["limit"] = limit;
  if (ratio > limit) {
    state.SkipWithError(("over its limit: " + std::to_string(work_ns) + " ns, " +
                         std::to_string(ratio) + " times")
                            .c_str());
  }
}

}  // namespace perilink::bench

#endif  // PERILINK_BENCH_RATIO_H_
