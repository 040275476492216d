// The model that the seeded simulation holds the server against: which requests are queued, which
// may be written, which are answered or dropped, and how the battery's level may move.
//
// In the virtual world one thread runs at a time and no export gives up its turn, so the model
// follows each call exactly.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_H_
#define PERILINK_TESTS_SERVER_SIMULATION_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "perilink/records.h"

namespace perilink::testing {

// Tells what is wrong and ends the process.
[[noreturn]] void Broken(const char* what);

class Model {
 public:
  explicit Model(uint64_t least_spacing_ms) : least_spacing_ms_(least_spacing_ms) {}

  // The host queues one request through `queue`: `frames` entries, each with the command.
  void Queue(uint8_t command, uint32_t serial, size_t frames, const std::function<void()>& queue);
  // The host calls a start export, which drops everything.
  void Start(const std::function<void()>& start);
  // The host asks the server to exit: the next reading may start a new connection at any level.
  void OnExit() { last_level_ = -1; }
  // The device saw a write of the server's, and whether it succeeded.
  void OnWrite(const std::vector<uint8_t>& report, bool succeeded);
  // The host's callback.
  void OnCallback(const uint8_t* frame, const uint8_t* data, uint32_t length);

  // Holds the queue against the model. It may have lost frames of the head that have been answered,
  // a battery request that the optimiser answers, or everything after five unanswered writes.
  void Check();

  bool AllAnswered() const { return requests_.empty(); }
  uint64_t answered() const { return answered_; }
  uint64_t dropped() const { return dropped_; }

  // Data are looked at only while no answer can be mistaken for another's.
  bool answers_are_exact = false;

 private:
  struct Request {
    uint8_t command;
    uint32_t serial;  // in the frames' data; for a memory read its address
    size_t frames;
  };
  static bool Matches(const Request& request, const CommandFrame& frame);
  size_t ModelFrames() const;
  void OnLevel(uint8_t level);

  const uint64_t least_spacing_ms_;
  std::deque<Request> requests_;
  std::vector<uint8_t> last_written_;
  uint64_t last_write_ms_ = 0;
  size_t writes_of_frame_ = 0;
  int last_level_ = -1;
  uint64_t answered_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_H_
