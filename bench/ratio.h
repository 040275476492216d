// Figures that hold on any machine: the time of a piece of work as a multiple of the time of a
// plain one, taken in turns within one run.
#ifndef PERILINK_BENCH_RATIO_H_
#define PERILINK_BENCH_RATIO_H_

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>
#include <utility>

#include "figure.h"

namespace perilink::bench {

// The fastest batch so far: what else the machine does only makes others slower.
template <typename Work>
class Fastest {
 public:
  explicit Fastest(Work work) : work_(std::move(work)) {}

  void TimeBatch() {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kCalls; ++i)
      work_();
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
    nanoseconds_ = std::min(nanoseconds_, time.count() / kCalls);
  }

  // Of one call.
  double nanoseconds() const { return nanoseconds_; }

 private:
  static constexpr int kCalls = 100;
  Work work_;
  double nanoseconds_ = std::numeric_limits<double>::max();
};

// Batches of both take turns, so that a change of the processor's speed meets both.
template <typename Work, typename Yardstick>
void ReportRatio(benchmark::State& state, const std::string& what, double limit, Work work,
                 Yardstick yardstick) {
  Fastest fastest_work(work);
  Fastest fastest_yardstick(yardstick);
  for (auto _ : state) {
    fastest_yardstick.TimeBatch();
    fastest_work.TimeBatch();
  }
  ReportFigure(state,
               {what, "×", fastest_work.nanoseconds() / fastest_yardstick.nanoseconds(), limit});
}

}  // namespace perilink::bench

#endif  // PERILINK_BENCH_RATIO_H_
