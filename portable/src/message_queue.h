// The messages that wait for one thread. Locked by the window system.
#ifndef PERILINK_PLATFORM_SRC_MESSAGE_QUEUE_H_
#define PERILINK_PLATFORM_SRC_MESSAGE_QUEUE_H_

#include <cstddef>
#include <list>
#include <memory>
#include <vector>

#include "perilink_platform/window.h"

namespace perilink::platform {

struct Thread;

// A message that the receiving thread handles inside a pump. Its sender, if there is one, waits.
struct SentMessage {
  HWND window = nullptr;
  UINT message = 0;
  WPARAM wparam = 0;
  LPARAM lparam = 0;
  std::vector<std::byte> payload;  // what lparam points to, if it is the system's
  Thread* sender = nullptr;
  bool done = false;
  bool handled = false;
  LRESULT result = 0;
};

// Every thread has one: it takes no memory while it is empty.
struct MessageQueue {
  std::list<MSG> posted;
  std::list<std::shared_ptr<SentMessage>> sent;
  bool quit = false;
  int exit_code = 0;
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_MESSAGE_QUEUE_H_
