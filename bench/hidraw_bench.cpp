// What it costs to know the machine's HID devices: reading all of them from /sys, once, and listing
// them from memory, as hosts do all the time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "figure.h"
#include "hidraw/sysfs_node.h"
#include "perilink/finder.h"
#include "ratio.h"
#include "sim/scripted_device.h"
#include "support/report_descriptors.h"

namespace perilink {
namespace {

namespace fs = std::filesystem;

constexpr int kInterfaces = 16;

// A folder that looks like /sys, with so many nodes of one USB device.
class Sys {
 public:
  Sys() {
    const std::string usb = "devices/pci0000:00/0000:00:14.0/usb1/1-1/";
    Write(usb + "bNumInterfaces", "16\n");
    Write(usb + "bcdDevice", "0123\n");
    Write(usb + "uevent", "PRODUCT=1234/abcd/123\n");
    fs::create_directories(folder_ / "class/hidraw");
    for (int i = 0; i < kInterfaces; ++i) {
      const std::string number = std::to_string(i);
      const std::string interface_folder = usb + "1-1:1." + number + "/";
      const std::string hid = interface_folder + "0003:1234:ABCD.000" + number + "/";
      const auto& descriptor = testing::kCommandDescriptor;
      Write(interface_folder + "bInterfaceNumber", number);
      Write(hid + "uevent", "HID_ID=0003:00001234:0000ABCD\n");
      Write(hid + "report_descriptor", {descriptor.begin(), descriptor.end()});
      const fs::path node = folder_ / hid / "hidraw" / ("hidraw" + number);
      fs::create_directories(node);
      fs::create_directory_symlink("../..", node / "device");
      fs::create_directory_symlink(node, folder_ / "class/hidraw" / node.filename());
    }
  }
  ~Sys() { fs::remove_all(folder_); }
  const fs::path& folder() const { return folder_; }

 private:
  void Write(const std::string& file, const std::string& text) {
    fs::create_directories((folder_ / file).parent_path());
    std::ofstream(folder_ / file) << text;
  }

  const fs::path folder_ =
      fs::canonical(fs::temp_directory_path()) / ("bench-sys-" + std::to_string(getpid()));
};

template <typename Work>
double FastestMicros(benchmark::State& state, Work work, int calls) {
  double fastest_ns = 1e12;
  for (auto _ : state)
    fastest_ns = std::min(fastest_ns, bench::TimeBatch(work, calls));
  return fastest_ns * 1e-3;
}

void BM_Scan(benchmark::State& state) {
  const Sys sys;
  if (platform::DescribeAllNodes(sys.folder()).size() != kInterfaces)
    return state.SkipWithError("not all are found");
  const double micros = FastestMicros(
      state, [&] { platform::DescribeAllNodes(sys.folder()); }, 10);
  bench::ReportFigure(state, {"describing 16 HID nodes from /sys", "µs", micros, 1000});
}
BENCHMARK(BM_Scan)->Iterations(30)->Unit(benchmark::kMillisecond);

void BM_Enumeration(benchmark::State& state) {
  std::vector<std::unique_ptr<sim::ScriptedDevice>> devices;
  for (int i = 0; i < kInterfaces; ++i)
    devices.push_back(std::make_unique<sim::ScriptedDevice>(std::wstring(sim::kScriptedPath) +
                                                            std::to_wstring(i)));
  const double micros = FastestMicros(
      state,
      [] {
        std::vector<std::wstring> paths;
        UsbFinder_EnumHidDeviceList(paths);
      },
      100);
  bench::ReportFigure(state, {"enumerating 16 interfaces", "µs", micros, 20});
}
BENCHMARK(BM_Enumeration)->Iterations(100)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace perilink

BENCHMARK_MAIN();
