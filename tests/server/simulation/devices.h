// The virtual devices of the simulation, with all that a host could know of them: what their memory
// held when, and what they have sent to whom.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_DEVICES_H_
#define PERILINK_TESTS_SERVER_SIMULATION_DEVICES_H_

#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "perilink/records.h"
#include "sim/mouse.h"

namespace perilink::testing {

// Counts the requests that devices have heard. Between two of them no memory changes.
using Moment = uint64_t;
Moment& Now();

struct Sent {
  Moment moment;  // at which the device made it
  CommandFrame report;
};

// The reports that wait for the one who reads a handle: one in the posted read, 32 in line.
class Inbox {
 public:
  void Deliver(const Sent& sent);
  void Post();
  // What has completed the posted read; none if the device has gone.
  std::optional<Sent> Take();
  // The device has gone: what is not read yet never will be.
  void Disconnect() { waiting_.clear(); }
  bool Empty() const { return waiting_.empty() && !completed_; }
  // When the oldest of them got its place.
  uint64_t since_micros() const { return since_micros_; }

 private:
  static constexpr size_t kLine = 32;

  std::deque<Sent> waiting_;
  std::optional<Sent> completed_;
  bool posted_ = false;
  uint64_t since_micros_ = 0;
};

class Device {
 public:
  Device(size_t index, std::mt19937_64& random);

  sim::Mouse mouse;

  // Watches the requests; to be called after faults were drawn, so that it sees what becomes of
  // them.
  void Watch();
  void SendEvent(uint8_t flags);
  void Connect(Inbox& inbox) { inboxes_.push_back(&inbox); }
  void Disconnect(Inbox& inbox) { std::erase(inboxes_, &inbox); }

  const std::wstring& path() const { return path_; }
  bool present() const { return mouse.mode() == sim::Mode::kNormal; }
  // When its command interface went, while it is not there.
  uint64_t gone_micros() const { return gone_micros_; }

  // Whether it held the byte there, then or since.
  bool Held(Moment since, size_t address, uint8_t byte);
  // What it held when it had carried out the request of that moment.
  uint8_t At(Moment moment, size_t address);
  bool Unchanged(Moment since, size_t address, size_t length);

  // How often a device has come or gone so far.
  static uint64_t& Changes();

 private:
  struct Change {
    Moment moment;
    size_t address;
    uint8_t before;
  };

  void OnRequest(sim::Exchange& exchange);
  void OnReply(sim::Exchange& exchange);
  void Deliver(std::span<const uint8_t> report, Moment moment);
  void Settle();

  const std::wstring path_ = mouse.CommandPath();
  std::vector<Inbox*> inboxes_;
  uint64_t generation_ = 0;
  uint64_t gone_micros_ = 0;
  bool shown_ = false;           // on the bus, in whatever mode
  std::vector<Change> changes_;  // oldest first
  // Of the request under way: where it may change the memory, and what was there.
  Moment touched_when_ = 0;
  size_t touched_at_ = 0;
  std::vector<uint8_t> touched_;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_DEVICES_H_
