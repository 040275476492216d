// Draws what hosts do, what goes wrong and which thread runs from a seed, and holds the server
// against the model at every step. Then everything heals, and the server must come to rest.
//
//   server_simulation [--canary] FIRST COUNT
//
// Each seed runs in a process of its own. A seed that fails says so and repeats exactly when it is
// given alone. With --canary the model asks for more than the server promises: that must fail.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "perilink/battery.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "platform/win32.h"
#include "sim/mouse.h"
#include "simulation.h"
#include "transport/frame.h"

namespace perilink::testing {
namespace {

uint64_t seed_now = 0;

class Simulation {
 public:
  Simulation(uint64_t seed, uint64_t least_spacing_ms) : random_(seed), model_(least_spacing_ms) {
    current_ = this;
  }

  void Run() {
    const uint64_t handles = platform::OpenHandleCount();
    mouse_.flash().SetMacro(3, "sim", {});
    mouse_.Plug();
    DrawFaults();
    CS_UsbServer_SetThreadSleepTime(1 + Draw(100));
    StartServer();
    const HANDLE second = CreateThread(nullptr, 0, &Simulation::SecondHost, this, 0, nullptr);
    for (int step = 0; step < 25; ++step)
      Act(true);
    WaitForSingleObject(second, INFINITE);
    CloseHandle(second);
    Heal();
    UsbServer_Exit();
    Sleep(5000);
    mouse_.Unplug();
    if (platform::Bus().OpenConnections() != 0) Broken("the device was not released");
    if (platform::OpenHandleCount() != handles) Broken("handles are left open");
  }

 private:
  uint32_t Draw(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }

  static DWORD WINAPI SecondHost(LPVOID self) {
    for (int step = 0; step < 15; ++step)
      static_cast<Simulation*>(self)->Act(false);
    return 0;
  }

  // After all other faults, so that it sees whether a write has failed.
  void WatchWrites() {
    mouse_.faults().OnRequest([this](sim::Exchange& exchange) {
      model_.OnWrite(exchange.request, exchange.write_error == 0);
    });
  }
  void DrawFaults() {
    mouse_.faults().Heal();
    const auto chance = [&] { return Draw(3) == 0 ? Draw(30) / 100.0 : 0.0; };
    mouse_.faults().Random(random_(), {.fail_write = chance(),
                                       .drop = chance(),
                                       .corrupt = chance(),
                                       .wrong_command = chance(),
                                       .delay = chance(),
                                       .stray_event = chance(),
                                       .duplicate = chance()});
    if (Draw(4) == 0) mouse_.faults().Ignore({.first = 1 + Draw(20), .count = 8, .command = {}});
    WatchWrites();
  }

  void StartServer() {
    const std::wstring path = mouse_.CommandPath();
    needs_start_ = mouse_.mode() == sim::Mode::kUnplugged;
    model_.Start([&] {
      uintptr_t thread = 0;
      if (Draw(3) == 0) {
        UsbServerC_KeyboardStart(mouse_.CommandPathNarrow().c_str(),
                                 mouse_.CommandPathNarrow().c_str(), OnReport);
      } else {
        thread = UsbServer_Start(path, path, OnReport);
      }
      if (thread != 0) CloseHandle(reinterpret_cast<HANDLE>(thread));
    });
  }

  void Unplug() {
    needs_start_ = true;
    mouse_.Unplug();
  }
  void Exit() {
    needs_start_ = true;
    model_.OnExit();
    UsbServer_Exit();
  }

  void QueueSomething() {
    static constexpr uint8_t kCommands[] = {0x03, 0x04, 0x21, 0x22, 0x23, 0x07, 0x09};
    const uint32_t kind = Draw(10);
    if (kind < 2) {
      const uint32_t address = 16 * (++reads_ % 400);
      const uint32_t frames = 1 + Draw(3);
      model_.Queue(PERILINK_COMMAND_READ_MEMORY, address, frames,
                   [&] { UsbServer_ReadFalshData(address, static_cast<int32_t>(10 * frames), 0); });
      return;
    }
    const uint8_t command = kCommands[Draw(sizeof(kCommands) - (Draw(10) != 0 ? 1u : 0u))];
    const uint32_t serial = ++serial_;
    uint8_t data[4];
    std::memcpy(data, &serial, sizeof(data));
    model_.Queue(command, serial, 1, [&] { UsbServer_SetData(command, data, sizeof(data)); });
  }

  // A host acts; what only one may do at a time is the main host's.
  void Act(bool main_host) {
    const uint32_t action = Draw(main_host ? 14 : 6);
    if (action == 0) mouse_.SendEvent(static_cast<uint8_t>(Draw(256)));
    if (action == 1) UsbServer_SetBatteryOptimizeEnable(static_cast<uint8_t>(Draw(4)));
    if (action >= 2 && action <= 5) QueueSomething();
    if (action == 6) Unplug();
    if (action == 7) mouse_.Plug();
    if (action == 8) Exit();
    if (action == 9 || action == 10) StartServer();
    if (action == 11) DrawFaults();
    if (action == 12) mouse_.SetAsleep(Draw(2) == 0);
    if (action == 13) mouse_.battery().Fix({static_cast<uint8_t>(Draw(101)), uint8_t(Draw(2)), 0});
    if (Draw(3) != 0) Sleep(Draw(20) == 0 ? 6000 : Draw(40));
    model_.Check();
  }

  // Everything works again: what is queued is answered, and the configuration can be read.
  void Heal() {
    on_callback_acts_ = false;
    mouse_.faults().Heal();
    WatchWrites();
    mouse_.Plug();
    mouse_.SetAsleep(false);
    Sleep(2000);  // answers still under way
    // A server that has lost nothing comes to rest without being started again.
    if (needs_start_ || Draw(2) == 0) StartServer();
    model_.answers_are_exact = true;
    for (int i = 0; i < 10; ++i)
      QueueSomething();
    for (int i = 0; i < 200 && !model_.AllAnswered(); ++i) {
      Sleep(100);
      model_.Check();
    }
    if (!model_.AllAnswered()) Broken("healed, and requests are not answered");
    reads_configuration_ = true;  // its requests queue each other, which the model does not know
    mouse_.faults().Heal();
    UsbServer_ReadAllFlashData();
    for (int i = 0; i < 100 && !image_right_; ++i)
      Sleep(100);
    if (!image_right_) Broken("healed, and the configuration can't be read");
  }

  void OnImage(const uint8_t* data) {
    const auto flash = mouse_.flash().bytes();
    image_right_ = std::equal(data, data + PERILINK_SETTINGS_BLOCK_SIZE, flash.begin()) &&
                   std::equal(data + 6912, data + 6960, flash.begin() + 6912);
  }

  static void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t frame_length,
                                     const uint8_t* data, uint32_t length) {
    if (frame_length != 17) Broken("a frame of another length");
    if (length == PERILINK_FLASH_IMAGE_SIZE) return current_->OnImage(data);
    if (current_->reads_configuration_) return;
    current_->model_.OnCallback(frame, data, length);
    if (!current_->on_callback_acts_) return;
    const uint32_t action = current_->Draw(30);
    if (action == 0) current_->QueueSomething();
    if (action == 1) current_->StartServer();
    if (action == 2) current_->Exit();
  }

  static inline Simulation* current_ = nullptr;

  std::mt19937_64 random_;
  Model model_;
  sim::Mouse mouse_;
  uint32_t serial_ = 0;
  uint32_t reads_ = 0;
  bool needs_start_ = true;
  bool on_callback_acts_ = true;
  bool reads_configuration_ = false;
  bool image_right_ = false;
};

// In a child: the whole world of one seed.
int RunSeed(uint64_t seed, uint64_t least_spacing_ms) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    seed_now = seed;
    std::string folder = (std::filesystem::temp_directory_path() / "simulationXXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) Broken("no folder for the registry");
    platform::SetRegistryFolder(folder);
    platform::StartVirtual(seed);
    Simulation(seed, least_spacing_ms).Run();
    std::filesystem::remove_all(folder);
    std::fflush(nullptr);
    _exit(0);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return 1;
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return 0;
  std::printf("seed %llu failed (status %d)\n", static_cast<unsigned long long>(seed), status);
  return 1;
}

}  // namespace

void Broken(const char* what) {
  std::printf("seed %llu, %.3f ms: %s\n", static_cast<unsigned long long>(seed_now),
              static_cast<double>(platform::NowMicros()) / 1000, what);
  std::fflush(nullptr);
  _exit(1);
}

}  // namespace perilink::testing

int main(int argc, char** argv) {
  const bool canary = argc == 4 && std::string(argv[1]) == "--canary";
  if (argc != 3 && !canary) {
    std::fprintf(stderr, "usage: server_simulation [--canary] FIRST COUNT\n");
    return 2;
  }
  const uint64_t first = std::strtoull(argv[argc - 2], nullptr, 10);
  const uint64_t count = std::strtoull(argv[argc - 1], nullptr, 10);
  int failed = 0;
  for (uint64_t seed = first; seed < first + count; ++seed)
    failed += perilink::testing::RunSeed(seed, canary ? 12 : 8);
  std::printf("%llu seeds, %d failed\n", static_cast<unsigned long long>(count), failed);
  return failed == 0 ? 0 : 1;
}
