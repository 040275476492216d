// The processor time used so far.
#ifndef PERILINK_BENCH_PROCESSOR_TIME_H_
#define PERILINK_BENCH_PROCESSOR_TIME_H_

#include <time.h>

namespace perilink::bench {

inline double SecondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

inline double ProcessSeconds() {
  return SecondsOf(CLOCK_PROCESS_CPUTIME_ID);
}

// Of the calling thread alone: what devices do on theirs is left out.
inline double ThreadSeconds() {
  return SecondsOf(CLOCK_THREAD_CPUTIME_ID);
}

}  // namespace perilink::bench

#endif  // PERILINK_BENCH_PROCESSOR_TIME_H_
