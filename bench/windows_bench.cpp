// What the library costs on Windows' own HID stack, as Wine has it, with a virtual mouse in a
// process of its own:
//   scripts/wine.sh PREFIX windows_bench.exe RESULTS
// writes its figures to a file in the form that scripts/bench_table.py reads.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "full_flash.h"
#include "perilink/perilink.h"
#include "platform/win32.h"
#include "sim/wine_device.h"

namespace perilink {
namespace {

constexpr double kSpacingMs = 8;  // between an answer and the next write
constexpr size_t kInterfaces = 15;

// ---- What the library calls --------------------------------------------------------------------

enum Function { kGetClassDevs, kEnumInterfaces, kGetDetail, kCreateFile, kWriteFile, kFunctions };
constexpr const char* kNames[kFunctions] = {"SetupDiGetClassDevsW", "SetupDiEnumDeviceInterfaces",
                                            "SetupDiGetDeviceInterfaceDetailW", "CreateFileW",
                                            "WriteFile"};
std::atomic<int> calls[kFunctions];
void* originals[kFunctions];

// Stands in for the function in the library's table of imports. Every argument of these functions
// is of the size of a pointer or less, and none has more than seven.
template <int function>
uintptr_t Counted(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d, uintptr_t e, uintptr_t f,
                  uintptr_t g) {
  ++calls[function];
  using Any =
      uintptr_t(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t);
  return reinterpret_cast<Any*>(originals[function])(a, b, c, d, e, f, g);
}

void CountCallsTo(const std::string& name, void** entry) {
  void* const counted[] = {
      reinterpret_cast<void*>(&Counted<0>), reinterpret_cast<void*>(&Counted<1>),
      reinterpret_cast<void*>(&Counted<2>), reinterpret_cast<void*>(&Counted<3>),
      reinterpret_cast<void*>(&Counted<4>)};
  const auto found = std::find(std::begin(kNames), std::end(kNames), name) - std::begin(kNames);
  if (found == kFunctions) return;
  DWORD protection = 0;
  VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection);
  originals[found] = *entry;
  *entry = counted[found];
  VirtualProtect(entry, sizeof *entry, protection, &protection);
}

// Whether all of them were found among the library's imports.
bool CountCalls() {
  auto* const base = reinterpret_cast<uint8_t*>(GetModuleHandleA("perilink.dll"));
  const auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const DWORD table =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (auto* dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + table); dll->Name != 0;
       ++dll) {
    const auto* name = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + dll->OriginalFirstThunk);
    auto** entry = reinterpret_cast<void**>(base + dll->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++entry) {
      if (!IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal))
        CountCallsTo(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData)->Name,
                     entry);
    }
  }
  return std::find(std::begin(originals), std::end(originals), nullptr) == std::end(originals);
}

// ---- The device, in another process ------------------------------------------------------------

int PlayTheDevice() {
  sim::DeviceOptions options = sim::MouseOptions();
  options.collection = kInterfaces - 1;  // and a pointer
  options.flash = bench::FullFlash();
  options.firmware.latency_micros = 1000;
  sim::WineDevice mouse(options);
  mouse.SetLogging(false);
  mouse.Plug();
  Sleep(INFINITE);
  return 0;
}

std::vector<std::wstring> Present() {
  std::vector<std::wstring> paths;
  UsbFinder_FindHidDevicesByKey(L"vid_1234", paths);
  return paths;
}

class DeviceProcess {
 public:
  DeviceProcess() {
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring line = L"\"" + std::wstring(program) + L"\" --device";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                   &process_);
  }
  // Which unplugs it.
  ~DeviceProcess() { TerminateProcess(process_.hProcess, 0); }
  DeviceProcess(const DeviceProcess&) = delete;
  DeviceProcess& operator=(const DeviceProcess&) = delete;

  // Where it takes commands; empty when it doesn't come.
  std::wstring AwaitPath() const {
    for (int tries = 0; tries < 1000; ++tries, Sleep(20)) {
      const std::vector<std::wstring> paths = Present();
      if (paths.size() == kInterfaces && UsbFinder_GetVersion(paths.back()) > 0)
        return paths.back();
    }
    return L"";
  }

 private:
  PROCESS_INFORMATION process_{};
};

// ---- The figures -------------------------------------------------------------------------------

struct Figure {
  std::string what;
  std::string unit;
  double measured;
  double limit;
};

uint64_t Ticks(const FILETIME& time) {
  return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

// Of the process, so far.
double ProcessorMs() {
  FILETIME created, ended, kernel, user;
  GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
  return static_cast<double>(Ticks(kernel) + Ticks(user)) / 10'000;
}

double NowMs() {
  LARGE_INTEGER now, frequency;
  QueryPerformanceCounter(&now);
  QueryPerformanceFrequency(&frequency);
  return 1000 * static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// Time and processor time from its making on.
struct Span {
  double start_ms = NowMs();
  double start_processor_ms = ProcessorMs();
  double Ms() const { return NowMs() - start_ms; }
  double Percent() const { return 100 * (ProcessorMs() - start_processor_ms) / Ms(); }
};

HANDLE image_came;

void PERILINK_CALL OnReport(const uint8_t*, uint32_t, const uint8_t*, uint32_t length) {
  if (length == PERILINK_FLASH_IMAGE_SIZE) SetEvent(image_came);
}

// From a request to the device's answer, as a plain program that does nothing else has it: the
// device's own time, and the system's to carry both.
double MeasureLatencyMs(const std::wstring& path) {
  constexpr int kExchanges = 100;
  const HANDLE file =
      CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
  OVERLAPPED reading{}, writing{};
  reading.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  writing.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const sim::Frame request = sim::MakeFrame(sim::command::kVersion, 0);
  sim::Frame reply{};
  double sum_ms = 0;
  for (int i = 0; i < kExchanges; ++i) {
    DWORD count = 0;
    ReadFile(file, reply.data(), static_cast<DWORD>(reply.size()), nullptr, &reading);
    const double start_ms = NowMs();
    WriteFile(file, request.data(), static_cast<DWORD>(request.size()), nullptr, &writing);
    GetOverlappedResult(file, &writing, &count, TRUE);
    GetOverlappedResult(file, &reading, &count, TRUE);
    sum_ms += NowMs() - start_ms;
    Sleep(8);
  }
  for (const HANDLE handle : {file, reading.hEvent, writing.hEvent})
    CloseHandle(handle);
  return sum_ms / kExchanges;
}

std::vector<Figure> MeasureFullRead(const std::wstring& path, double latency_before_ms) {
  image_came = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  Sleep(500);  // the idle sleep's phase is known: it has begun at most 100 ms ago
  const int before = calls[kWriteFile];
  UsbServer_ReadAllFlashData();
  while (calls[kWriteFile] == before)
    Sleep(1);
  const Span span;
  WaitForSingleObject(image_came, INFINITE);
  const double took_ms = span.Ms();
  const double percent = span.Percent();
  const int frames = calls[kWriteFile] - before;
  // The machine may have become slower, or faster.
  const double latency_ms = (latency_before_ms + MeasureLatencyMs(path)) / 2;
  std::printf("a plain exchange takes %.3f ms\n", latency_ms);
  const double needed_ms = frames * (kSpacingMs + latency_ms);
  return {{"full configuration read on Windows' stack, filled image, of the time that its frames "
           "need",
           "×", took_ms / needed_ms, 1.05},
          {"processor use meanwhile", "% of a core", percent, 10}};
}

std::vector<Figure> MeasureIdling() {
  constexpr double kSeconds = 20;
  UsbServer_SetBatteryOptimizeEnable(0);
  Sleep(1000);
  const int before = calls[kGetClassDevs];
  const Span span;
  Sleep(static_cast<DWORD>(kSeconds * 1000));
  const double percent = span.Percent();
  const double enumerations = (calls[kGetClassDevs] - before) / kSeconds;
  return {{"processor use of the idle server on Windows' stack, 15 interfaces", "% of a core",
           percent, 0.5},
          {"enumerations of the idle server", "a second", enumerations, 1.05}};
}

// An enumeration asks for each interface, and once in vain for another.
Figure MeasureListing() {
  const auto all = [] { return calls[kEnumInterfaces] + calls[kGetDetail] + calls[kCreateFile]; };
  std::vector<std::wstring> paths;
  const int before = all();
  UsbFinder_EnumHidDeviceList(paths);
  const auto interfaces = static_cast<double>(paths.size());
  return {"system calls of a listing on Windows' stack beyond its enumeration", "an interface",
          (all() - before - (interfaces + 1)) / interfaces, 1};
}

void Write(const std::vector<Figure>& figures, const char* file) {
  std::ofstream out(file);
  out << "{\"benchmarks\": [";
  const char* separator = "\n";
  for (const Figure& figure : figures) {
    std::printf("%s: %.3f %s (at most %g)\n", figure.what.c_str(), figure.measured,
                figure.unit.c_str(), figure.limit);
    out << separator << "{\"name\": \"windows\", \"label\": \"" << figure.what << " | "
        << figure.unit << "\", \"measured\": " << figure.measured << ", \"limit\": " << figure.limit
        << "}";
    separator = ",\n";
  }
  out << "\n]}\n";
}

int Measure(const char* file) {
  const DeviceProcess device;
  const std::wstring path = device.AwaitPath();
  if (path.empty() || !CountCalls()) {
    std::fputs("windows_bench: there is nothing to measure\n", stderr);
    return 1;
  }
  std::vector<Figure> figures = {MeasureListing()};
  const double latency_ms = MeasureLatencyMs(path);
  UsbServer_SetBatteryOptimizeEnable(0);
  const HANDLE server = reinterpret_cast<HANDLE>(UsbServer_Start(path, path, OnReport));
  for (const auto& measured : {MeasureFullRead(path, latency_ms), MeasureIdling()})
    figures.insert(figures.end(), measured.begin(), measured.end());
  UsbServer_Exit();
  WaitForSingleObject(server, INFINITE);
  Write(figures, file);
  return 0;
}

}  // namespace
}  // namespace perilink

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: windows_bench RESULTS\n", stderr);
    return 2;
  }
  return std::string(argv[1]) == "--device" ? perilink::PlayTheDevice()
                                            : perilink::Measure(argv[1]);
}
