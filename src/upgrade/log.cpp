#include "upgrade/log.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cwchar>
#include <deque>
#include <mutex>

#include "perilink/upgrade.h"
#include "platform/guard.h"
#include "platform/runtime.h"
#include "upgrade/upgrade_record.h"

namespace perilink {
namespace {

constexpr char kLogFileName[] = "dll_log.txt";
constexpr size_t kDumpedBytes = 8;

class UpgradeLog {
 public:
  void Append(std::wstring line) {
    std::wstring oldest;  // freed without the lock
    const std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    if (lines_.size() <= PERILINK_LOG_LIMIT) return;
    oldest.swap(lines_.front());
    lines_.pop_front();
  }
  void Clear() {
    std::deque<std::wstring> old;
    const std::lock_guard lock(mutex_);
    old.swap(lines_);
  }
  std::vector<std::wstring> Copy() const {
    const std::lock_guard lock(mutex_);
    return {lines_.begin(), lines_.end()};
  }
  size_t size() const {
    const std::lock_guard lock(mutex_);
    return lines_.size();
  }

 private:
  mutable std::mutex mutex_;
  std::deque<std::wstring> lines_;
};

// Never destroyed: the upgrade thread may still log while the process exits.
UpgradeLog& Log() {
  static UpgradeLog& log = *new UpgradeLog;
  return log;
}

std::atomic<bool> save_log_file = false;

std::wstring Widen(const char* ascii) {
  return {ascii, ascii + std::char_traits<char>::length(ascii)};
}

// Texts come from files of any origin. They must neither end a line nor send escape sequences to a
// terminal that shows the log.
bool IsPrintable(std::wint_t code) {
  return (code >= 0x20 && code <= 0x7E) || (code >= 0xA0 && code <= 0xFF);
}

std::wstring Timestamp() {
  SYSTEMTIME now;
  GetLocalTime(&now);
  return FormatTimestamp(now);
}

std::wstring HexDump(std::span<const uint8_t> data) {
  static constexpr wchar_t kDigits[] = L"0123456789abcdef";
  std::wstring dump;
  for (const uint8_t byte : data.first(std::min(data.size(), kDumpedBytes)))
    dump += {kDigits[byte >> 4], kDigits[byte & 15], L' '};
  return dump;
}

}  // namespace

void SetSaveLogFile(bool save) {
  save_log_file.store(save, std::memory_order_relaxed);
}

void LogParts(std::initializer_list<LogPart> parts) noexcept {
  Guarded([&] {
    std::wstring line;
    for (const LogPart& part : parts)
      part.is_number ? line.append(std::to_wstring(part.number)) : line.append(part.text);
    Guarded([&] { Log().Append(line); });
    AppendLogFile(line);
  });
}

void LogHexLine(std::wstring_view text, std::span<const uint8_t> data) noexcept {
  Guarded([&] { Log().Append(Timestamp().append(L":  ").append(text) + HexDump(data)); });
}

void LogUpgradeFile(const UsbUpgradeFile& record) noexcept {
  const auto remember = [](const auto& line) { Guarded([&] { Log().Append(line); }); };
  AppendLogFile(L"logs UsbUpgradeFile");
  Guarded([] { AppendLogFile(L"logs size = " + std::to_wstring(Log().size())); });
  Guarded([&] {
    const std::wstring time = Timestamp();
    AppendLogFile(L"time:" + time);
    Log().Append(time);
  });
  remember(L"  UsbUpgradeFile");
  remember(record.is_end ? L"isEnd:true" : L"isEnd:false");
  remember(record.valid ? L"valid:true" : L"valid:false");
  LogLine(L"totalPacketCount:", record.total_packet_count);
  LogLine(L"icName:", record.chip_name);
  LogLine(L"bootInputEndPoint:", record.boot_input_key);
  LogLine(L"bootOutputEndPoint:", record.boot_output_key);
  LogLine(L"normalInputEndPoint:", record.normal_input_key);
  LogLine(L"normalOutputEndPoint:", record.normal_output_key);
  LogLine(L"senserName:", record.sensor_name);
  LogLine(L"productName:", record.product_name);
}

void AppendLogFile(std::wstring_view text) noexcept {
  if (!save_log_file.load(std::memory_order_relaxed)) return;
  Guarded([&] {
    std::string line(text.size(), '?');
    std::ranges::transform(text, line.begin(), [](wchar_t character) {
      const std::wint_t code = std::char_traits<wchar_t>::to_int_type(character);
      return IsPrintable(code) ? static_cast<char>(code) : '?';
    });
    AppendLineShared(kLogFileName, line);
  });
}

void ResetUpgradeLog() {
  Log().Clear();
  AppendLogFile(L"log reset");
}

std::vector<std::wstring> CopyUpgradeLog() {
  return Log().Copy();
}

std::wstring FormatTimestamp(const SYSTEMTIME& time) {
  char text[64];
  std::snprintf(text, sizeof(text), "%4d-%02d-%02d %02d:%02d:%02d %03d", time.wYear, time.wMonth,
                time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
  return Widen(text);
}

}  // namespace perilink

void UsbUpgrade_EnableSaveLogFile(uint8_t enable) {
  perilink::SetSaveLogFile(enable != 0);
}
