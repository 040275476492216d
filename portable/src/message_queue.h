// The messages that wait for one thread. Locked by the window system.
#ifndef PERILINK_PLATFORM_SRC_MESSAGE_QUEUE_H_
#define PERILINK_PLATFORM_SRC_MESSAGE_QUEUE_H_

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "perilink_platform/window.h"
#include "scheduler.h"

namespace perilink::platform {

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

struct MessageQueue {
  std::deque<MSG> posted;
  std::deque<std::shared_ptr<SentMessage>> sent;
  bool quit = false;
  int exit_code = 0;
  // Set when anything is added, or when a message that this thread sent has been handled.
  Signal wake{true};
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_MESSAGE_QUEUE_H_
