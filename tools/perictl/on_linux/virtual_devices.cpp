// The simulated devices, on the bus that the library sees in this build.
#include "selection/virtual_devices.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>

#include "perilink/protocol.h"
#include "perilink_platform/registry.h"
#include "perilink_platform/world.h"
#include "sim/keyboard.h"
#include "sim/mouse.h"
#include "sim/report.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"

namespace perictl {
namespace {

namespace platform = perilink::platform;
namespace sim = perilink::sim;

void RefusePacket(sim::Exchange& exchange) {
  exchange.replies.resize(1);
  sim::Bytes& report = exchange.replies[0].report;
  report = {report[0], PERILINK_BOOT_ERROR, PERILINK_BOOT_ERROR_MARK, sim::BootLoader::kBadPacket};
}

// What can happen to a device, at the start or at a time.
struct Fault {
  const char* name;
  void (*happen)(sim::Device& device);
};

constexpr Fault kFaults[] = {
    {"absent", [](sim::Device& device) { device.Unplug(); }},
    {"present", [](sim::Device& device) { device.Plug(); }},
    {"asleep", [](sim::Device& device) { device.SetAsleep(true); }},
    {"awake", [](sim::Device& device) { device.SetAsleep(false); }},
    {"charging", [](sim::Device& device) { device.SetCharging(true); }},
    {"discharging", [](sim::Device& device) { device.SetCharging(false); }},
    {"event", [](sim::Device& device) { device.SendEvent(0x05); }},
    {"low",
     [](sim::Device& device) {
       device.battery().SetPercent(12);
       device.SendEvent(0x40);
     }},
    {"silent", [](sim::Device& device) { device.faults().Silence(); }},
    {"nonsense", [](sim::Device& device) { device.faults().CorruptChecksum(sim::Always()); }},
    // Answers two requests and is gone.
    {"vanishing", [](sim::Device& device) { device.faults().UnplugAfter(sim::At(3)); }},
    // Writes to its configuration are stored without a word, or acknowledged and not stored.
    {"write-silent",
     [](sim::Device& device) {
       device.faults().Drop(sim::Always().For(sim::command::kWriteMemory));
     }},
    {"write-lost",
     [](sim::Device& device) {
       device.faults().OnRequest([](sim::Exchange& exchange) { exchange.flash_bytes = 0; },
                                 sim::Always().For(sim::command::kWriteMemory));
     }},
    // Its power fails in the middle of the third of them.
    {"write-torn",
     [](sim::Device& device) {
       device.faults().LosePower(sim::At(3), sim::PowerLoss::kDuringWrite);
     }},
    // Ctrl-C comes in the middle of the third of them.
    {"write-interrupted",
     [](sim::Device& device) {
       device.faults().OnRequest([](sim::Exchange&) { std::raise(SIGINT); },
                                 sim::At(3).For(sim::command::kWriteMemory));
     }},
    // The command that leads to boot mode is lost.
    {"reset-silent",
     [](sim::Device& device) {
       device.faults().Drop(sim::Always().For(sim::command::kUpdateMode));
     }},
    // The boot loader takes packets without a word, or refuses them.
    {"boot-silent", [](sim::Device& device) { device.boot_faults().Silence(); }},
    {"boot-error", [](sim::Device& device) { device.boot_faults().OnReply(RefusePacket); }},
    {"healed",
     [](sim::Device& device) {
       device.faults().Heal();
       device.boot_faults().Heal();
     }},
};

struct TimedFault {
  const Fault* fault = nullptr;
  uint64_t at_micros = 0;
};

constexpr double kLongestSeconds = 1e6;

// "2s" or "250ms"
bool ParseTime(const std::string& text, uint64_t& micros) {
  char* unit = nullptr;
  const double number = std::strtod(text.c_str(), &unit);
  const std::string rest = unit;
  const double seconds = rest == "ms" ? number / 1000 : number;
  if (unit == text.c_str() || (rest != "ms" && rest != "s")) return false;
  if (!(seconds >= 0 && seconds <= kLongestSeconds)) return false;
  micros = static_cast<uint64_t>(seconds * 1e6);
  return true;
}

bool ParseWord(const std::string& word, TimedFault& timed) {
  const size_t at = word.find('@');
  timed.fault =
      std::find_if(std::begin(kFaults), std::end(kFaults),
                   [name = word.substr(0, at)](const Fault& f) { return f.name == name; });
  return timed.fault != std::end(kFaults) &&
         (at == word.npos || ParseTime(word.substr(at + 1), timed.at_micros));
}

// Ends with the first word that can't be read, and returns it.
std::optional<std::string> Parse(const std::string& list, std::vector<TimedFault>& faults) {
  for (size_t start = 0; start <= list.size();) {
    const size_t end = std::min(list.find(',', start), list.size());
    const std::string word = list.substr(start, end - start);
    TimedFault timed;
    if (!ParseWord(word, timed)) return word;
    faults.push_back(timed);
    start = end + 1;
  }
  return std::nullopt;
}

std::string FaultNames() {
  std::string names;
  for (const Fault& fault : kFaults)
    names += std::string(names.empty() ? "" : ", ") + fault.name;
  return names;
}

// They stay until the very end: other threads may still be with one when main returns.
std::vector<sim::Device*>& Devices() {
  static auto* const devices = new std::vector<sim::Device*>;
  return *devices;
}

// The one that things happen to, or null.
sim::Device* FirstDevice() {
  return Devices().empty() ? nullptr : Devices().front();
}

// Two of a kind have other paths.
sim::Device* MakeDevice(const std::string& model, size_t number) {
  sim::DeviceOptions options =
      model == "keyboard" ? sim::Keyboard::Options() : sim::Mouse::Options();
  if (number > 0) options.instance.back() = static_cast<char>('0' + number % 10);
  return model == "keyboard" ? static_cast<sim::Device*>(new sim::Keyboard(options))
                             : new sim::Mouse(options);
}

// A simulated device's records are none of the user's.
class TemporaryRegistry {
 public:
  TemporaryRegistry() {
    std::string name = (std::filesystem::temp_directory_path() / "perictl-XXXXXX").string();
    if (mkdtemp(name.data()) != nullptr) folder_ = name;
    platform::SetRegistryFolder(name);
  }
  ~TemporaryRegistry() {
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  }
  TemporaryRegistry(const TemporaryRegistry&) = delete;
  TemporaryRegistry& operator=(const TemporaryRegistry&) = delete;

 private:
  std::string folder_;
};

}  // namespace

std::vector<std::string> VirtualModels() {
  return {"mouse", "keyboard"};
}

std::string VirtualFaultHelp() {
  return "what happens to it, at the start or after a time, as in charging or absent@2s,"
         "present@2500ms; one or more of: " +
         FaultNames();
}

std::string CheckVirtualFaults(const std::string& faults) {
  std::vector<TimedFault> parsed;
  const std::optional<std::string> wrong = Parse(faults, parsed);
  if (!wrong) return "";
  return "'" + *wrong + "' is neither NAME nor NAME@TIME, as in absent@2s; the names are " +
         FaultNames();
}

void StartVirtualTime() {
  platform::StartVirtual(1);
}

void PlugVirtualDevices(const VirtualChoice& choice) {
  platform::HideMachineDevices();
  static const TemporaryRegistry registry;
  std::string models = choice.models;
  for (size_t number = 0; !models.empty(); ++number) {
    const size_t end = std::min(models.find(','), models.size());
    Devices().push_back(MakeDevice(models.substr(0, end), number));
    Devices().back()->Plug();
    models.erase(0, end + 1);
  }
  if (!choice.fault.empty()) HappenToVirtualDevice(choice.fault);
}

std::vector<uint8_t> VirtualUpgradeFile() {
  constexpr size_t kFirmwareSize = 4096;
  sim::Device* const device = FirstDevice();
  if (device == nullptr) return {};
  const auto guard = device->Lock();
  const auto version = static_cast<uint16_t>(device->firmware().options().version + 1);
  return sim::UpgradeFileBuilder(
             sim::ImageFor(*device, sim::MakeVirtualFirmware(version, kFirmwareSize)))
      .Build();
}

void SetVirtualMemory(std::span<const uint8_t> bytes) {
  sim::Device* const device = FirstDevice();
  if (device == nullptr) return;
  const auto guard = device->Lock();
  device->flash().SetBytes(0, bytes);
}

std::vector<uint8_t> VirtualMemory() {
  sim::Device* const device = FirstDevice();
  if (device == nullptr) return {};
  const auto guard = device->Lock();
  const auto bytes = device->flash().bytes().first(sim::kConfigurationSize);
  return {bytes.begin(), bytes.end()};
}

bool HappenToVirtualDevice(const std::string& faults) {
  sim::Device* const device = FirstDevice();
  if (device == nullptr) return false;
  std::vector<TimedFault> parsed;
  Parse(faults, parsed);
  for (const TimedFault& timed : parsed) {
    if (timed.at_micros == 0) {
      timed.fault->happen(*device);
    } else {
      platform::ScheduleIn(timed.at_micros,
                           [fault = timed.fault, device] { fault->happen(*device); });
    }
  }
  return true;
}

}  // namespace perictl
