#include "server/state.h"

#include <utility>

#include "transport/frame.h"

namespace perilink {

void ServerHandle::Release() {
  const HANDLE handle = handle_.exchange(INVALID_HANDLE_VALUE, std::memory_order_relaxed);
  if (!IsValidHandle(handle)) return;
  CancelIo(handle);
  CloseHandle(handle);
}

ServerState& ServerState::Instance() {
  static ServerState* const state = new ServerState;
  return *state;
}

void ServerState::RequestStart(DevicePaths paths, ServerReportCallback callback) {
  const Queues queues = LockQueues();
  queues.replies.Clear();
  queues.commands.Clear();
  callback_.store(callback, std::memory_order_release);
  {
    const std::lock_guard lock(paths_mutex_);
    std::swap(paths_, paths);
  }
  // In this order: a loop that takes the reopen must not then end by the exit that is taken back,
  // or the reopen would be lost with it.
  exit_requested_.store(false, std::memory_order_relaxed);
  RequestReopen();
  SetKeyboardTargetFlag(false);
}

DevicePaths ServerState::Paths() const {
  const std::lock_guard lock(paths_mutex_);
  return paths_;
}

std::wstring ServerState::InputPath() const {
  const std::lock_guard lock(paths_mutex_);
  return paths_.input;
}

std::wstring ServerState::OutputPath() const {
  const std::lock_guard lock(paths_mutex_);
  return paths_.output;
}

}  // namespace perilink
