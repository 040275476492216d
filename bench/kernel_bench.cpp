// What the library costs over the kernel's own HID, beside a plain program that does the same in
// the same run. Runs where the kernel tests do (scripts/vm.sh): an emulated machine may be many
// times slower than a real one, so that only ratios and differences are held to limits.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "figure.h"
#include "machine.h"
#include "perilink/perilink.h"
#include "perilink_platform/win32.h"
#include "processor_time.h"
#include "ratio.h"
#include "sim/scripted_device.h"
#include "usb_device.h"

namespace perilink {
namespace {

using testing::Bytes;
using testing::Clock;

// A device that answers at once, with 5 collections on each interface. It lives in a process of its
// own, so that what it takes is not counted for the library's.
class AnsweringDevice {
 public:
  explicit AnsweringDevice(size_t interfaces) : process_(fork()) {
    if (process_ == 0) Serve(interfaces);
    testing::Eventually([&] { return Paths().size() == 5 * interfaces; });
    path = Paths().at(4);
    node = testing::Nodes().at(0);
  }
  ~AnsweringDevice() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    testing::Eventually([] { return Paths().empty(); });
  }
  AnsweringDevice(const AnsweringDevice&) = delete;
  AnsweringDevice& operator=(const AnsweringDevice&) = delete;
  static std::vector<std::wstring> Paths() {
    std::vector<std::wstring> paths;
    UsbFinder_FindHidDevicesByKey(L"&mi_", paths);
    std::erase_if(paths, [](const std::wstring& path) { return path == sim::kScriptedPath; });
    return paths;
  }

  std::wstring path;  // takes commands
  std::string node;

 private:
  // Until it is killed, which unplugs it.
  [[noreturn]] static void Serve(size_t interfaces) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    testing::UsbDevice device(
        {}, std::vector<testing::UsbInterface>(interfaces, {testing::kCommandDescriptor}),
        [&device](size_t number, testing::UsbDevice::Type, const Bytes& request) {
          device.Send(number, sim::ReplyTo(request, {1, 2}));
          return testing::UsbDevice::Answer::kTake;
        });
    device.Plug();
    for (;;)
      pause();
  }

  const pid_t process_;
};

// Open, write, wait, read, close: nothing between the program and the kernel.
bool PlainExchange(const std::string& node) {
  Bytes request = sim::Closed({0x08, 0x12});
  Bytes reply(64);
  const int fd = open(node.c_str(), O_RDWR | O_CLOEXEC);
  pollfd wait{fd, POLLIN, 0};
  const bool answered = write(fd, request.data(), request.size()) == 17 &&
                        poll(&wait, 1, 100) == 1 && read(fd, reply.data(), reply.size()) == 17;
  close(fd);
  return answered;
}

void BM_Exchange(benchmark::State& state) {
  const AnsweringDevice device(2);
  if (UsbFinder_GetVersion(device.path) != 0x0102 || !PlainExchange(device.node))
    return state.SkipWithError("no reply accepted");
  // The library keeps the node open between its commands, so that neither opens it first.
  bench::ReportRatio(
      state, "an exchange over hidraw, of a plain program's", 1.1,
      [&] { UsbFinder_GetVersion(device.path); }, [&] { PlainExchange(device.node); });
}
BENCHMARK(BM_Exchange)->Iterations(12)->Unit(benchmark::kMillisecond);

void BM_SecondCommand(benchmark::State& state) {
  const AnsweringDevice device(2);
  const auto time = [&] {
    const auto start = Clock::now();
    UsbFinder_GetVersion(device.path);
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  };
  double first = 0;
  double second = 0;
  for (auto _ : state) {
    first += time();
    second += time();
    Sleep(3000);  // the file is closed meanwhile
  }
  bench::ReportFigure(state, {"a second direct command, of a first one, which opens the node", "×",
                              second / first, 0.5});
}
BENCHMARK(BM_SecondCommand)->Iterations(3)->Unit(benchmark::kMillisecond);

void BM_Enumeration(benchmark::State& state) {
  const AnsweringDevice device(3);
  const auto enumerate = [] { AnsweringDevice::Paths(); };
  double fastest = 1e12;
  for (auto _ : state)
    fastest = std::min(fastest, bench::TimeBatch(enumerate, 100));
  bench::ReportFigure(state,
                      {"enumerating 15 interfaces in the emulated machine", "µs", fastest * 1e-3});
}
BENCHMARK(BM_Enumeration)->Iterations(20)->Unit(benchmark::kMillisecond);

// Of the process while a server idles on the path.
double IdleShare(const std::wstring& path) {
  constexpr DWORD kIdleMs = 10'000;
  const HANDLE thread = reinterpret_cast<HANDLE>(UsbServer_Start(path, path, nullptr));
  Sleep(1000);
  const double busy = bench::ProcessSeconds();
  Sleep(kIdleMs);
  const double share = (bench::ProcessSeconds() - busy) / (kIdleMs * 1e-3);
  UsbServer_Exit();
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  return share;
}

void BM_IdleServer(benchmark::State& state) {
  const AnsweringDevice device(3);
  const sim::ScriptedDevice simulated(sim::kScriptedPath,
                                      [](sim::ScriptedDevice& self, const sim::Bytes& request) {
                                        self.Deliver(sim::ReplyTo(request, {1, 2}));
                                        return DWORD{0};
                                      });
  StartUsbChanged(nullptr, 0);
  double added = 0;
  for (auto _ : state)
    added = IdleShare(device.path) - IdleShare(simulated.Path());
  StopUsbChanged();
  bench::ReportFigure(state, {"processor use that the machine's bus adds to an idle server with "
                              "notices, emulated",
                              "% of a core", 100 * std::max(0.0, added), 0.1});
}
BENCHMARK(BM_IdleServer)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace perilink

BENCHMARK_MAIN();
