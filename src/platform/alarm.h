// A wait that three things can end: a signalled object, another thread, or a deadline.
#ifndef PERILINK_SRC_PLATFORM_ALARM_H_
#define PERILINK_SRC_PLATFORM_ALARM_H_

#include <cstdint>

#include "platform/handles.h"

namespace perilink {

// A moment on the clock of MonotonicMicros().
struct Deadline {
  int64_t at_micros;
  // The wait ends within a fraction of a millisecond. Otherwise it may end a step of the system's
  // clock later, up to 16 ms.
  bool precise = false;
};

class Alarm {
 public:
  enum class Cause { kSignalled, kWoken, kTime };

  // If the system can't make the event, Wake has no effect. If it can't make the timer, a precise
  // wait spins.
  Alarm();
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  // Ends the wait that runs, or the next one. Any thread.
  void Wake() const { SetEvent(woken_.Get()); }

  // Waits until `object` (null for none) is signalled, Wake is called or the deadline has come. A
  // deadline in the past still tells whether the object is signalled. One thread at a time.
  Cause Wait(HANDLE object, Deadline deadline);

 private:
  bool SetTimer(int64_t micros) const;

  UniqueEvent woken_;  // its wait resets it
  UniqueTimer timer_;
};

}  // namespace perilink

#endif  // PERILINK_SRC_PLATFORM_ALARM_H_
