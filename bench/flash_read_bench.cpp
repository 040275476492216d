// The full read of the configuration in virtual time, as a multiple of the time that its frames
// need: the spacing of writes and the device's latency.
#include <benchmark/benchmark.h>

#include <string>

#include "figure.h"
#include "full_flash.h"
#include "perilink/battery.h"
#include "perilink/protocol.h"
#include "perilink/server.h"
#include "perilink_platform/world.h"
#include "platform/win32.h"
#include "sim/mouse.h"

namespace perilink {
namespace {

constexpr double kMostOverhead = 1.02;
constexpr uint64_t kSpacingMicros = 8000;

uint64_t finished_micros = 0;

void PERILINK_CALL OnReport(const uint8_t*, uint32_t, const uint8_t*, uint32_t data_length) {
  if (data_length == PERILINK_FLASH_IMAGE_SIZE) finished_micros = platform::NowMicros();
}

void BM_FullRead(benchmark::State& state) {
  sim::DeviceOptions options = sim::Mouse::Options();
  if (state.range(0) != 0) options.flash = bench::FullFlash();
  const uint64_t latency_micros = options.firmware.latency_micros;
  sim::Mouse mouse(std::move(options));
  mouse.Plug();
  UsbServer_SetBatteryOptimizeEnable(0);
  CS_UsbServer_SetThreadSleepTime(1);
  const std::wstring path = mouse.CommandPath();
  double overhead = 0;
  for (auto _ : state) {
    const HANDLE thread = reinterpret_cast<HANDLE>(UsbServer_Start(path, path, &OnReport));
    Sleep(100);
    mouse.ClearRequests();
    finished_micros = 0;
    const uint64_t start_micros = platform::NowMicros();
    UsbServer_ReadAllFlashData();
    for (int i = 0; i < 600 && finished_micros == 0; ++i)
      Sleep(100);
    UsbServer_Exit();
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    const uint64_t frames = mouse.CountRequests(PERILINK_COMMAND_READ_MEMORY);
    if (finished_micros == 0 || frames == 0) return state.SkipWithError("the read did not end");
    overhead = static_cast<double>(finished_micros - start_micros) /
               static_cast<double>(frames * (kSpacingMicros + latency_micros));
  }
  mouse.Unplug();
  const std::string image = state.range(0) != 0 ? "filled" : "empty";
  bench::ReportFigure(
      state, {"full configuration read, " + image + " image, of the time that its frames need", "×",
              overhead, kMostOverhead});
}
BENCHMARK(BM_FullRead)->ArgName("filled")->Arg(0)->Arg(1)->Iterations(1);

}  // namespace
}  // namespace perilink

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  perilink::platform::StartVirtual(1);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
