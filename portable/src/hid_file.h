// One open of a HID interface: its queue of input reports and its pending reads.
#ifndef PERILINK_PLATFORM_SRC_HID_FILE_H_
#define PERILINK_PLATFORM_SRC_HID_FILE_H_

#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "perilink_platform/file.h"
#include "perilink_platform/hid_bus.h"
#include "waitable.h"

namespace perilink::platform {

// What an open asks for and lets others have.
struct FileAccess {
  DWORD access = 0;
  DWORD share_mode = 0;
  bool overlapped = false;
};

// All functions take the device lock themselves, but those of HidInputSink, which the bus calls
// with it held. Where a device may keep the caller waiting, the lock isn't held meanwhile.
class HidFile final : public Waitable,
                      public HidInputSink,
                      public std::enable_shared_from_this<HidFile> {
 public:
  // Opens a path; 0, or the error.
  static DWORD Open(const std::wstring& path, const FileAccess& access,
                    std::shared_ptr<HidFile>& file);
  HidFile(std::wstring path, const FileAccess& access);
  ~HidFile() override;

  bool overlapped() const { return access_.overlapped; }
  bool Allows(DWORD access) const { return (access_.access & access) == access; }

  // Begins a read of the calling thread: 0 when a queued report has completed it, ERROR_IO_PENDING,
  // or why it failed. Its completion signals `event`, or with null the file itself.
  DWORD BeginRead(std::span<uint8_t> buffer, OVERLAPPED& overlapped, std::shared_ptr<Event> event);
  // Cancels the pending reads of one thread (0: of all) on one OVERLAPPED (null: on all). Returns
  // their number. Never fails.
  size_t CancelReads(uint32_t issuer, const OVERLAPPED* overlapped);

  DWORD Write(std::span<const uint8_t> report);
  DWORD SetFeature(std::span<const uint8_t> report);
  DWORD GetAttributes(HidAttributes& attributes);

  Signal& WaitSignal() override { return done_; }
  const char* Kind() const override { return "file"; }
  void OnHandleClosed() override;

  void OnInputReport(std::span<const uint8_t> report) override;
  void OnRemoved() override;

 private:
  struct Read {
    uint64_t id;
    std::span<uint8_t> buffer;
    OVERLAPPED* overlapped;
    std::shared_ptr<Event> event;
    uint32_t issuer;  // a thread's id
    bool cancelled;
  };

  void Complete(Read& read, DWORD status, std::span<const uint8_t> report);
  void CompleteAll(DWORD status);
  bool AbortSoon(uint64_t id);
  void Abort(uint64_t id);
  bool ConflictsWith(const HidFile& other) const;
  // The connection, or why there is none. It stays while the caller uses it.
  DWORD Connected(std::shared_ptr<HidConnection>& connection);

  const std::wstring path_;
  const FileAccess access_;
  Signal done_{true};     // the last read has completed
  bool opening_ = false;  // or open: takes part in sharing
  std::shared_ptr<HidConnection> connection_;
  size_t input_length_ = 0;
  bool removed_ = false;
  std::deque<std::vector<uint8_t>> reports_;
  std::list<Read> reads_;
  uint64_t last_read_id_ = 0;
};

// Whether the operation of an OVERLAPPED is pending: its fields are written under the device lock.
bool IsPending(const OVERLAPPED& overlapped);
// 0 or a Windows error code; stores the bytes transferred.
DWORD IoResult(const OVERLAPPED& overlapped, DWORD& bytes);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_HID_FILE_H_
