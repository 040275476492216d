// What becomes of a valid report: an event of the device's, or the answer to the queue's head.
#ifndef PERILINK_SRC_SERVER_DISPATCHER_H_
#define PERILINK_SRC_SERVER_DISPATCHER_H_

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "battery/optimizer.h"
#include "server/flash_read.h"
#include "server/state.h"
#include "transport/frame.h"
#include "transport/read_address.h"

namespace perilink {

// What a report has meant for the queue.
enum class Meaning {
  kNoAnswer,  // the head, if any, is still awaited
  kAnswer,    // the head was answered: it is no longer awaited
};

// Belongs to one loop and runs on its thread.
class Dispatcher {
 public:
  explicit Dispatcher(ServerState& state)
      : state_(state), optimizer_(BatteryOptimizer::Instance()), flash_reads_(state) {}

  // The device has been opened: nothing is known of its answers.
  void OnReopen() { echo_ = AddressEcho(kShortAnswers); }

  // Whatever a host's callback throws ends here.
  Meaning DispatchReport(const ValidFrame& report) noexcept;

 private:
  // An answer that is complete; its data are in reply_data_.
  struct Answer {
    CommandFrame frame;  // the request that was answered last, with the answer's length byte
    uint32_t length;
    FlashReads::Step step;
    ServerReportCallback callback;  // of the connection that the answer belongs to
  };
  // To one read, before they are taken: late ones come in numbers.
  static constexpr int kShortAnswers = 2;
  // What TakeAnswer finds.
  enum class Taken { kNothing, kPart, kWhole };

  void HandleEvent(const CommandFrame& report);
  Taken TakeAnswer(const CommandFrame& report, Answer& answer);
  void ReportAnswer(Answer& answer);
  void CallHost(ServerReportCallback callback, const CommandFrame& frame, uint32_t data_length);

  ServerState& state_;
  BatteryOptimizer& optimizer_;
  FlashReads flash_reads_;
  AddressEcho echo_{kShortAnswers};
  std::array<uint8_t, kReplyDataSize> reply_data_{};
};

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_DISPATCHER_H_
