// Draws what hosts do, what goes wrong and which thread runs from a seed, and holds the library
// against a model of it at every call that it makes to the system.
//
//   server_simulation [--trace] [--canary] FIRST COUNT
//
// Runs that many seeds from FIRST on, one after another in one process: each finds the library as
// if it had just been loaded. A seed that fails is named, and the others go on without it; given
// alone it repeats exactly, with --trace telling what happens. With --canary answers are changed on
// their way from the device to the library: that must fail.
#include <malloc.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/times.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "battery/optimizer.h"
#include "hosts.h"
#include "note.h"
#include "perilink/finder.h"
#include "perilink/server.h"
#include "perilink_platform/world.h"
#include "server/state.h"

namespace perilink::testing {

Notes& TheNotes() {
  static Notes notes;
  return notes;
}

void Note(const char* what, uint64_t first, uint64_t second) {
  Notes& notes = TheNotes();
  const uint64_t now = platform::NowMicros();
  for (const uint64_t value : {now, static_cast<uint64_t>(*what), first, second})
    notes.digest = (notes.digest ^ value) * 0x100000001B3u;
  if (!notes.printed) return;
  std::printf("%10.3f ms  %s %" PRIx64 " %" PRIx64 "\n",
              static_cast<double>(now - 1'000'000'000) / 1000, what, first, second);
}

void Broken(const char* rule) {
  std::printf("seed %" PRIu64 ", after %.3f ms: %s\n", TheNotes().seed,
              static_cast<double>(platform::NowMicros() - 1'000'000'000) / 1000, rule);
  std::fflush(stdout);
  _exit(1);
}

namespace {

// What the process keeps of a server and a smoothing is as it was when it began.
void RenewLibrary() {
  ServerState& state = ServerState::Instance();
  {
    const ServerState::Queues queues = state.LockQueues();
    std::destroy_at(&queues.commands);
    std::construct_at(&queues.commands);
    std::destroy_at(&queues.replies);
    std::construct_at(&queues.replies);
  }
  state.TakeReopenRequest();
  state.SetSleepTime(ServerState::kDefaultSleepTimeMs);
  BatteryOptimizer& optimizer = BatteryOptimizer::Instance();
  std::destroy_at(&optimizer);
  ::new (static_cast<void*>(&optimizer)) BatteryOptimizer;
  UsbFinder_SetMouseMode();
  Now() = 0;
}

void RunSeed(uint64_t seed) {
  alarm(60);
  TheNotes().seed = seed;
  TheNotes().digest = 0;
  platform::StartVirtual(seed);
  RenewLibrary();
  RunHosts(seed);
}

// What a worker tells its parent.
struct Progress {
  uint64_t seed;    // at work
  uint64_t digest;  // of the seed before
};

// One thread at a time runs: it hands over fastest to one on the same processor.
void StayOnOneProcessor() {
  cpu_set_t here;
  CPU_ZERO(&here);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &here);
  sched_setaffinity(0, sizeof(here), &here);
}

// Runs the seeds up to `end` in a process of its own. False when one has ended it.
bool RunWorker(uint64_t first, uint64_t end, Progress& progress) {
  std::fflush(nullptr);
  const pid_t worker = fork();
  if (worker == 0) {
    StayOnOneProcessor();
    for (progress.seed = first; progress.seed < end; ++progress.seed) {
      RunSeed(progress.seed);
      progress.digest = TheNotes().digest;
    }
    std::fflush(nullptr);
    _exit(0);
  }
  int status = 0;
  return waitpid(worker, &status, 0) == worker && status == 0;
}

double CpuSeconds() {
  tms times_of;
  times(&times_of);
  return static_cast<double>(times_of.tms_cutime + times_of.tms_cstime) /
         static_cast<double>(sysconf(_SC_CLK_TCK));
}

int Run(uint64_t first, uint64_t count) {
  // What a seed frees, the next one takes: it need not go back to the system in between.
  mallopt(M_TRIM_THRESHOLD, 1 << 28);
  mallopt(M_MMAP_THRESHOLD, 1 << 28);
  auto* const progress = static_cast<Progress*>(
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  uint64_t failed = 0;
  uint64_t at = first;
  const uint64_t end = first + count;
  while (at < end && !RunWorker(at, end, *progress)) {
    std::printf("seed %" PRIu64 " failed\n", progress->seed);
    ++failed;
    at = progress->seed + 1;
  }
  std::printf("%" PRIu64 " seeds, %" PRIu64 " failed, %.0f a second of processor time\n", count,
              failed, static_cast<double>(count) / CpuSeconds());
  // Whatever ran before it: a seed repeats.
  if (at < end) {
    const uint64_t digest = progress->digest;
    if (!RunWorker(end - 1, end, *progress) || progress->digest != digest) {
      std::printf("seed %" PRIu64 " does not repeat\n", end - 1);
      ++failed;
    }
  }
  return failed == 0 ? 0 : 1;
}

}  // namespace
}  // namespace perilink::testing

int main(int argc, char** argv) {
  using perilink::testing::TheNotes;
  bool canary = false;
  int at = 1;
  for (; at < argc && std::strncmp(argv[at], "--", 2) == 0; ++at) {
    canary = canary || std::strcmp(argv[at], "--canary") == 0;
    TheNotes().printed = TheNotes().printed || std::strcmp(argv[at], "--trace") == 0;
  }
  if (at + 2 != argc) {
    std::fprintf(stderr, "usage: server_simulation [--trace] [--canary] FIRST COUNT\n");
    return 2;
  }
  TheNotes().canary = canary;
  return perilink::testing::Run(std::strtoull(argv[at], nullptr, 10),
                                std::strtoull(argv[at + 1], nullptr, 10));
}
