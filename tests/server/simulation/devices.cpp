#include "devices.h"

#include <algorithm>
#include <cstring>

#include "note.h"
#include "perilink_platform/world.h"
#include "transport/frame.h"

namespace perilink::testing {

Moment& Now() {
  static Moment now = 0;
  return now;
}

// ---- Reports that wait ------------------------------------------------------------------------

void Inbox::Deliver(const Sent& sent) {
  if (Empty()) since_micros_ = platform::NowMicros();
  if (posted_ && !completed_) {
    completed_ = sent;
    return;
  }
  if (waiting_.size() == kLine) waiting_.pop_front();
  waiting_.push_back(sent);
}

void Inbox::Post() {
  posted_ = true;
  completed_.reset();
  if (waiting_.empty()) return;
  completed_ = waiting_.front();
  waiting_.pop_front();
}

std::optional<Sent> Inbox::Take() {
  posted_ = false;
  since_micros_ = platform::NowMicros();
  return std::exchange(completed_, std::nullopt);
}

// ---- Devices ----------------------------------------------------------------------------------

namespace {

sim::DeviceOptions Options(size_t index, std::mt19937_64& random) {
  const auto draw = [&random](uint32_t bound) { return static_cast<uint8_t>(random() % bound); };
  sim::DeviceOptions options = sim::Mouse::Options();
  options.instance = index == 0 ? "1a2b3c4d" : "5e6f7a8b";
  options.product_id = static_cast<uint16_t>(options.product_id + index);
  options.boot.product_id = static_cast<uint16_t>(options.boot.product_id + index);
  // Whose an address is shows in its battery record, whose a byte in its value.
  options.firmware.address[2] = static_cast<uint8_t>(index);
  options.firmware.latency_micros = 200 + random() % 3000;
  options.firmware.clear_micros = 1000u << draw(13);
  for (const sim::FlashField& field : sim::FlashFields()) {
    uint8_t value[8];
    for (uint8_t& byte : value)
      byte = static_cast<uint8_t>(2 * draw(100) + index);
    if (draw(2) == 0) options.flash.SetField(field.address, std::span(value).first(field.width));
    if (draw(20) == 0) options.flash.BreakField(field.address, field.width);
  }
  sim::SlotEvent events[10];
  for (sim::SlotEvent& event : events)
    event = {draw(3), draw(16), draw(255), static_cast<uint8_t>(index), draw(200)};
  for (uint8_t slots = draw(4); slots > 0; --slots)
    options.flash.SetShortcut(draw(16), std::span(events).first(draw(8)));
  for (uint8_t slots = draw(3); slots > 0; --slots)
    options.flash.SetMacro(draw(16), std::string(draw(12), 'm'), std::span(events).first(draw(10)));
  // A slot that is torn, or says what no slot holds.
  for (uint8_t slots = draw(4); slots > 0; --slots) {
    options.flash.bytes()[sim::ShortcutAddress(draw(16)) + draw(12)] ^= 0x10;
    options.flash.bytes()[sim::MacroAddress(draw(16)) + size_t{31} * draw(2)] = draw(80);
  }
  return options;
}

}  // namespace

Device::Device(size_t index, std::mt19937_64& random) : mouse(Options(index, random)) {
  mouse.SetLogging(false);
  mouse.OnModeChange([this](sim::Mode mode) {
    Note("mode", static_cast<uint64_t>(mode));
    ++generation_;
    const bool shown = mode == sim::Mode::kNormal || mode == sim::Mode::kBoot;
    if (std::exchange(shown_, shown) != shown) ++Changes();
    if (mode == sim::Mode::kNormal) gone_micros_ = 0;
    if (mode != sim::Mode::kNormal && gone_micros_ == 0) gone_micros_ = platform::NowMicros();
    for (Inbox* inbox : std::exchange(inboxes_, {}))
      inbox->Disconnect();
  });
  Watch();
}

uint64_t& Device::Changes() {
  static uint64_t changes = 0;
  return changes;
}

void Device::Watch() {
  mouse.faults().OnRequest([this](sim::Exchange& exchange) { OnRequest(exchange); });
  mouse.faults().OnReply([this](sim::Exchange& exchange) { OnReply(exchange); });
}

void Device::OnRequest(sim::Exchange& exchange) {
  Settle();
  touched_when_ = ++Now();
  const auto flash = mouse.flash().bytes();
  const sim::Bytes& request = exchange.request;
  if (request[1] == PERILINK_COMMAND_WRITE_MEMORY) {
    touched_at_ = std::min<size_t>(request[3] * 256u + request[4], sim::kFlashSize - 10);
    touched_.assign(&flash[touched_at_], &flash[touched_at_] + 10);
  } else if (request[1] == PERILINK_COMMAND_CLEAR_SETTING) {
    touched_at_ = 0;
    touched_.assign(flash.begin(), flash.end());
  }
}

void Device::Settle() {
  for (size_t i = 0; i < touched_.size(); ++i) {
    if (touched_[i] != mouse.flash()[touched_at_ + i])
      changes_.push_back({touched_when_, touched_at_ + i, touched_[i]});
  }
  touched_.clear();
}

bool Device::Held(Moment since, size_t address, uint8_t byte) {
  Settle();
  return mouse.flash()[address] == byte ||
         std::any_of(changes_.begin(), changes_.end(), [&](const Change& change) {
           return change.moment > since && change.address == address && change.before == byte;
         });
}

uint8_t Device::At(Moment moment, size_t address) {
  Settle();
  for (const Change& change : changes_)
    if (change.moment > moment && change.address == address) return change.before;
  return mouse.flash()[address];
}

bool Device::Unchanged(Moment since, size_t address, size_t length) {
  Settle();
  return std::none_of(changes_.begin(), changes_.end(), [&](const Change& change) {
    return change.moment > since && change.address - address < length;
  });
}

// The events of this instant run in their order: it is noted right before the device sends it.
void Device::OnReply(sim::Exchange& exchange) {
  for (const sim::Outgoing& reply : exchange.replies)
    platform::Schedule(exchange.at_micros + reply.delay_micros,
                       [this, report = reply.report, now = Now(), generation = generation_] {
                         if (generation == generation_) Deliver(report, now);
                       });
}

void Device::SendEvent(uint8_t flags) {
  if (!present() || mouse.firmware().asleep()) return;
  Deliver(sim::MakeEvent(flags), Now());
  mouse.SendEvent(flags);
}

void Device::Deliver(std::span<const uint8_t> report, Moment moment) {
  Sent sent{.moment = moment, .report = {}};
  std::ranges::copy(report, FrameBytes(sent.report).begin());
  for (Inbox* inbox : inboxes_)
    inbox->Deliver(sent);
}

}  // namespace perilink::testing
