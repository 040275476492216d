// What the background server costs while it idles, and what one queued command costs in a queue of
// any length.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "figure.h"
#include "perilink/server.h"
#include "platform/win32.h"
#include "processor_time.h"
#include "ratio.h"
#include "server/state.h"
#include "sim/scripted_device.h"

namespace perilink {
namespace {

constexpr double kMostIdlePercent = 0.3;

// Sixteen interfaces are present; the device answers battery polls as any other command.
void BM_IdleServer(benchmark::State& state) {
  constexpr int kInterfaces = 16;
  constexpr DWORD kIdleMs = 5000;
  std::vector<std::unique_ptr<sim::ScriptedDevice>> devices;
  for (int i = 0; i < kInterfaces; ++i) {
    devices.push_back(std::make_unique<sim::ScriptedDevice>(
        std::wstring(sim::kScriptedPath) + std::to_wstring(i),
        [](sim::ScriptedDevice& self, const sim::Bytes& request) {
          self.Deliver(sim::ReplyTo(request, {1, 0, 0, 0}));
          return DWORD{0};
        }));
  }
  const std::wstring path = devices.front()->Path();
  double busy = 0;
  double wall = 0;
  for (auto _ : state) {
    const HANDLE thread = reinterpret_cast<HANDLE>(UsbServer_Start(path, path, nullptr));
    Sleep(500);
    const double busy_before = bench::ProcessSeconds();
    const uint64_t start = GetTickCount64();
    Sleep(kIdleMs);
    busy += bench::ProcessSeconds() - busy_before;
    wall += static_cast<double>(GetTickCount64() - start) * 1e-3;
    UsbServer_Exit();
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
  }
  bench::ReportFigure(
      state, {"processor use of the idle server, " + std::to_string(kInterfaces) + " interfaces",
              "% of a core", 100 * busy / wall, kMostIdlePercent});
}
BENCHMARK(BM_IdleServer)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// A command is queued and the head removed, in a queue that stays as long as the argument says.
void BM_QueueEntry(benchmark::State& state) {
  ServerState& server = ServerState::Instance();
  server.LockQueues().commands.Clear();
  for (int64_t i = 0; i < state.range(0); ++i)
    UsbServer_ReadOnLine();
  const auto queue_one = [&server] {
    UsbServer_ReadOnLine();
    server.LockQueues().commands.PopHead();
  };
  double fastest_ns = std::numeric_limits<double>::max();
  for (auto _ : state)
    fastest_ns = std::min(fastest_ns, bench::TimeBatch(queue_one, 100));
  bench::ReportFigure(state, {state.range(0) == 1 ? "queueing a command behind one other"
                                                  : "queueing a command behind a million others",
                              "ns", fastest_ns});
}
BENCHMARK(BM_QueueEntry)->Arg(1)->Arg(1'000'000)->Iterations(10'000);

}  // namespace
}  // namespace perilink

BENCHMARK_MAIN();
