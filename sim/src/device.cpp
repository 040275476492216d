#include "sim/device.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "hid_interface.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "sim/device_guard.h"

namespace perilink::sim {
namespace {

constexpr size_t kCommandLength = std::tuple_size_v<Frame>;

// The collections that stand before the command interface, as a mouse with receiver shows them:
// keyboard, consumer control, system control and a vendor page, none with an output report.
constexpr size_t kOtherInputLengths[] = {9, 3, 2, 8};

std::wstring UsbPath(uint16_t vendor_id, uint16_t product_id, const std::string& instance) {
  char key[32];
  std::snprintf(key, sizeof(key), "vid_%04x&pid_%04x", vendor_id, product_id);
  const std::string path =
      std::string("\\\\?\\usb#") + key + "#" + instance + "#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
  return {path.begin(), path.end()};
}

}  // namespace

struct Device::Interfaces final : InterfaceOwner {
  explicit Interfaces(Device& owner);

  DWORD OnReport(std::span<const uint8_t> report, bool feature) override {
    return device.OnReport(report, feature);
  }
  DWORD OnInterfaceOpen() override { return device.OnInterfaceOpen(); }
  void OnInterfaceClose() override { ++device.closes_; }

  using List = std::vector<std::unique_ptr<HidInterface>>;
  void AddNormal();
  void AddBoot();
  const List& Of(Mode mode) const { return mode == Mode::kBoot ? boot : normal; }
  HidInterface& command() const { return *normal.back(); }
  HidInterface& boot_input() const { return *boot.front(); }
  HidInterface& boot_output() const { return *boot.back(); }
  HidInterface& input(Mode mode) const { return mode == Mode::kBoot ? boot_input() : command(); }
  std::wstring usb_path(Mode mode) const {
    const DeviceOptions& o = device.options_;
    return UsbPath(o.vendor_id, mode == Mode::kBoot ? o.boot.product_id : o.product_id, o.instance);
  }

  Device& device;
  List normal;  // the command interface is the last
  List boot;    // one for both ways, or input and output
};

Device::Interfaces::Interfaces(Device& owner) : device(owner) {
  AddNormal();
  AddBoot();
}

void Device::Interfaces::AddNormal() {
  const DeviceOptions& o = device.options_;
  const auto add = [&](int interface_number, int collection, size_t input, size_t output) {
    const InterfaceShape shape = {o.vendor_id,
                                  o.product_id,
                                  o.version_number,
                                  interface_number,
                                  collection,
                                  o.instance,
                                  input,
                                  output,
                                  output};
    normal.push_back(std::make_unique<HidInterface>(shape, *this));
  };
  if (o.interface_number != 0) add(0, 0, 8, 0);
  for (int collection = 1; collection < o.collection; ++collection) {
    const auto kind = static_cast<size_t>(collection - 1) % std::size(kOtherInputLengths);
    add(o.interface_number, collection, kOtherInputLengths[kind], 0);
  }
  add(o.interface_number, o.collection, kCommandLength, kCommandLength);
}

void Device::Interfaces::AddBoot() {
  const DeviceOptions& o = device.options_;
  const size_t length = device.boot_options().report_length;
  const auto add = [&](int interface_number, size_t input, size_t output) {
    const InterfaceShape shape = {o.vendor_id,
                                  o.boot.product_id,
                                  o.version_number,
                                  interface_number,
                                  0,
                                  o.instance,
                                  input,
                                  output,
                                  output};
    boot.push_back(std::make_unique<HidInterface>(shape, *this));
  };
  if (o.boot.separate_interfaces) {
    add(0, length, 0);
    add(1, length, length);
  } else {
    add(-1, length, length);
  }
}

Device::Device(DeviceOptions options)
    : options_(std::move(options)),
      battery_(options_.battery),
      firmware_(options_.firmware, options_.flash, battery_),
      boot_loader_(options_.boot),
      interfaces_(std::make_unique<Interfaces>(*this)) {
  firmware_.set_asleep(options_.asleep);
}

Device::~Device() {
  const DeviceGuard guard;
  observer_ = nullptr;
  Unplug();
  alive_.reset();
}

void Device::Plug() {
  const DeviceGuard guard;
  if (mode_ != Mode::kUnplugged) return;
  Show(boot_loader_.FirmwareErased() ? Mode::kBoot : Mode::kNormal);
}

void Device::PlugInBootMode() {
  const DeviceGuard guard;
  if (mode_ == Mode::kUnplugged) Show(Mode::kBoot);
}

void Device::Unplug() {
  const DeviceGuard guard;
  Hide();
  ++generation_;
  leaving_ = false;
  firmware_.PowerOn();
  if (mode_ != Mode::kUnplugged) SetMode(Mode::kUnplugged);
}

void Device::ReplugAfter(uint64_t delay_micros) {
  const DeviceGuard guard;
  Unplug();
  After(delay_micros, [this] { Plug(); });
}

Mode Device::mode() const {
  const DeviceGuard guard;
  return mode_;
}

void Device::OnModeChange(std::function<void(Mode)> observer) {
  const DeviceGuard guard;
  observer_ = std::move(observer);
}

void Device::SetAsleep(bool asleep) {
  const DeviceGuard guard;
  firmware_.set_asleep(asleep);
}

void Device::SendEvent(uint8_t flags) {
  SendReport(MakeEvent(flags));
}

void Device::SendReport(std::span<const uint8_t> report) {
  const DeviceGuard guard;
  if (mode_ == Mode::kNormal && !firmware_.asleep()) Deliver(report);
}

void Device::SetCharging(bool charging) {
  const DeviceGuard guard;
  battery_.SetCharging(charging);
  SendEvent(0x40);
}

std::wstring Device::CommandPath() const {
  return interfaces_->command().Path();
}
std::string Device::CommandPathNarrow() const {
  std::string narrow;
  for (wchar_t unit : CommandPath())
    narrow += static_cast<char>(unit);
  return narrow;
}
std::string Device::CommandKey() const {
  return interfaces_->command().Key();
}
std::string Device::BootInputKey() const {
  return interfaces_->boot_input().Key();
}
std::string Device::BootOutputKey() const {
  return interfaces_->boot_output().Key();
}
std::wstring Device::BootInputPath() const {
  return interfaces_->boot_input().Path();
}
std::wstring Device::BootOutputPath() const {
  return interfaces_->boot_output().Path();
}

std::vector<std::wstring> Device::Paths() const {
  const DeviceGuard guard;
  std::vector<std::wstring> paths;
  if (mode_ != Mode::kNormal && mode_ != Mode::kBoot) return paths;
  for (const auto& hid : interfaces_->Of(mode_))
    paths.push_back(hid->Path());
  return paths;
}

std::vector<Request> Device::Requests() const {
  const DeviceGuard guard;
  return requests_;
}

size_t Device::CountRequests(uint8_t command) const {
  const DeviceGuard guard;
  return static_cast<size_t>(
      std::count_if(requests_.begin(), requests_.end(),
                    [command](const Request& request) { return request.command() == command; }));
}

void Device::ClearRequests() {
  const DeviceGuard guard;
  requests_.clear();
}

void Device::SetLogging(bool logging) {
  const DeviceGuard guard;
  logging_ = logging;
}

size_t Device::Opens() const {
  const DeviceGuard guard;
  return opens_;
}

size_t Device::OpenNow() const {
  const DeviceGuard guard;
  return opens_ - closes_;
}

DWORD Device::OnInterfaceOpen() {
  const DWORD error = (mode_ == Mode::kBoot ? boot_faults_ : faults_).OnOpen();
  if (error == 0) ++opens_;
  return error;
}

DWORD Device::OnReport(std::span<const uint8_t> bytes, bool feature) {
  Exchange exchange;
  exchange.at_micros = platform::NowMicros();
  exchange.boot = mode_ == Mode::kBoot;
  exchange.feature = feature;
  exchange.request.assign(bytes.begin(), bytes.end());

  Faults& faults = exchange.boot ? boot_faults_ : faults_;
  faults.BeforeDevice(exchange);
  if (logging_) {
    requests_.push_back(
        {exchange.at_micros, feature, exchange.boot, exchange.write_error, exchange.request});
  }
  if (exchange.write_error != 0) return exchange.write_error;
  if (!exchange.ignored && !leaving_) {
    if (exchange.boot) {
      HandleBootPacket(exchange);
    } else {
      HandleCommand(exchange);
    }
    faults.AfterDevice(exchange);
  }
  if (exchange.unplug) {
    Unplug();
  } else {
    Send(exchange);
  }
  return 0;
}

void Device::HandleCommand(Exchange& exchange) {
  const bool resets = ResetsToBootMode(exchange);
  if (resets && (exchange.feature || exchange.command() != command::kUpdateMode)) {
    if (boot_options().echo_reset) {
      exchange.replies.push_back({firmware_.options().latency_micros, exchange.request});
    }
  } else if (exchange.request.size() == kCommandLength) {
    Frame frame;
    std::copy(exchange.request.begin(), exchange.request.end(), frame.begin());
    const auto answer = firmware_.Handle(frame, exchange.flash_bytes);
    if (!answer) return;
    // A request that comes while an earlier one is still being worked on waits for its turn.
    const uint64_t start = std::max(exchange.at_micros, busy_until_micros_);
    busy_until_micros_ = start + answer->delay_micros;
    exchange.replies.push_back({busy_until_micros_ - exchange.at_micros,
                                Bytes(answer->frame.begin(), answer->frame.end())});
    if (resets && !boot_options().echo_reset) exchange.replies.clear();
  }
  if (resets) {
    ChangeMode(Mode::kBoot, exchange.at_micros + options_.boot.reset_micros,
               options_.boot.appear_micros);
  }
}

bool Device::ResetsToBootMode(const Exchange& exchange) const {
  if (firmware_.asleep()) return false;
  const Bytes& reset = boot_options().reset_command;
  // A report shorter than its declared length has been padded with zeros on its way.
  if (exchange.request.size() >= reset.size() &&
      std::equal(reset.begin(), reset.end(), exchange.request.begin()) &&
      std::all_of(exchange.request.begin() + static_cast<ptrdiff_t>(reset.size()),
                  exchange.request.end(), [](uint8_t byte) { return byte == 0; })) {
    return true;
  }
  return exchange.command() == command::kUpdateMode && IsSealed(exchange.request) &&
         exchange.request[0] == kCommandReportId;
}

void Device::HandleBootPacket(Exchange& exchange) {
  exchange.replies = boot_loader_.OnPacket(exchange.request);
  if (!boot_loader_.Finished()) return;
  if (boot_loader_.Version()) firmware_.options().version = *boot_loader_.Version();
  const uint64_t last_reply_micros = exchange.at_micros + exchange.replies.back().delay_micros;
  ChangeMode(Mode::kNormal, last_reply_micros + options_.boot.leave_micros,
             options_.boot.restart_micros);
}

void Device::Send(const Exchange& exchange) {
  for (const Outgoing& reply : exchange.replies) {
    if (reply.delay_micros == 0) {
      Deliver(reply.report);
    } else {
      At(exchange.at_micros + reply.delay_micros,
         [this, report = reply.report] { Deliver(report); });
    }
  }
}

void Device::Deliver(std::span<const uint8_t> report) {
  if (mode_ == Mode::kNormal || mode_ == Mode::kBoot) {
    platform::Bus().Deliver(interfaces_->input(mode_), report);
  }
}

void Device::Show(Mode mode) {
  ++generation_;
  busy_until_micros_ = 0;
  leaving_ = false;
  if (mode == Mode::kBoot) boot_loader_.Restart();
  for (const auto& hid : interfaces_->Of(mode))
    platform::Bus().Plug(*hid);
  SetMode(mode);
  platform::Bus().BroadcastUsbChange(interfaces_->usb_path(mode), true);
}

void Device::Hide() {
  if (mode_ != Mode::kNormal && mode_ != Mode::kBoot) return;
  const Mode mode = mode_;
  mode_ = Mode::kChanging;
  for (const auto& hid : interfaces_->Of(mode))
    platform::Bus().Unplug(*hid);
  platform::Bus().BroadcastUsbChange(interfaces_->usb_path(mode), false);
}

void Device::ChangeMode(Mode mode, uint64_t hide_at_micros, uint64_t show_after_micros) {
  leaving_ = true;
  At(hide_at_micros, [this, mode, show_after_micros] {
    Hide();
    ++generation_;
    firmware_.PowerOn();
    After(show_after_micros, [this, mode] { Show(mode); });
    SetMode(Mode::kChanging);
  });
}

void Device::SetMode(Mode mode) {
  mode_ = mode;
  if (observer_) observer_(mode);
}

void Device::After(uint64_t delay_micros, std::function<void()> action) {
  At(platform::NowMicros() + delay_micros, std::move(action));
}

void Device::At(uint64_t at_micros, std::function<void()> action) {
  platform::Schedule(at_micros, [this, alive = std::weak_ptr<int>(alive_), generation = generation_,
                                 run = std::move(action)] {
    if (!alive.expired() && generation == generation_) run();
  });
}

}  // namespace perilink::sim
