#include "server_session.h"

#include <cstring>
#include <deque>
#include <mutex>

#include "exit_codes.h"
#include "perilink/server.h"
#include "system.h"

namespace perictl {
namespace {

// A pass of the server may wait for a device that does not answer, but not longer.
constexpr uint32_t kEndTimeoutMs = 5000;

// Between the server's thread, which fills it, and the session's.
class Inbox {
 public:
  static Inbox& Instance() {
    // Never destroyed: the server's thread may still run when the process ends.
    static Inbox* const inbox = new Inbox;
    return *inbox;
  }

  void Clear() {
    const std::lock_guard lock(mutex_);
    reports_.clear();
  }
  void Put(ServerReport report) {
    const std::lock_guard lock(mutex_);
    reports_.push_back(std::move(report));
    SetEvent(filled_);
  }
  std::optional<ServerReport> TryTake() {
    const std::lock_guard lock(mutex_);
    if (reports_.empty()) return std::nullopt;
    ServerReport report = std::move(reports_.front());
    reports_.pop_front();
    return report;
  }
  void WaitForMore(uint32_t timeout_ms) { WaitForSingleObject(filled_, timeout_ms); }

 private:
  std::mutex mutex_;
  std::deque<ServerReport> reports_;
  const HANDLE filled_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t frame_length, const uint8_t* data,
                            uint32_t data_length) {
  ServerReport report;
  if (frame_length == sizeof report.frame) std::memcpy(&report.frame, frame, frame_length);
  report.data.assign(data, data + data_length);
  Inbox::Instance().Put(std::move(report));
}

std::wstring Widen(const std::string& text) {
  const int size = static_cast<int>(text.size());
  const int units = MultiByteToWideChar(CP_ACP, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<size_t>(units), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), units);
  return wide;
}

}  // namespace

ServerSession::ServerSession(const std::string& path, bool keyboard)
    : keyboard_(keyboard), thread_((Inbox::Instance().Clear(), Start(path))) {
  if (thread_ == 0) throw Failure(ExitCode::kInternal, "the background server can't be started");
}

ServerSession::~ServerSession() {
  UsbServer_Exit();
  const auto thread = reinterpret_cast<HANDLE>(thread_);
  WaitForSingleObject(thread, kEndTimeoutMs);
  CloseHandle(thread);
}

// The wide family alone gives the thread, without which its end can't be waited for.
uintptr_t ServerSession::Start(const std::string& path) const {
  const std::wstring wide = Widen(path);
  return keyboard_ ? UsbServer_KeyboardStart(wide, wide, OnReport)
                   : UsbServer_Start(wide, wide, OnReport);
}

void ServerSession::Reopen(const std::string& path) {
  Start(path);
}

std::optional<ServerReport> ServerSession::Next(uint32_t timeout_ms) {
  Inbox& inbox = Inbox::Instance();
  const uint64_t end_ms = GetTickCount64() + timeout_ms;
  while (true) {
    if (std::optional<ServerReport> report = inbox.TryTake()) return report;
    const uint64_t now_ms = GetTickCount64();
    if (now_ms >= end_ms) return std::nullopt;
    inbox.WaitForMore(static_cast<uint32_t>(end_ms - now_ms));
  }
}

}  // namespace perictl
