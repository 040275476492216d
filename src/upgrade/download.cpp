#include "upgrade/download.h"

#include <algorithm>
#include <memory>

#include "upgrade/boot_devices.h"
#include "upgrade/events.h"
#include "upgrade/log.h"
#include "upgrade/report_writer.h"
#include "upgrade/tick.h"

namespace perilink {
namespace {

constexpr int32_t kLongestRepeat = 8;
constexpr DWORD kLongestWaitMs = 1000;

size_t PacketLength(const UsbUpgradeFile& record) {
  return std::min<size_t>(record.header.packet_template.length, PERILINK_PACKET_SIZE);
}

bool HasPacketToWrite(const UsbUpgradeFile& record) {
  return !record.packets.empty() && record.packets.front().pending != 0;
}

// One device's download: its handles, the posted read and the inactivity clock.
class Download {
 public:
  explicit Download(UsbUpgradeFile& record)
      : record_(record), link_(*handles_, PacketLength(record)), writer_(handles_) {}

  bool Run() {
    if (!Open()) return false;
    link_.Listen();
    LogLine(L"Start DownloadFile");
    record_.repeat_mark = kNoRepeatMark;
    record_.repeat_count = 0;
    last_write_ms_ = GetTickCount64();
    for (;;) {
      WriteFrontPacket();
      if (WaitForReply() && TakeReply()) {
        AnnounceSuccess();
        return true;
      }
      if (IdleMs() >= record_.timeout) {
        LogLine(L"Upgrade Timeout");
        EndUpgrade(record_, PERILINK_UPGRADE_RESULT_TIMEOUT, PERILINK_UPGRADE_TIMEOUT_DOWNLOAD);
        return false;
      }
    }
  }

 private:
  bool Open() {
    const HidPathList inputs = FindDevicePaths(record_.boot_input_key);
    const HidPathList outputs = FindDevicePaths(record_.boot_output_key);
    // Without a path the log shows a handle of 0.
    link_.Open(outputs.empty() ? nullptr : &outputs.front(),
               inputs.empty() ? nullptr : &inputs.front());
    const DeviceHandles& handles = link_.handles();
    if (handles.CanWrite() && handles.CanRead()) return true;
    LogLine(L"DownloadFile-HANDLE Error,hDeviceWrite=", handles.WriteHandleNumber(),
            L"  hDeviceRead =", handles.ReadHandleNumber());
    EndUpgrade(record_, PERILINK_UPGRADE_RESULT_BOOT_OPEN_FAILED, handles.CanWrite(),
               handles.CanRead());
    return false;
  }

  void WriteFrontPacket() {
    if (!HasPacketToWrite(record_)) return;
    UpgradePacket& packet = record_.packets.front();
    const auto bytes = std::span<const uint8_t>(packet.data).first(PacketLength(record_));
    // A write that does not return counts as inactivity of the device.
    if (writer_.Send(record_.header.packet_template, bytes, TimeLeftMs()) == Sent::kYes) {
      packet.pending = 0;
      last_write_ms_ = GetTickCount64();
      LogHexLine(L"Write Data Success:", packet.data);
    } else {
      LogHexLine(L"Write Data Fail:", packet.data);
    }
  }

  // Waits a tick if a packet could not be written and is to be tried again; otherwise until a reply
  // comes or the time is over.
  bool WaitForReply() {
    const DWORD wait_ms =
        HasPacketToWrite(record_) ? kTickMs : std::min(TimeLeftMs(), kLongestWaitMs);
    const Arrival arrival = link_.Next(wait_ms);
    // Reads that fail one after the other must not keep the thread spinning.
    if (arrival == Arrival::kFailure) Sleep(std::min(wait_ms, kTickMs));
    return arrival == Arrival::kReport;
  }

  // Posts the next read before it handles the reply, so that none is missed meanwhile.
  bool TakeReply() {
    BootReport report;
    std::ranges::copy(link_.report(), report.bytes.begin());
    link_.Listen();
    return ReceiveBootReply(record_, report);
  }

  void AnnounceSuccess() {
    if (!record_.is_end) {
      LogLine(L"Upgrade One Device OK");
      return;
    }
    LogLine(L"All Upgrade Success");
    EndUpgrade(record_, PERILINK_UPGRADE_RESULT_SUCCESS);
  }

  ULONGLONG IdleMs() const { return GetTickCount64() - last_write_ms_; }
  DWORD TimeLeftMs() const {
    const ULONGLONG idle = IdleMs();
    if (idle >= record_.timeout) return 0;
    return static_cast<DWORD>(record_.timeout - idle);
  }

  UsbUpgradeFile& record_;
  const std::shared_ptr<DeviceHandles> handles_ = std::make_shared<DeviceHandles>();
  Link link_;
  ReportWriter writer_;
  ULONGLONG last_write_ms_ = 0;
};

bool ReceiveStatus(UsbUpgradeFile& record, uint8_t status, uint8_t detail) {
  SendUpgradeEvent(record, PERILINK_UPGRADE_NOTICE, status, detail);
  // The device has the packet though its echo was lost; no progress is counted for it.
  if ((status == 1 || status == 2) && detail == 1 && !record.packets.empty())
    record.packets.pop_front();
  return status == PERILINK_UPGRADE_NOTICE_END;
}

bool EchoMatches(const UsbUpgradeFile& record, const BootReport& report) {
  const size_t length = std::max<size_t>(PacketLength(record), 1);
  const uint8_t* sent = record.packets.front().data;
  return std::equal(sent + 1, sent + length, report.bytes.begin() + 1);
}

// Sent again up to nine times at the same place of the download, then no more.
void RepeatFrontPacket(UsbUpgradeFile& record) {
  UpgradePacket& packet = record.packets.front();
  packet.pending = 1;
  if (record.repeat_mark != record.packets.size()) {
    record.repeat_count = 0;
    record.repeat_mark = record.packets.size();
  } else if (++record.repeat_count > kLongestRepeat) {
    LogLine(L"Repeat timeout");
    packet.pending = 0;
  }
}

void ReceiveEcho(UsbUpgradeFile& record, const BootReport& report) {
  if (record.packets.empty()) return;
  if (EchoMatches(record, report)) {
    ++record.progress;
    record.packets.pop_front();
  } else {
    RepeatFrontPacket(record);
  }
  ReportProgress(record);
}

}  // namespace

bool DownloadFile(UsbUpgradeFile& record) {
  return Download(record).Run();
}

bool ReceiveBootReply(UsbUpgradeFile& record, const BootReport& report) {
  LogHexLine(L"Received Data:", report.bytes);
  switch (report[1]) {
    case PERILINK_BOOT_START:
      SendUpgradeEvent(record, PERILINK_UPGRADE_NOTICE, PERILINK_UPGRADE_NOTICE_DOWNLOAD, 3);
      return false;
    case PERILINK_BOOT_STATUS:
      return report[2] == PERILINK_BOOT_STATUS_MARK && ReceiveStatus(record, report[3], report[4]);
    case PERILINK_BOOT_DATA:
      ReceiveEcho(record, report);
      return false;
    case PERILINK_BOOT_ERROR:
      if (report[2] == PERILINK_BOOT_ERROR_MARK)
        SendUpgradeEvent(record, PERILINK_UPGRADE_RESULT, PERILINK_UPGRADE_RESULT_DEVICE_ERROR,
                         report[3]);
      return false;
    default:
      return false;
  }
}

}  // namespace perilink
