// A benchmark's result as a row of the table that scripts/bench.sh prints. The table holds it to
// its limit; a benchmark itself fails only when it can't measure.
#ifndef PERILINK_BENCH_FIGURE_H_
#define PERILINK_BENCH_FIGURE_H_

#include <benchmark/benchmark.h>

#include <string>

namespace perilink::bench {

struct Figure {
  std::string what;
  std::string unit;
  double measured;
  double limit = 0;  // the most that is allowed; 0: a figure without a limit
};

inline void ReportFigure(benchmark::State& state, const Figure& figure) {
  state.SetLabel(figure.what + " | " + figure.unit);
  state.counters["measured"] = figure.measured;
  if (figure.limit > 0) state.counters["limit"] = figure.limit;
}

}  // namespace perilink::bench

#endif  // PERILINK_BENCH_FIGURE_H_
