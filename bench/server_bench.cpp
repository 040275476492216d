// What the background server costs while it idles and while it reads, how long it keeps a host
// waiting, and what one queued command costs in a queue of any length.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "figure.h"
#include "full_flash.h"
#include "perilink/battery.h"
#include "perilink/protocol.h"
#include "perilink/server.h"
#include "platform/win32.h"
#include "processor_time.h"
#include "ratio.h"
#include "server/state.h"
#include "sim/mouse.h"
#include "sim/scripted_device.h"

namespace perilink {
namespace {

// The processor's share of the time from here on, in percent of a core.
class Share {
 public:
  double Percent() const {
    const auto wall = std::chrono::duration<double>(Clock::now() - start_).count();
    return 100 * (bench::ProcessSeconds() - busy_) / wall;
  }

 private:
  using Clock = std::chrono::steady_clock;
  const double busy_ = bench::ProcessSeconds();
  const Clock::time_point start_ = Clock::now();
};

// The server from its start to its thread's end.
class Server {
 public:
  explicit Server(const std::wstring& path, ServerReportCallback callback = nullptr)
      : thread_(reinterpret_cast<HANDLE>(UsbServer_Start(path, path, callback))) {
    Sleep(500);
  }
  ~Server() {
    UsbServer_Exit();
    WaitForSingleObject(thread_, INFINITE);
    CloseHandle(thread_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

 private:
  const HANDLE thread_;
};

// Sixteen interfaces are present; the device answers battery polls as any other command.
void BM_IdleServer(benchmark::State& state) {
  constexpr int kInterfaces = 16;
  const auto sleep_ms = static_cast<uint32_t>(state.range(0));
  const double limit = sleep_ms == ServerState::kDefaultSleepTimeMs ? 0.1 : 0.5;
  std::vector<std::unique_ptr<sim::ScriptedDevice>> devices;
  for (int i = 0; i < kInterfaces; ++i) {
    devices.push_back(std::make_unique<sim::ScriptedDevice>(
        std::wstring(sim::kScriptedPath) + std::to_wstring(i),
        [](sim::ScriptedDevice& self, const sim::Bytes& request) {
          self.Deliver(sim::ReplyTo(request, {1, 0, 0, 0}));
          return DWORD{0};
        }));
  }
  CS_UsbServer_SetThreadSleepTime(sleep_ms);
  double percent = 0;
  for (auto _ : state) {
    const Server server(devices.front()->Path());
    const Share share;
    Sleep(5000);
    percent = share.Percent();
  }
  CS_UsbServer_SetThreadSleepTime(ServerState::kDefaultSleepTimeMs);
  bench::ReportFigure(state,
                      {"processor use of the idle server, " + std::to_string(kInterfaces) +
                           " interfaces, asleep for " + std::to_string(sleep_ms) + " ms at a time",
                       "% of a core", percent, limit});
}
BENCHMARK(BM_IdleServer)->Arg(100)->Arg(5)->Iterations(1)->UseRealTime();

// ---- A full read in real time ------------------------------------------------------------------

std::atomic<bool> image_came{false};

void PERILINK_CALL OnReport(const uint8_t*, uint32_t, const uint8_t*, uint32_t length) {
  if (length == PERILINK_FLASH_IMAGE_SIZE) image_came = true;
}

struct FullRead {
  double of_limit = 0;  // time taken, of the time that its frames need
  double percent = 0;   // of a core
};

FullRead ReadFilledImage() {
  sim::DeviceOptions options = sim::Mouse::Options();
  options.flash = bench::FullFlash();
  const double frame_ms = 8 + static_cast<double>(options.firmware.latency_micros) / 1000;
  sim::Mouse mouse(std::move(options));
  mouse.Plug();
  UsbServer_SetBatteryOptimizeEnable(0);
  const Server server(mouse.CommandPath(), &OnReport);
  mouse.ClearRequests();
  // Written once the idle sleep is over.
  UsbServer_ReadAllFlashData();
  while (mouse.Requests().empty())
    Sleep(1);
  const Share share;
  const auto start = std::chrono::steady_clock::now();
  while (!image_came)
    Sleep(50);
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  const double percent = share.Percent();
  UsbServer_SetBatteryOptimizeEnable(1);
  return {took.count() / (static_cast<double>(mouse.Requests().size()) * frame_ms), percent};
}

const FullRead& TheFullRead() {
  static const FullRead read = ReadFilledImage();
  return read;
}

void BM_FullReadTime(benchmark::State& state) {
  for (auto _ : state)
    bench::ReportFigure(state, {"full configuration read in real time, filled image, of the time "
                                "that its frames need",
                                "×", TheFullRead().of_limit, 1.05});
}
BENCHMARK(BM_FullReadTime)->Iterations(1)->UseRealTime();

void BM_FullReadProcessor(benchmark::State& state) {
  for (auto _ : state)
    bench::ReportFigure(state, {"processor use during that read, the virtual device's included",
                                "% of a core", TheFullRead().percent, 5});
}
BENCHMARK(BM_FullReadProcessor)->Iterations(1)->UseRealTime();

// ---- How long a host waits ---------------------------------------------------------------------

struct Waits {
  double p99_ms = 0;
  double worst_ms = 0;
};

// Appends, and now and then a start, while the server works without a pause: the device answers at
// once, or refuses every write.
Waits TimeHostCalls() {
  sim::DeviceOptions options = sim::Mouse::Options();
  options.firmware.latency_micros = 0;
  sim::Mouse mouse(std::move(options));
  mouse.SetLogging(false);
  mouse.Plug();
  const std::wstring path = mouse.CommandPath();
  const Server server(path);
  std::vector<double> waits_ms;
  for (const bool refuses : {false, true}) {
    if (refuses) mouse.faults().FailWrite(sim::Always());
    UsbServer_ReadFalshData(0, 8000, 0);
    for (int i = 1; i <= 1500; ++i) {
      const auto start = std::chrono::steady_clock::now();
      if (i % 50 == 0) {
        UsbServer_Start(path, path, nullptr);
      } else {
        UsbServer_ReadFalshData(0, 200, 0);
      }
      const std::chrono::duration<double, std::milli> took =
          std::chrono::steady_clock::now() - start;
      waits_ms.push_back(took.count());
      Sleep(1);
    }
  }
  std::ranges::sort(waits_ms);
  return {waits_ms[waits_ms.size() * 99 / 100], waits_ms.back()};
}

const Waits& TheWaits() {
  static const Waits waits = TimeHostCalls();
  return waits;
}

void BM_HostWaits(benchmark::State& state) {
  for (auto _ : state)
    bench::ReportFigure(state, {"a host's append or start while the server works, 99th percentile",
                                "ms", TheWaits().p99_ms, 2});
}
BENCHMARK(BM_HostWaits)->Iterations(1)->UseRealTime();

void BM_HostWaitsAtWorst(benchmark::State& state) {
  for (auto _ : state)
    bench::ReportFigure(state, {"a host's append or start while the server works, at worst", "ms",
                                TheWaits().worst_ms, 20});
}
BENCHMARK(BM_HostWaitsAtWorst)->Iterations(1)->UseRealTime();

// ---- The queue ---------------------------------------------------------------------------------

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
  bench::ReportFigure(state,
                      {state.range(0) == 1 ? "queueing a command behind one other"
                                           : "queueing a command behind sixty thousand others",
                       "ns", fastest_ns});
}
BENCHMARK(BM_QueueEntry)->Arg(1)->Arg(60'000)->Iterations(10'000);

}  // namespace
}  // namespace perilink

BENCHMARK_MAIN();
