#include "server/state.h"

#include <utility>

#include "transport/frame.h"

namespace perilink {

ServerState& ServerState::Instance() {
  static ServerState* const state = new ServerState;
  return *state;
}

void ServerState::RequestStart(DevicePaths paths, ServerReportCallback callback) {
  {
    const Queues queues = LockQueues();
    queues.replies.Clear();
    queues.commands.Clear();
    ++connection_;
    callback_.store(callback, std::memory_order_release);
    {
      const std::lock_guard lock(paths_mutex_);
      std::swap(paths_, paths);
    }
    // The exit is taken back first. In the other order the loop could take the reopen, find the
    // exit and end: the start would be lost.
    exit_requested_.store(false, std::memory_order_relaxed);
    RequestReopen();
    SetKeyboardTargetFlag(false);
  }
  WakeLoop();
}

ServerReportCallback ServerState::CallbackForReport() {
  const ServerState& state = Instance();
  const ServerReportCallback callback = state.Callback();
  return state.ReopenRequested() ? nullptr : callback;
}

void ServerState::RequestExit() {
  exit_requested_.store(true, std::memory_order_relaxed);
  WakeLoop();
}

void ServerState::SetAlarm(const Alarm* alarm) {
  const std::lock_guard lock(alarm_mutex_);
  alarm_ = alarm;
}

void ServerState::WakeLoop() {
  const std::lock_guard lock(alarm_mutex_);
  if (alarm_ != nullptr) alarm_->Wake();
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
