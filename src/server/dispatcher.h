// What becomes of a valid report: an event of the device's, or the answer to the queue's head.
#ifndef PERILINK_SRC_SERVER_DISPATCHER_H_
#define PERILINK_SRC_SERVER_DISPATCHER_H_

#include <array>
#include <cstdint>
#include <span>

#include "battery/optimizer.h"
#include "server/state.h"

namespace perilink {

// Belongs to one loop and runs on its thread.
class Dispatcher {
 public:
  explicit Dispatcher(ServerState& state)
      : state_(state), optimizer_(BatteryOptimizer::Instance()) {}

  // Takes a report whose checksum is right. Clears `awaiting_reply` when it answers the head.
  void DispatchReport(const CommandFrame& report, bool& awaiting_reply);

 private:
  // An answer that is complete: what the host gets to see, and who takes it.
  struct Answer {
    CommandFrame frame;  // the request that was answered last, with the answer's length byte
    uint32_t length;
    uint8_t continuation;
  };

  void HandleEvent(const CommandFrame& report);
  void PollAfterBatteryEvent();
  // Returns true when the reading overrules the smoothed level.
  bool ForceLevel(uint8_t raw_level);

  // True when `report` completed the answer to a request; its data are in reply_data_.
  bool TakeAnswer(const CommandFrame& report, bool& awaiting_reply, Answer& answer);
  void ReportAnswer(Answer answer);
  void CallHost(const CommandFrame& frame, uint32_t data_length);

  ServerState& state_;
  BatteryOptimizer& optimizer_;
  std::array<uint8_t, kReplyDataSize> reply_data_{};
};

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_DISPATCHER_H_
