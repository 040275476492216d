// Writes that the device may never complete.
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
  // Shares `handles`: they stay open while a write on them is under way.
  explicit ReportWriter(std::shared_ptr<DeviceHandles> handles) : handles_(std::move(handles)) {}
  ~ReportWriter();
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;

  // Sends the bytes as the feature or output report that the command asks for, and waits up to
  // `timeout_ms` for the device to take them. If the system refuses the thread, nothing is sent;
  // the next call asks for it again.
  Sent Send(const UpgradeFileCommand& command, std::span<const uint8_t> bytes, uint32_t timeout_ms);

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
