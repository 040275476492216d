// Figures that hold on any machine: the time of a piece of work as a multiple of the time of a
// plain one, taken in turns within one run.
#ifndef PERILINK_BENCH_RATIO_H_
#define PERILINK_BENCH_RATIO_H_

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "figure.h"

namespace perilink::bench {

// The nanoseconds of one call, over a batch.
template <typename Work>
double TimeBatch(Work& work, int calls) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < calls; ++i)
    work();
  const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
  return time.count() / calls;
}

// The median of many pairs, each a batch of both one right after the other and about as long, so
// that a change of the processor's speed meets both.
template <typename Work, typename Yardstick>
void ReportRatio(benchmark::State& state, const std::string& what, double limit, Work work,
                 Yardstick yardstick) {
  constexpr int kCalls = 50;
  const int yardstick_calls = std::max(
      1, static_cast<int>(kCalls * TimeBatch(work, kCalls) / TimeBatch(yardstick, kCalls)));
  std::vector<double> ratios;
  for (auto _ : state) {
    const double yardstick_time = TimeBatch(yardstick, yardstick_calls);
    ratios.push_back(TimeBatch(work, kCalls) / yardstick_time);
  }
  const auto median = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
  std::nth_element(ratios.begin(), median, ratios.end());
  ReportFigure(state, {what, "×", *median, limit});
}

}  // namespace perilink::bench

#endif  // PERILINK_BENCH_RATIO_H_
