// One run of the background server, whose reports wait here for the thread that wants them.
#ifndef PERILINK_TOOLS_PERICTL_SERVER_SERVER_SESSION_H_
#define PERILINK_TOOLS_PERICTL_SERVER_SERVER_SESSION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "perilink/records.h"

namespace perictl {

struct ServerReport {
  CommandFrame frame{};
  std::vector<uint8_t> data;
};

// The server is the process's only one, and so is its session.
class ServerSession {
 public:
  // Starts the server on an interface. Throws Failure when that can't be done; a device that can't
  // be opened merely reports nothing.
  ServerSession(const std::string& path, bool keyboard);
  // Ends the server. It has closed the device and saved the battery's level when this returns.
  ~ServerSession();
  ServerSession(const ServerSession&) = delete;
  ServerSession& operator=(const ServerSession&) = delete;

  // Opens the interface anew, or another one, and drops every request.
  void Reopen(const std::string& path);

  // The next report, waited for; nothing when none has come in time.
  std::optional<ServerReport> Next(uint32_t timeout_ms);
  // How many reports had no room, since this was asked the last time (inbox.h).
  size_t TakeLost();

 private:
  uintptr_t Start(const std::string& path) const;

  const bool keyboard_;
  const uintptr_t thread_;
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SERVER_SERVER_SESSION_H_
