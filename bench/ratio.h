// Figures that hold on any machine: the time of a piece of work as a multiple of the time of a
// plain one, taken in turns within one run.
#ifndef PERILINK_BENCH_RATIO_H_
#define PERILINK_BENCH_RATIO_H_

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

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

// Reports the median ratio of work to yardstick, each pair of batches taken one right after the
// other so that a change of the processor's speed meets both, and fails the benchmark when it is
// over `limit`.
template <typename Work, typename Yardstick>
void Ratio(benchmark::State& state, double limit, Work work, Yardstick yardstick) {
  constexpr int kCalls = 100;
  std::vector<double> ratios;
  double work_ns = std::numeric_limits<double>::max();
  for (auto _ : state) {
    const double yardstick_time = TimeBatch(yardstick, kCalls);
    const double work_time = TimeBatch(work, kCalls);
    ratios.push_back(work_time / yardstick_time);
    work_ns = std::min(work_ns, work_time);
  }
  const auto median = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
  std::nth_element(ratios.begin(), median, ratios.end());
  state.counters["fastest_ns"] = work_ns;
  state.counters["ratio"] = *median;
  state.counters["limit"] = limit;
  if (*median > limit) {
    state.SkipWithError(("over its limit: " + std::to_string(*median) + " times").c_str());
  }
}

}  // namespace perilink::bench

#endif  // PERILINK_BENCH_RATIO_H_
