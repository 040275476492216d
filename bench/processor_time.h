// The processor time that this process has used so far.
#ifndef PERILINK_BENCH_PROCESSOR_TIME_H_
#define PERILINK_BENCH_PROCESSOR_TIME_H_

#include <sys/resource.h>

namespace perilink::bench {

inline double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace perilink::bench

#endif  // PERILINK_BENCH_PROCESSOR_TIME_H_
