#include "server/server_session.h"

#include <cstring>

#include "exit_codes.h"
#include "perilink/server.h"
#include "server/inbox.h"

namespace perictl {
namespace {

// A pass of the server may wait for a device that does not answer, but not longer.
constexpr uint32_t kEndTimeoutMs = 5000;

// Between the server's thread, which fills it, and the session's.
Inbox<ServerReport>& Reports() {
  static auto* const inbox = new Inbox<ServerReport>;
  return *inbox;
}

void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t frame_length, const uint8_t* data,
                            uint32_t data_length) {
  ServerReport report;
  if (frame_length == sizeof report.frame) std::memcpy(&report.frame, frame, frame_length);
  report.data.assign(data, data + data_length);
  Reports().Put(std::move(report));
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
    : keyboard_(keyboard), thread_((Reports().Clear(), Start(path))) {
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
  return Reports().Next(timeout_ms);
}

size_t ServerSession::TakeLost() {
  return Reports().TakeLost();
}

}  // namespace perictl
