#include "sim/device.h"

#include <algorithm>
#include <utility>

#include "device_shapes.h"

namespace perilink::sim {
namespace {

constexpr size_t kCommandLength = std::tuple_size_v<Frame>;

// Windows' names for why a write fails.
constexpr uint32_t kInvalidFunction = 1;
constexpr uint32_t kDeviceNotConnected = 1167;

}  // namespace

Device::Device(DeviceOptions options, World& world, std::unique_ptr<Port> port)
    : options_(std::move(options)),
      world_(world),
      battery_(options_.battery, world),
      firmware_(options_.firmware, options_.flash, battery_),
      boot_loader_(options_.boot),
      faults_(world),
      boot_faults_(world),
      normal_shape_(NormalShape(options_)),
      boot_shape_(BootShape(options_, boot_options())),
      port_(std::move(port)) {
  firmware_.set_asleep(options_.asleep);
}

Device::~Device() {
  const auto guard = Lock();
  observer_ = nullptr;
  Unplug();
  alive_.reset();
}

void Device::Plug() {
  const auto guard = Lock();
  if (mode_ != Mode::kUnplugged) return;
  Show(boot_loader_.FirmwareErased() ? Mode::kBoot : Mode::kNormal);
}

void Device::PlugInBootMode() {
  const auto guard = Lock();
  if (mode_ == Mode::kUnplugged) Show(Mode::kBoot);
}

void Device::Unplug() {
  const auto guard = Lock();
  Hide();
  ++generation_;
  leaving_ = false;
  firmware_.PowerOn();
  if (mode_ != Mode::kUnplugged) SetMode(Mode::kUnplugged);
}

void Device::ReplugAfter(uint64_t delay_micros) {
  const auto guard = Lock();
  Unplug();
  After(delay_micros, [this] { Plug(); });
}

Mode Device::mode() const {
  const auto guard = Lock();
  return mode_;
}

void Device::OnModeChange(std::function<void(Mode)> observer) {
  const auto guard = Lock();
  observer_ = std::move(observer);
}

void Device::SetAsleep(bool asleep) {
  const auto guard = Lock();
  firmware_.set_asleep(asleep);
}

void Device::SendEvent(uint8_t flags) {
  SendReport(MakeEvent(flags));
}

void Device::SendReport(std::span<const uint8_t> report) {
  const auto guard = Lock();
  if (mode_ == Mode::kNormal && !firmware_.asleep()) Deliver(report);
}

void Device::SetCharging(bool charging) {
  const auto guard = Lock();
  battery_.SetCharging(charging);
  SendEvent(kBatteryFlag);
}

std::vector<Request> Device::Requests() const {
  const auto guard = Lock();
  return requests_;
}

size_t Device::CountRequests(uint8_t command) const {
  const auto guard = Lock();
  return static_cast<size_t>(
      std::count_if(requests_.begin(), requests_.end(),
                    [command](const Request& request) { return request.command() == command; }));
}

void Device::ClearRequests() {
  const auto guard = Lock();
  requests_.clear();
}

void Device::SetLogging(bool logging) {
  const auto guard = Lock();
  logging_ = logging;
}

size_t Device::Opens() const {
  const auto guard = Lock();
  return opens_;
}

size_t Device::OpenNow() const {
  const auto guard = Lock();
  return opens_ - closes_;
}

uint32_t Device::OnOutputReport(size_t interface_number, std::span<const uint8_t> report) {
  return OnReport(interface_number, report, false);
}

uint32_t Device::OnFeatureReport(size_t interface_number, std::span<const uint8_t> report) {
  return OnReport(interface_number, report, true);
}

uint32_t Device::OnOpen() {
  const auto guard = Lock();
  const uint32_t error = (mode_ == Mode::kBoot ? boot_faults_ : faults_).OnOpen();
  if (error == 0) ++opens_;
  return error;
}

void Device::OnClose() {
  const auto guard = Lock();
  ++closes_;
}

uint32_t Device::OnReport(size_t interface_number, std::span<const uint8_t> bytes, bool feature) {
  const auto guard = Lock();
  if (!IsAttached()) return kDeviceNotConnected;
  if (interface_number != shape(mode_).output.interface_number) return kInvalidFunction;
  Exchange exchange;
  exchange.at_micros = world_.NowMicros();
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
    const auto answer = firmware_.Handle(frame, exchange.at_micros, exchange.flash_bytes);
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
  if (IsAttached()) port_->SendInput(shape(mode_).input, report);
}

void Device::Show(Mode mode) {
  ++generation_;
  busy_until_micros_ = 0;
  leaving_ = false;
  if (mode == Mode::kBoot) boot_loader_.Restart();
  mode_ = mode;
  port_->Attach(*this, shape(mode));
  if (observer_) observer_(mode);
}

void Device::Hide() {
  if (!IsAttached()) return;
  mode_ = Mode::kChanging;
  port_->Detach();
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
  At(world_.NowMicros() + delay_micros, std::move(action));
}

void Device::At(uint64_t at_micros, std::function<void()> action) {
  world_.Schedule(at_micros, [this, alive = std::weak_ptr<int>(alive_), generation = generation_,
                              run = std::move(action)] {
    if (!alive.expired() && generation == generation_) run();
  });
}

}  // namespace perilink::sim
