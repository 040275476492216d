// A host's day, in real time: the server with notices, updates, direct commands and a full read a
// minute, on a virtual mouse that is unplugged and plugged in again. What it looks for grows slowly
// or comes seldom: memory, handles, threads and files that stay behind, a byte that is wrong.
//
//   soak MINUTES
//
// Prints a row a minute. Fails when anything has grown since the fifth minute, or was ever wrong.
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "perilink/perilink.h"
#include "perilink_platform/win32.h"
#include "perilink_platform/world.h"
#include "sim/mouse.h"

namespace perilink {
namespace {

constexpr DWORD kTickMs = 100;
constexpr int kMinute = 600;      // ticks
constexpr int kCommandTicks = 5;  // from one direct command to the next
constexpr int kEventTicks = 13;
constexpr int kUpdateTicks = 50;
constexpr int kReplugTicks = 210;
constexpr int kReadTick = 400;  // of each minute
constexpr int kLongestReadTicks = 150;
constexpr int kSettledMinute = 5;
// What the allocator's own tables may take once more.
constexpr uint64_t kHeapSlack = 64 * 1024;

std::mutex image_mutex;
std::vector<uint8_t> image;
std::atomic<uint64_t> reports{0};
std::atomic<uint64_t> notices{0};

void PERILINK_CALL OnReport(const uint8_t*, uint32_t, const uint8_t* data, uint32_t length) {
  ++reports;
  if (length != PERILINK_FLASH_IMAGE_SIZE) return;
  const std::lock_guard lock(image_mutex);
  image.assign(data, data + length);
}

void PERILINK_CALL OnUsbChange(bool) {
  ++notices;
}

uint64_t EntriesOf(const char* folder) {
  return static_cast<uint64_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// What the process has.
struct Holdings {
  uint64_t heap = mallinfo2().uordblks;  // bytes
  uint64_t handles = platform::OpenHandleCount();
  uint64_t threads = EntriesOf("/proc/self/task");
  uint64_t files = EntriesOf("/proc/self/fd");

  bool GrownFrom(const Holdings& before) const {
    return heap > before.heap + kHeapSlack || handles > before.handles ||
           threads > before.threads || files > before.files;
  }
};

class Host {
 public:
  Host() {
    mouse_.SetLogging(false);
    mouse_.Plug();
    StartUsbChanged(OnUsbChange, 0);
    Start();
  }

  // False when something was wrong, or has grown.
  bool Run(int minutes) {
    std::printf(
        "minute  heap KiB  handles  threads  files   reports  notices  commands  reads  "
        "wrong\n");
    auto next = std::chrono::steady_clock::now();
    for (int tick = 1; tick <= minutes * kMinute; ++tick) {
      Tick(tick);
      if (tick % kMinute == 0) Tell(tick / kMinute);
      next += std::chrono::milliseconds(kTickMs);
      Sleep(static_cast<DWORD>(std::max<int64_t>(
          0, std::chrono::duration_cast<std::chrono::milliseconds>(next -
                                                                   std::chrono::steady_clock::now())
                 .count())));
    }
    UsbServer_Exit();
    UsbReaderWriterServer();  // returns when the loop has ended
    StopUsbChanged();
    const bool heard = notices == 1 + 2 * replugs_;
    if (!heard) std::printf("a device came or went unheard\n");
    return heard && wrong_ == 0 && reads_ > 0 && !grown_;
  }

 private:
  void Start() {
    const uintptr_t thread = UsbServer_Start(mouse_.CommandPath(), mouse_.CommandPath(), OnReport);
    if (thread != 0) CloseHandle(reinterpret_cast<HANDLE>(thread));
  }

  void Tick(int tick) {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
      DispatchMessageW(&message);
    const int of_minute = tick % kMinute;
    if (of_minute == kReadTick) BeginRead();
    const bool reads = of_minute >= kReadTick && of_minute <= kReadTick + kLongestReadTicks;
    if (of_minute == kReadTick + kLongestReadTicks) EndRead();
    if (tick % kCommandTicks == 0 && plugged_) AskVersion();
    if (tick % kEventTicks == 0) mouse_.SendEvent(0x05);
    // What is queued is written before the device goes or is read.
    const int of_replug = tick % kReplugTicks;
    const bool settles = of_replug == 0 || of_replug > kReplugTicks - kUpdateTicks;
    if (plugged_ && !settles && of_minute < kReadTick - kUpdateTicks && tick % kUpdateTicks == 0)
      Update(tick);
    if (!reads) Replug(of_replug);
  }

  // Gone for two seconds.
  void Replug(int at) {
    const bool goes = plugged_ && at == 0;
    const bool comes = !plugged_ && at >= 20;
    if (!goes && !comes) return;
    plugged_ = comes;
    if (goes) return mouse_.Unplug();
    ++replugs_;
    mouse_.Plug();
    Start();
  }

  void AskVersion() {
    const int32_t version = UsbFinder_GetVersion(mouse_.CommandPath());
    ++commands_;
    Require(version == 0 || version == mouse_.firmware().options().version, "another version");
  }

  void Update(int tick) {
    if (reads_ == 0) return;  // nothing is known of the device yet
    record_.report_rate = static_cast<uint8_t>(tick / kUpdateTicks);
    record_.key_functions[3].bytes[0] = static_cast<uint8_t>(tick / kMinute);
    ProtocolDataUpdate(&record_);
  }

  void BeginRead() {
    if (!plugged_) Replug(20);
    const std::lock_guard lock(image_mutex);
    image.clear();
    UsbServer_ReadAllFlashData();
  }

  void EndRead() {
    std::vector<uint8_t> flash;
    {
      const platform::DeviceGuard guard;
      const auto bytes = mouse_.flash().bytes();
      flash.assign(bytes.begin(), bytes.end());
    }
    const std::lock_guard lock(image_mutex);
    ++reads_;
    Require(!image.empty(), "a full read has not ended");
    if (image.empty()) return;
    const auto held = std::make_unique<ProtocolData>();
    const auto read = std::make_unique<ProtocolData>();
    ProtocolDataParser(flash.data(), held.get());
    ProtocolDataParser(image.data(), read.get());
    Require(std::memcmp(held.get(), read.get(), sizeof(ProtocolData)) == 0,
            "an image is not what the device holds");
    Require(reads_ == 1 || read->report_rate == record_.report_rate, "an update was not written");
    record_ = *read;
  }

  void Require(bool holds, const char* what) {
    if (holds) return;
    ++wrong_;
    std::printf("%s\n", what);
  }

  void Tell(int minute) {
    const Holdings now;
    if (minute == kSettledMinute) settled_ = now;
    grown_ = minute > kSettledMinute && now.GrownFrom(settled_);
    std::printf("%6d  %8.1f  %7llu  %7llu  %5llu  %8llu  %7llu  %8llu  %5llu  %5llu%s\n", minute,
                static_cast<double>(now.heap) / 1024, ull(now.handles), ull(now.threads),
                ull(now.files), ull(reports), ull(notices), ull(commands_), ull(reads_),
                ull(wrong_), grown_ ? "  grown" : "");
    std::fflush(stdout);
  }
  static unsigned long long ull(uint64_t value) { return value; }

  sim::Mouse mouse_;
  bool plugged_ = true;
  ProtocolData record_{};
  Holdings settled_;
  bool grown_ = false;
  uint64_t replugs_ = 0;
  uint64_t commands_ = 0;
  uint64_t reads_ = 0;
  uint64_t wrong_ = 0;
};

}  // namespace
}  // namespace perilink

int main(int argc, char** argv) {
  const int minutes = argc == 2 ? std::atoi(argv[1]) : 0;
  if (minutes <= 0) {
    std::fprintf(stderr, "usage: soak MINUTES\n");
    return 2;
  }
  namespace fs = std::filesystem;
  std::string folder = (fs::temp_directory_path() / "soakXXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return 2;
  perilink::platform::HideMachineDevices();
  perilink::platform::SetRegistryFolder(folder);
  const bool good = perilink::Host().Run(minutes);
  fs::remove_all(folder);
  return good ? 0 : 1;
}
