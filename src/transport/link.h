// An open device: both of its handles, the read that is posted on it, and what must happen before
// they may be closed. Every exchange with a device, of whatever protocol, uses a link.
#ifndef PERILINK_SRC_TRANSPORT_LINK_H_
#define PERILINK_SRC_TRANSPORT_LINK_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/alarm.h"
#include "platform/handles.h"
#include "platform/overlapped_read.h"
#include "transport/frame.h"

namespace perilink {

// The two handles of an open device. Either may be invalid: a call that needs it then fails. Any
// thread may write.
class DeviceHandles {
 public:
  // Opens the interface that is written, then the one that is read, each for reading and writing,
  // shared. A null path opens nothing and gives a null handle.
  void Open(const std::wstring* write_path, const std::wstring* read_path);
  // Cancels what the calling thread has pending, and closes what is valid.
  void Close();

  bool CanWrite() const { return write_.Valid(); }
  bool CanRead() const { return read_.Valid(); }
  // For a log: -1 for a handle that could not be opened.
  intptr_t WriteHandleNumber() const { return reinterpret_cast<intptr_t>(write_.Get()); }
  intptr_t ReadHandleNumber() const { return reinterpret_cast<intptr_t>(read_.Get()); }

  // Sends one output report, or one feature report of at most 256 bytes, report id first. Returns
  // when the device has taken it.
  bool Write(std::span<const uint8_t> report) const;
  bool SendFeature(std::span<const uint8_t> report) const;

  bool GetAttributes(HIDD_ATTRIBUTES& attributes) const;

 private:
  friend class Link;

  UniqueFile write_;
  UniqueFile read_;
};

// What became of a wait for a report.
enum class Arrival {
  kNothing,  // the time is over, or the alarm was woken
  kFailure,  // a read failed: the device has probably gone
  kReport,
};

// Talks to a device on handles of its own, or on handles that somebody else keeps open. Belongs to
// one thread: the system cancels only what the thread itself has posted.
class Link {
 public:
  static constexpr size_t kLongestReport = OverlappedRead::kCapacity;

  // `report_length`: what a read asks for, at most kLongestReport.
  explicit Link(size_t report_length) : handles_(own_), report_length_(report_length) {}
  Link(DeviceHandles& handles, size_t report_length)
      : handles_(handles), report_length_(report_length) {}
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  // Closes what was open and opens anew; see DeviceHandles. False when reports can't be waited for,
  // because the system has no event to give: the handles are open, or not, all the same.
  bool Open(const std::wstring* write_path, const std::wstring* read_path);
  bool Open(const std::wstring& path) { return Open(&path, &path); }
  // The same for handles that are open already.
  bool Prepare();
  // Ends the posted read, waits until the system has let go of its memory, and closes the handles.
  void Close();

  const DeviceHandles& handles() const { return handles_; }
  bool CanWait() const { return read_.has_value() && read_->has_event(); }

  bool Write(std::span<const uint8_t> report) const { return handles_.Write(report); }
  bool Write(const CommandFrame& frame) const { return Write(FrameBytes(frame)); }

  // Whether a read is posted.
  bool listening() const { return CanWait() && read_->pending(); }
  // Posts a read unless one is pending. Next does so too. Call it before a write, so that an answer
  // that comes at once finds a read.
  void Listen();

  // Waits for the next report, the end of the time or the alarm, whichever comes first. If the
  // device refuses the read, the wait ends after 10 ms at most, and the next call posts it again.
  Arrival Next(uint32_t timeout_ms);
  Arrival Next(Alarm& alarm, Deadline deadline);

  // The report of the last Next, unchecked, with zeros beyond what the device sent. Valid until the
  // next Listen or Next.
  std::span<const uint8_t> report() const;
  // The same as a command frame, if its checksum holds.
  std::optional<ValidFrame> frame() const { return ValidFrame::Check(report()); }

 private:
  Arrival Take();

  DeviceHandles own_;
  DeviceHandles& handles_;
  const size_t report_length_;
  std::optional<OverlappedRead> read_;  // made anew, event and all, by each Open or Prepare
};

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_LINK_H_
