// The server, once more: which requests are queued, which frame may be written when, what a report
// means, and what its host must hear.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_SERVER_MODEL_H_
#define PERILINK_TESTS_SERVER_SIMULATION_SERVER_MODEL_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "battery_model.h"
#include "config_model.h"
#include "devices.h"
#include "perilink/records.h"
#include "server/state.h"

namespace perilink::testing {

// The calls of start exports, counted from 1: what belongs to a connection says which.
using StartNumber = uint32_t;

class ServerModel {
 public:
  ServerModel(BatteryModel& battery, ConfigModel& config) : battery_(battery), config_(config) {}

  // ---- Hosts ---------------------------------------------------------------------------------

  // Does what queues these frames, and holds the queue against them. Without any it queues writes
  // of an update. What is queued is given back: nothing if it may fail, and does.
  std::vector<CommandFrame> Queue(std::span<const CommandFrame> frames, uint8_t tag,
                                  const std::function<void()>& queue, bool may_fail = false);
  void OnStart(StartNumber start, Device& device);
  StartNumber start() const { return start_; }

  // ---- The server's thread -------------------------------------------------------------------

  // It has opened the device of this start.
  void OnConnected(StartNumber start);
  void OnWritten(const CommandFrame& frame, bool written);
  void OnReport(const Sent& sent);
  void OnCallback(StartNumber start, const CommandFrame& frame, std::span<const uint8_t> data);
  // Between two of its steps: what was to be reported is reported, and the queue is the model's. An
  // allocation that has failed in the step may have undone it.
  void Check(bool allocation_failed);

  // From when on the head is to be written; none if there is nothing to write.
  std::optional<uint64_t> ready_micros() const;
  // How long the answer that is awaited may take.
  uint64_t patience_micros() const;
  bool AtRest() const { return queue_.frames.empty(); }

 private:
  struct Frame {
    CommandFrame frame;
    bool last = true;
    uint8_t tag = 0;
    Moment queued = 0;
    std::shared_ptr<FullRead> read;
  };
  struct Answered {
    Frame asked;
    Sent answer;
    bool unproven;
  };
  struct Queued {
    std::deque<Frame> frames;
    std::vector<Answered> answered;  // of the request at the head
    bool awaited = false;            // the head is written
  };
  struct Expected {
    CommandFrame frame;
    std::vector<uint8_t> data;
  };

  void OnEvent(const CommandFrame& report);
  void OnAnswer(const Sent& sent);
  void LookForTimeout();
  bool IsEcho(const Sent& sent);
  void LookForEcho(uint16_t answer);
  // None: it isn't the head's answer. Otherwise whether it may be another read's.
  std::optional<bool> JudgeRead(const Sent& sent);
  void CompleteRequest();
  void OnImage(std::span<const uint8_t> data);
  void TakeSteps(ServerState::Queues& queues);
  void CheckQueue() const;
  void Rearm();

  BatteryModel& battery_;
  ConfigModel& config_;

  StartNumber start_ = 0;      // the latest
  StartNumber connected_ = 0;  // what the server's handles are of
  Device* device_ = nullptr;

  Queued queue_;
  Queued before_report_;
  uint64_t ready_micros_ = 0;
  uint64_t due_micros_ = 0;  // of the answer
  uint64_t written_micros_ = 0;
  int unanswered_ = 0;

  // The addresses of the last two reads, and whether the device has been seen to echo them.
  uint16_t asked_ = 0;
  uint16_t asked_before_ = 0;
  bool echoes_ = false;
  int shorts_ = 0;  // answers of too few bytes
  bool answers_short_ = false;

  std::shared_ptr<FullRead> step_;  // a full read that goes on in it, or ends
  std::deque<Expected> expected_;
  bool has_report_ = false;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_SERVER_MODEL_H_
