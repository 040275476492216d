// Writes to a device that need not let go of them.
#ifndef PERILINK_SRC_UPGRADE_REPORT_WRITER_H_
#define PERILINK_SRC_UPGRADE_REPORT_WRITER_H_

#include <cstdint>
#include <memory>
#include <span>

#include "transport/link.h"
#include "upgrade/image.h"

namespace perilink {

enum class Sent {
  kYes,
  kNo,     // the write failed
  kStuck,  // it has not come back: nothing more can be written, and somebody else waits for it
};

// Writes on a thread of its own, so that a write that the system never completes holds up that
// thread and not the upgrade. Belongs to one thread.
class ReportWriter {
 public:
  // `handles` stay open while a write on them is under way, whoever else lets go of them.
  explicit ReportWriter(std::shared_ptr<DeviceHandles> handles) : handles_(std::move(handles)) {}
  ~ReportWriter();
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;

  // Sends the bytes the way the command asks for, as a feature report or as an output report, and
  // waits so long for the device to take them. Without a thread of its own, which the system may
  // refuse, it waits as long as the write takes.
  Sent Send(const CommandDescriptor& command, std::span<const uint8_t> bytes, uint32_t timeout_ms);

 private:
  struct Shared;
  static void Work(void* shared);
  bool Start();

  const std::shared_ptr<DeviceHandles> handles_;
  std::shared_ptr<Shared> shared_;  // with the thread; null until the first write
  bool stuck_ = false;
};

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_REPORT_WRITER_H_
