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
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "figure.h"
#include "perilink/perilink.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/win32.h"
#include "ratio.h"
#include "sim/scripted_device.h"
#include "sim/usb_device.h"
#include "support/report_descriptors.h"

namespace perilink {
namespace {

using sim::Bytes;
using sim::UsbDevice;
using Clock = std::chrono::steady_clock;

// A device that answers at once, with 5 collections on each interface. It lives in a process of its
// own, so that what it takes is not counted for the library's.
class AnsweringDevice {
 public:
  explicit AnsweringDevice(size_t interfaces) : process_(fork()) {
    if (process_ == 0) Serve(interfaces);
    AwaitPaths(5 * interfaces);
    path = Paths().at(4);
    node = platform::HidNodeOf(path);
  }
  ~AnsweringDevice() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    AwaitPaths(0);
  }
  AnsweringDevice(const AnsweringDevice&) = delete;
  AnsweringDevice& operator=(const AnsweringDevice&) = delete;
  static std::vector<std::wstring> Paths() {
    std::vector<std::wstring> paths;
    UsbFinder_FindHidDevicesByKey(L"&mi_", paths);
    return paths;
  }

  static void AwaitPaths(size_t count) {
    while (Paths().size() != count)
      Sleep(5);
  }

  std::wstring path;  // takes commands
  std::string node;

 private:
  // Until it is killed, which unplugs it.
  [[noreturn]] static void Serve(size_t interfaces) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    UsbDevice device({}, std::vector<sim::UsbInterface>(interfaces, {testing::kCommandDescriptor}),
                     [&device](size_t number, UsbDevice::Type, const Bytes& request) {
                       device.Send(number, sim::ReplyTo(request, {1, 2}));
                       return UsbDevice::Answer::kTake;
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
  double fastest = 1e9;
  for (auto _ : state) {
    UsbFinder_GetVersion(device.path);
    const auto start = Clock::now();
    UsbFinder_GetVersion(device.path);
    fastest =
        std::min(fastest, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    Sleep(3000);  // the file is closed meanwhile
  }
  bench::ReportFigure(state, {"a second direct command on a closed device, emulated (the kernel's "
                              "opening alone takes 50 ms)",
                              "ms", fastest, 40});
}
BENCHMARK(BM_SecondCommand)->Iterations(5)->Unit(benchmark::kMillisecond);

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

// Processor time of the two threads of the machine's bus so far.
double BusSeconds() {
  double seconds = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    double nanoseconds = 0;
    std::ifstream(task.path() / "comm") >> name;
    std::ifstream(task.path() / "schedstat") >> nanoseconds;
    if (name.starts_with("hid-")) seconds += nanoseconds * 1e-9;
  }
  return seconds;
}

void BM_IdleServer(benchmark::State& state) {
  constexpr DWORD kIdleMs = 15'000;
  const AnsweringDevice device(3);
  StartUsbChanged(nullptr, 0);
  const HANDLE thread =
      reinterpret_cast<HANDLE>(UsbServer_Start(device.path, device.path, nullptr));
  Sleep(2000);
  double busy = 0;
  for (auto _ : state) {
    busy = BusSeconds();
    Sleep(kIdleMs);
    busy = BusSeconds() - busy;
  }
  UsbServer_Exit();
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  StopUsbChanged();
  bench::ReportFigure(state,
                      {"processor use of the machine's bus while a server with notices idles, "
                       "emulated",
                       "% of a core", 100 * busy / (kIdleMs * 1e-3), 0.1});
}
BENCHMARK(BM_IdleServer)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace perilink

BENCHMARK_MAIN();
