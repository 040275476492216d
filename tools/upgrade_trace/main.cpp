// Upgrades a virtual mouse in virtual time, so that every run is the same, and prints what its host
// hears: a line for each event, "MILLISECONDS KIND CODE ARG1 ARG2".
#include <atomic>
#include <cstdio>

#include "perilink/protocol.h"
#include "perilink/upgrade.h"
#include "perilink_platform/win32.h"
#include "perilink_platform/world.h"
#include "sim/mouse.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"

namespace {

constexpr uint16_t kVersion = 0x0103;
constexpr size_t kFirmwareSize = 40000;
constexpr uint32_t kTimeoutMs = 10000;

uint64_t start_ms;
std::atomic<bool> ended;

int PERILINK_CALL OnEvent(const uint8_t* message, uint32_t) {
  std::printf("%llu %u %u %u %u\n", static_cast<unsigned long long>(GetTickCount64() - start_ms),
              message[1], message[2], message[3], message[4]);
  if (message[1] == PERILINK_UPGRADE_RESULT) ended = true;
  return 0;
}

}  // namespace

int main() {
  using namespace perilink;
  platform::StartVirtual(1);
  sim::Mouse mouse;
  mouse.SetLogging(false);
  mouse.Plug();
  const sim::Bytes file =
      sim::UpgradeFileBuilder(
          sim::ImageFor(mouse, sim::MakeVirtualFirmware(kVersion, kFirmwareSize)))
          .Build();
  start_ms = GetTickCount64();
  if (!UsbUpgrade_Start(file.data(), OnEvent, kTimeoutMs)) return 1;
  while (!ended)
    Sleep(10);
  return 0;
}
