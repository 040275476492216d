#include "server/lifecycle.h"

#include <mutex>

#include "perilink/server.h"
#include "platform/guard.h"
#include "platform/handles.h"
#include "platform/module.h"
#include "server/loop.h"
#include "server/state.h"
#include "transport/frame.h"

namespace perilink {
namespace {

// The one thread of the start exports. Whether it ends, and whether a start finds it running, are
// decided under one lock: a start is never lost between the end of the loop and the thread's.
class ServerThread {
 public:
  // It is never destroyed: the thread may outlive main().
  static ServerThread& Instance() {
    static ServerThread* const thread = new ServerThread;
    return *thread;
  }

  // Null when the thread runs already.
  HANDLE EnsureRunning() {
    const std::lock_guard lock(mutex_);
    if (running_) return nullptr;
    const HANDLE thread = StartLibraryThread(&ServerThread::Procedure);
    running_ = thread != nullptr;
    return thread;
  }

 private:
  static void Procedure(void*) {
    do {
      RunServerLoop();
    } while (!Guarded(true, [] { return Instance().Ends(); }));
  }

  // False when a start came too late for the loop that has just ended.
  bool Ends() {
    const std::lock_guard lock(mutex_);
    running_ = !ServerState::Instance().ExitRequested();
    return !running_;
  }

  std::mutex mutex_;
  bool running_ = false;  // ServerRunning
};

}  // namespace

HANDLE StartServer(const std::wstring& input_path, const std::wstring& output_path,
                   ServerReportCallback callback, Target target) {
  ServerThread& thread = ServerThread::Instance();
  ServerState::Instance().RequestStart({input_path, output_path}, callback);
  const HANDLE handle = thread.EnsureRunning();
  if (target == Target::kKeyboard) SetKeyboardTargetFlag(true);
  return handle;
}

void StartServerDetached(const std::wstring& input_path, const std::wstring& output_path,
                         ServerReportCallback callback, Target target) {
  const HANDLE thread = StartServer(input_path, output_path, callback, target);
  if (IsValidHandle(thread)) CloseHandle(thread);
}

namespace {

uintptr_t StartForHost(const std::wstring& input_path, const std::wstring& output_path,
                       ServerReportCallback callback, Target target) {
  return Guarded(uintptr_t{0}, [&] {
    return reinterpret_cast<uintptr_t>(StartServer(input_path, output_path, callback, target));
  });
}

}  // namespace
}  // namespace perilink

using perilink::Guarded;
using perilink::ServerState;
using perilink::Target;

uintptr_t UsbServer_Start(const std::wstring& input_path, const std::wstring& output_path,
                          ServerReportCallback callback) {
  return perilink::StartForHost(input_path, output_path, callback, Target::kMouse);
}

uintptr_t UsbServer_KeyboardStart(const std::wstring& input_path, const std::wstring& output_path,
                                  ServerReportCallback callback) {
  return perilink::StartForHost(input_path, output_path, callback, Target::kKeyboard);
}

void UsbServer_Exit(void) {
  Guarded([] { ServerState::Instance().RequestExit(); });
}

void UsbReaderWriterServer(void) {
  perilink::RunServerLoop();
}

void UsbServer_GetCurrentInputDevice(std::wstring& path) {
  Guarded([&] { path = ServerState::Instance().InputPath(); });
}

void UsbServer_GetCurrentOutputDevice(std::wstring& path) {
  Guarded([&] { path = ServerState::Instance().OutputPath(); });
}
