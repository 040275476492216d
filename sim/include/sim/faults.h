// Faults of a virtual device: scripted, drawn from a seed, or free-form.
//
// A fault is an action and the occasions on which it happens, counted from the moment at which it
// was added: `faults.Drop(Next(2))` loses the next two replies, `faults.CorruptChecksum(At(3))`
// spoils the third reply from now, `faults.AnswerAfter(Always().For(0x04), 140'000)` delays every
// battery answer. Faults add up: each counts its own occasions, and those that meet in one exchange
// act one after another, in the order in which they were added.
//
// A device has two sets, one for its normal firmware and one for its boot loader. What the calls
// name a command is the report's second byte in both.
#ifndef PERILINK_SIM_FAULTS_H_
#define PERILINK_SIM_FAULTS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "sim/report.h"
#include "sim/world.h"

namespace perilink::sim {

// A report on its way to the host.
struct Outgoing {
  uint64_t delay_micros = 0;  // after the request
  Bytes report;
};

// One request of the host and what the device makes of it. Request filters see it before the
// device does, reply filters after.
struct Exchange {
  uint64_t at_micros = 0;
  bool boot = false;     // in boot mode
  bool feature = false;  // sent as a feature report
  Bytes request;

  // For request filters.
  uint32_t write_error = 0;           // the host's write fails with this Windows error code
  bool ignored = false;               // the device does not hear the request
  bool unplug = false;                // the device goes when the exchange is over
  std::optional<size_t> flash_bytes;  // power fails: so many bytes of this flash write arrive

  // For reply filters.
  std::vector<Outgoing> replies;

  uint8_t command() const { return request.size() > 1 ? request[1] : uint8_t{0}; }
};

// Which occasions a fault picks; occasions are counted from 1.
struct When {
  uint64_t first = 1;
  uint64_t count = 1;
  std::optional<uint8_t> command;  // only exchanges of this command are occasions

  When For(uint8_t wanted) const { return {first, count, wanted}; }
};
inline When Next(uint64_t count = 1) {
  return {1, count, {}};
}
inline When At(uint64_t occasion) {
  return {occasion, 1, {}};
}
inline When From(uint64_t occasion) {
  return {occasion, std::numeric_limits<uint64_t>::max(), {}};
}
inline When Always() {
  return From(1);
}

enum class PowerLoss {
  kBeforeWrite,  // nothing of the flash write is stored
  kDuringWrite,  // its first half is
};

// Chances of each fault, per request (fail_write) or per reply (the others), from 0 to 1.
struct Probabilities {
  double fail_write = 0;
  double drop = 0;
  double corrupt = 0;
  double wrong_command = 0;
  double delay = 0;
  double stray_event = 0;
  double duplicate = 0;
  uint64_t max_delay_micros = 150'000;
  // After so many faults there are no more: the run heals.
  uint64_t limit = std::numeric_limits<uint64_t>::max();
};

// All functions lock the world and may be called from any thread. Each returns the set.
class Faults {
 public:
  using Filter = std::function<void(Exchange&)>;

  explicit Faults(World& world) : world_(world) {}

  // Occasions: requests.
  Faults& FailWrite(When when, uint32_t error = 31 /* ERROR_GEN_FAILURE */);
  // The host's write does not come back until the device is unplugged. Where a bus can't hold a
  // write, it fails.
  Faults& HoldWrite(When when) { return FailWrite(when, 997 /* ERROR_IO_PENDING */); }
  Faults& Ignore(When when);
  Faults& Silence();  // ignores every request from now on
  // The device handles the request, and is gone before its reply.
  Faults& UnplugAfter(When when);

  // Occasions: flash writes (command 0x07). The device stores what the kind says, does not answer
  // and is unplugged; plugged in again, it runs with the flash as the loss left it.
  Faults& LosePower(When when, PowerLoss kind);

  // Occasions: exchanges in which the device replies.
  Faults& Drop(When when);
  Faults& CorruptChecksum(When when);  // the last byte is inverted
  Faults& CorruptData(When when);      // a data byte is inverted; the checksum is right
  Faults& WrongCommand(When when);     // another command byte; the checksum is right
  Faults& AnswerAfter(When when, uint64_t micros);
  Faults& StrayEventBefore(When when, uint8_t flags = 0x01);
  Faults& StrayReportBefore(When when, std::span<const uint8_t> report);
  Faults& Duplicate(When when);
  // The reply declares and carries only the first `length` data bytes; the rest is 0.
  Faults& Truncate(When when, uint8_t length);

  // Occasions: echoes of flash writes (0x07) and of boot packets (0xB1). The echo differs from the
  // request in one data byte; its checksum is right.
  Faults& EchoDiffers(When when);

  // Occasions: opens of the device's interfaces.
  Faults& FailOpen(When when, uint32_t error = 5 /* ERROR_ACCESS_DENIED */);

  // Anything else. They see every request, and every exchange in which the device replies.
  Faults& OnRequest(Filter filter, When when = Always());
  Faults& OnReply(Filter filter, When when = Always());

  // Adds faults drawn from the seed: the same seed and the same exchanges repeat them exactly.
  Faults& Random(uint64_t seed, const Probabilities& probabilities);

  // Ends every fault.
  void Heal();

 private:
  friend class Device;
  enum class Occasion { kRequest, kFlashWrite, kReply, kEcho, kOpen };
  struct Rule {
    Occasion occasion;
    When when;
    Filter action;
    uint64_t seen = 0;
  };

  Faults& Add(Occasion occasion, When when, Filter action);
  void Apply(Occasion occasion, Exchange& exchange);
  void BeforeDevice(Exchange& exchange);
  void AfterDevice(Exchange& exchange);
  uint32_t OnOpen();

  World& world_;
  std::vector<Rule> rules_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_FAULTS_H_
