#include "sim/faults.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <random>
#include <utility>

namespace perilink::sim {
namespace {

constexpr size_t kDataInCommand = 6;  // first data byte of a command report
constexpr size_t kDataInPacket = 17;  // first payload byte of a boot packet

void InvertData(const Exchange& exchange, Bytes& report) {
  const size_t at = exchange.boot ? kDataInPacket : kDataInCommand;
  if (at < report.size()) report[at] = static_cast<uint8_t>(~report[at]);
  if (!exchange.boot) Seal(report);
}

void ChangeCommand(const Exchange& exchange, Bytes& report) {
  if (report.size() > 1) report[1] = static_cast<uint8_t>(report[1] ^ 0x40);
  if (!exchange.boot) Seal(report);
}

void InsertBefore(Exchange& exchange, std::span<const uint8_t> report) {
  const uint64_t delay = exchange.replies.empty() ? 0 : exchange.replies.front().delay_micros;
  exchange.replies.insert(exchange.replies.begin(),
                          Outgoing{delay, Bytes(report.begin(), report.end())});
}

void DuplicateAll(Exchange& exchange) {
  const std::vector<Outgoing> once = exchange.replies;
  exchange.replies.insert(exchange.replies.end(), once.begin(), once.end());
}

bool IsEcho(const Exchange& exchange) {
  return exchange.command() == (exchange.boot ? boot::kData : command::kWriteMemory);
}

// The dice of one Random set, shared by its request and its reply rule.
class Dice {
 public:
  Dice(uint64_t seed, const Probabilities& probabilities)
      : random_(seed), probabilities_(probabilities) {}

  void OnRequest(Exchange& exchange) {
    if (Falls(probabilities_.fail_write)) exchange.write_error = 31 /* ERROR_GEN_FAILURE */;
  }

  void OnReply(Exchange& exchange) {
    if (Falls(probabilities_.drop)) return exchange.replies.clear();
    for (Outgoing& reply : exchange.replies) {
      if (Falls(probabilities_.corrupt) && !reply.report.empty()) {
        // One bit of any byte: a checksum over the report always notices.
        uint8_t& byte = reply.report[random_() % reply.report.size()];
        byte = static_cast<uint8_t>(byte ^ (1u << (random_() % 8)));
      }
      if (Falls(probabilities_.wrong_command)) ChangeCommand(exchange, reply.report);
      if (Falls(probabilities_.delay)) {
        reply.delay_micros += random_() % (probabilities_.max_delay_micros + 1);
      }
    }
    if (Falls(probabilities_.duplicate)) DuplicateAll(exchange);
    if (!exchange.boot && Falls(probabilities_.stray_event)) {
      InsertBefore(exchange, MakeEvent(static_cast<uint8_t>(random_() % kBatteryFlag)));
    }
  }

 private:
  // The generator's own numbers rather than a library's distribution, whose results may differ
  // from one library to the next.
  bool Falls(double probability) {
    const double drawn = static_cast<double>(random_() >> 11) / 9007199254740992.0;
    if (drawn >= probability || faults_ >= probabilities_.limit) return false;
    ++faults_;
    return true;
  }

  std::mt19937_64 random_;
  Probabilities probabilities_;
  uint64_t faults_ = 0;
};

}  // namespace

Faults& Faults::FailWrite(When when, uint32_t error) {
  return Add(Occasion::kRequest, when, [error](Exchange& e) { e.write_error = error; });
}

Faults& Faults::Ignore(When when) {
  return Add(Occasion::kRequest, when, [](Exchange& e) { e.ignored = true; });
}

Faults& Faults::Silence() {
  return Ignore(Always());
}

Faults& Faults::UnplugAfter(When when) {
  return Add(Occasion::kRequest, when, [](Exchange& e) { e.unplug = true; });
}

Faults& Faults::LosePower(When when, PowerLoss kind) {
  return Add(Occasion::kFlashWrite, when, [kind](Exchange& e) {
    const size_t length = e.request.size() > 5 ? e.request[5] & 0x7Fu : 0u;
    e.flash_bytes = kind == PowerLoss::kBeforeWrite ? 0 : length / 2;
    e.unplug = true;
  });
}

Faults& Faults::Drop(When when) {
  return Add(Occasion::kReply, when, [](Exchange& e) { e.replies.clear(); });
}

Faults& Faults::CorruptChecksum(When when) {
  return Add(Occasion::kReply, when, [](Exchange& e) {
    for (Outgoing& reply : e.replies) {
      if (!reply.report.empty()) reply.report.back() = static_cast<uint8_t>(~reply.report.back());
    }
  });
}

Faults& Faults::CorruptData(When when) {
  return Add(Occasion::kReply, when, [](Exchange& e) {
    for (Outgoing& reply : e.replies)
      InvertData(e, reply.report);
  });
}

Faults& Faults::WrongCommand(When when) {
  return Add(Occasion::kReply, when, [](Exchange& e) {
    for (Outgoing& reply : e.replies)
      ChangeCommand(e, reply.report);
  });
}

Faults& Faults::AnswerAfter(When when, uint64_t micros) {
  return Add(Occasion::kReply, when, [micros](Exchange& e) {
    for (Outgoing& reply : e.replies)
      reply.delay_micros = micros;
  });
}

Faults& Faults::StrayEventBefore(When when, uint8_t flags) {
  return StrayReportBefore(when, MakeEvent(flags));
}

Faults& Faults::StrayReportBefore(When when, std::span<const uint8_t> report) {
  return Add(Occasion::kReply, when, [stray = Bytes(report.begin(), report.end())](Exchange& e) {
    InsertBefore(e, stray);
  });
}

Faults& Faults::Duplicate(When when) {
  return Add(Occasion::kReply, when, DuplicateAll);
}

Faults& Faults::Truncate(When when, uint8_t length) {
  return Add(Occasion::kReply, when, [length](Exchange& e) {
    for (Outgoing& reply : e.replies) {
      if (e.boot || reply.report.size() != Frame{}.size()) continue;
      const auto cut = std::min<uint8_t>(length, reply.report[5] & 0x7F);
      reply.report[5] = static_cast<uint8_t>((reply.report[5] & kKeyboardBit) | cut);
      for (size_t i = kDataInCommand + cut; i + 1 < reply.report.size(); ++i)
        reply.report[i] = 0;
      Seal(reply.report);
    }
  });
}

Faults& Faults::EchoDiffers(When when) {
  return Add(Occasion::kEcho, when, [](Exchange& e) {
    for (Outgoing& reply : e.replies) {
      if (reply.report.size() > 1 && reply.report[1] == e.command()) InvertData(e, reply.report);
    }
  });
}

Faults& Faults::FailOpen(When when, uint32_t error) {
  return Add(Occasion::kOpen, when, [error](Exchange& e) { e.write_error = error; });
}

Faults& Faults::OnRequest(Filter filter, When when) {
  return Add(Occasion::kRequest, when, std::move(filter));
}

Faults& Faults::OnReply(Filter filter, When when) {
  return Add(Occasion::kReply, when, std::move(filter));
}

Faults& Faults::Random(uint64_t seed, const Probabilities& probabilities) {
  const auto dice = std::make_shared<Dice>(seed, probabilities);
  OnRequest([dice](Exchange& e) { dice->OnRequest(e); });
  return OnReply([dice](Exchange& e) { dice->OnReply(e); });
}

void Faults::Heal() {
  const std::lock_guard guard(world_);
  rules_.clear();
}

Faults& Faults::Add(Occasion occasion, When when, Filter action) {
  const std::lock_guard guard(world_);
  rules_.push_back({occasion, when, std::move(action)});
  return *this;
}

void Faults::Apply(Occasion occasion, Exchange& exchange) {
  // A filter may add faults or heal the set: the actions run from a list of their own.
  std::vector<Filter> due;
  for (Rule& rule : rules_) {
    if (rule.occasion != occasion) continue;
    if (rule.when.command && *rule.when.command != exchange.command()) continue;
    ++rule.seen;
    if (rule.seen >= rule.when.first && rule.seen - rule.when.first < rule.when.count) {
      due.push_back(rule.action);
    }
  }
  for (const Filter& action : due)
    action(exchange);
}

void Faults::BeforeDevice(Exchange& exchange) {
  Apply(Occasion::kRequest, exchange);
  const bool arrives = exchange.write_error == 0 && !exchange.ignored;
  if (arrives && !exchange.boot && exchange.command() == command::kWriteMemory) {
    Apply(Occasion::kFlashWrite, exchange);
  }
}

void Faults::AfterDevice(Exchange& exchange) {
  if (exchange.replies.empty()) return;
  if (IsEcho(exchange)) Apply(Occasion::kEcho, exchange);
  Apply(Occasion::kReply, exchange);
}

uint32_t Faults::OnOpen() {
  Exchange exchange;
  Apply(Occasion::kOpen, exchange);
  return exchange.write_error;
}

}  // namespace perilink::sim
