// The model that the seeded simulation holds the server against: which requests are queued, which
// may be written, which are answered or dropped, and how the battery's level may move.
//
// In the virtual world one thread runs at a time and no export gives up its turn, so the model
// follows each call exactly.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_H_
#define PERILINK_TESTS_SERVER_SIMULATION_H_

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <vector>

#include "perilink_platform/world.h"
#include "server/state.h"
#include "transport/frame.h"

namespace perilink::testing {

// Tells what is wrong and ends the process.
[[noreturn]] void Broken(const char* what);

class Model {
 public:
  explicit Model(uint64_t least_spacing_ms) : least_spacing_ms_(least_spacing_ms) {}

  // Holds the queue against the model. It may have lost frames of the head that have been answered,
  // a battery request that the optimiser answers, or everything after five unanswered writes.
  void Check() {
    const ServerState::Queues queues = ServerState::Instance().LockQueues();
    const size_t queued = queues.commands.Size();
    if (queued == 0 && !requests_.empty()) {
      const bool answered = requests_.size() == 1 && IsBattery(requests_[0]);
      if (writes_of_frame_ < kWritesBeforeADrop && !answered) Broken("requests vanished");
      if (writes_of_frame_ >= kWritesBeforeADrop && !queues.replies.Empty())
        Broken("half an answer outlived a drop");
      requests_.clear();
    }
    size_t frames = 0;
    for (const Request& request : requests_)
      frames += request.frames;
    if (queued > frames) Broken("the queue holds what nobody queued");
    size_t gone = frames - queued;
    if (gone > 0 && gone == requests_[0].frames && IsBattery(requests_[0])) {
      requests_.pop_front();
      gone = 0;
    }
    if (gone > 0 && gone >= requests_[0].frames) Broken("an answer was not reported");
    size_t at = 0;
    for (const Request& request : requests_)
      for (size_t i = &request == &requests_[0] ? gone : 0; i < request.frames; ++i)
        if (!Matches(request, queues.commands.At(at++).frame)) Broken("the queue is out of order");
  }

  // The host queues one request through `queue`: `frames` entries, each with the command.
  void Queue(uint8_t command, uint32_t serial, size_t frames, const std::function<void()>& queue) {
    Check();
    requests_.push_back({command, serial, frames});
    queue();
    Check();
  }

  // The host calls a start export, which drops everything.
  void Start(const std::function<void()>& start) {
    Check();
    requests_.clear();
    start();
    Check();
  }

  // The host asks the server to exit: the next reading may start a new connection at any level.
  void OnExit() { last_level_ = -1; }

  // The device saw a write of the server's, and whether it succeeded. Under the server's lock, so
  // the queue itself can't be looked at.
  void OnWrite(const std::vector<uint8_t>& report, bool succeeded) {
    const CommandFrame frame = FrameOf(report.data());
    const bool poll = (frame.command == PERILINK_COMMAND_ON_LINE ||
                       frame.command == PERILINK_COMMAND_BATTERY_LEVEL) &&
                      SerialOf(frame) == 0;
    if (poll) return;  // the optimiser's own, on handles of its own
    if (frame.checksum != FrameChecksum(frame)) Broken("a frame without its checksum");
    const uint64_t now_ms = platform::NowMicros() / 1000;
    if (now_ms - last_write_ms_ < least_spacing_ms_) Broken("writes too close to each other");
    last_write_ms_ = now_ms;
    // The head's frames only. A battery request before it may have been answered unseen.
    const auto head = std::find_if_not(requests_.begin(), requests_.end(), IsBattery);
    const auto end = head == requests_.end() ? head : head + 1;
    if (std::none_of(requests_.begin(), end, [&](const Request& r) { return Matches(r, frame); }))
      Broken("a frame was written out of turn");
    if (report != last_written_) writes_of_frame_ = 0;
    last_written_ = report;
    if (succeeded) ++writes_of_frame_;
  }

  // The host's callback.
  void OnCallback(const uint8_t* bytes, const uint8_t* data, uint32_t length) {
    const CommandFrame frame = FrameOf(bytes);
    if (frame.command == PERILINK_COMMAND_EVENT) {
      if (length != 10) Broken("an event of another length");
    } else if (frame.command == PERILINK_COMMAND_BATTERY_LEVEL && SerialOf(frame) == 0) {
      if (length != 4 || frame.checksum != 0x49) Broken("a level report of another form");
      OnLevel(data[0]);
    } else {
      // A battery request before it may have been answered by the optimiser.
      while (!requests_.empty() && IsBattery(requests_[0]) && !Matches(requests_[0], frame))
        requests_.pop_front();
      if (requests_.empty() || !Matches(requests_[0], frame)) Broken("an answer nobody waits for");
      if (answers_are_exact && frame.command != PERILINK_COMMAND_READ_MEMORY && length == 4 &&
          frame.command != PERILINK_COMMAND_ON_LINE &&
          frame.command != PERILINK_COMMAND_BATTERY_LEVEL && std::memcmp(data, frame.data, 4) != 0)
        Broken("another request's data");
      requests_.pop_front();
    }
    Check();
  }

  bool AllAnswered() const { return requests_.empty(); }

  // Data are looked at only while no answer can be mistaken for another's.
  bool answers_are_exact = false;

 private:
  static constexpr size_t kWritesBeforeADrop = 5;

  struct Request {
    uint8_t command;
    uint32_t serial;  // in the frames' data; for a memory read its address
    size_t frames;
  };

  static CommandFrame FrameOf(const uint8_t* bytes) {
    CommandFrame frame;
    std::memcpy(&frame, bytes, sizeof(frame));
    return frame;
  }
  static uint32_t SerialOf(const CommandFrame& frame) {
    uint32_t serial = 0;
    std::memcpy(&serial, frame.data, sizeof(serial));
    return serial;
  }
  static bool IsBattery(const Request& request) {
    return request.command == PERILINK_COMMAND_BATTERY_LEVEL;
  }
  static bool Matches(const Request& request, const CommandFrame& frame) {
    if (frame.command != request.command) return false;
    if (request.command != PERILINK_COMMAND_READ_MEMORY) return SerialOf(frame) == request.serial;
    const uint32_t address = static_cast<uint32_t>(frame.address_high << 8 | frame.address_low);
    return address >= request.serial && address < request.serial + 10 * request.frames;
  }

  void OnLevel(uint8_t level) {
    if (level > 100) Broken("a level above 100 percent");
    const bool forced = level == 0 || level == 15 || level == 100;
    // 0 is also what a battery request is answered with before the first reading of all.
    if (last_level_ > 0 && !forced && std::abs(level - last_level_) > 1) Broken("the level jumped");
    last_level_ = level;
  }

  const uint64_t least_spacing_ms_;
  std::deque<Request> requests_;
  std::vector<uint8_t> last_written_;
  uint64_t last_write_ms_ = 0;
  size_t writes_of_frame_ = 0;
  int last_level_ = -1;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_H_
