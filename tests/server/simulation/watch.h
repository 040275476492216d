// The ear at the seam: knows whose each handle is, gives each model what concerns it, and asks that
// what must happen happens in time.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_WATCH_H_
#define PERILINK_TESTS_SERVER_SIMULATION_WATCH_H_

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "battery_model.h"
#include "config_model.h"
#include "devices.h"
#include "platform/win32.h"
#include "server_model.h"

namespace perilink::testing {

// Paths are compared without regard to case. So a start's paths carry its number in the case of
// their letters, and which of the two it is: the library says on whose behalf it opens what.
std::wstring MarkedPath(std::wstring path, StartNumber start, bool output);

class Watch {
 public:
  explicit Watch(std::mt19937_64& random);
  ~Watch();

  std::array<std::unique_ptr<Device>, 2> devices;
  ConfigModel config;
  BatteryModel battery;
  ServerModel server{battery, config};

  // ---- Hosts ---------------------------------------------------------------------------------

  void OnStart(StartNumber start, size_t device);
  void OnExit();
  void OnSleepTime(uint32_t sleep_ms);
  // The present thread asks a device itself: this, or anything at all. Then what it was answered.
  void Ask(const std::optional<CommandFrame>& question);
  struct Question {
    std::thread::id thread;
    std::optional<CommandFrame> frame;
    int writes = 0;
    std::optional<Sent> answer = {};
    Moment oldest = 0;  // no answer was given before
  };
  Question TakeAnswer();
  // One of the next allocations of the server's thread fails.
  void FailAllocation(uint64_t nth) { failing_allocation_ = nth; }
  // For so long things may take their time: the system fails, or did a moment ago.
  void Disturb(uint64_t micros);
  void CheckTimes();
  bool OnServerThread() const { return std::this_thread::get_id() == server_thread_; }
  // The loop has ended, and let go of everything.
  bool Idle() const { return !loop_runs_ && handles_.empty(); }

  // ---- The seam ------------------------------------------------------------------------------
  //
  // Called on the thread that makes the system call, and after it unless said otherwise.

  // INVALID_HANDLE_VALUE: the open has failed.
  void OnOpened(const wchar_t* path, HANDLE handle, bool overlapped);
  void OnClosing(HANDLE handle);  // before
  void OnWritten(HANDLE handle, const uint8_t* report, size_t size, bool written);
  void OnReadPosted(HANDLE handle, uint8_t* buffer);
  // The library has asked what became of a completed read, and was told a success or a failure.
  void OnReadTaken(HANDLE handle, bool success);
  // A thread is about to wait, or to sleep for so long; it has waited.
  void OnPause(std::optional<DWORD> sleep_ms);
  void OnResume();
  // The library is about to take the server's lock. None is held by the thread.
  void OnLock();
  // A run of the server loop begins. It ends when its timer is closed.
  void OnLoopBegins(HANDLE timer);

 private:
  enum class Role { kServerOutput, kServerInput, kPoll, kHost };
  struct Handle {
    HANDLE handle;
    Role role;
    Device* device;
    uint8_t* buffer = nullptr;
    Inbox inbox;
  };
  Handle* Find(HANDLE handle);
  Device* DeviceAt(const std::wstring& path) const;
  Role RoleOf(const std::wstring& path);
  bool Has(Role role) const;
  Question* QuestionOfThread();
  void TakeReport(Handle& handle, const Sent& sent);
  void TakeFailure();
  void CheckServer();
  void CheckLetGo(const Device& device);
  void Preempt();

  std::mt19937_64& random_;
  std::list<Handle> handles_;
  std::list<Question> questions_;
  std::thread::id server_thread_;
  HANDLE loop_timer_ = nullptr;
  bool loop_runs_ = false;
  bool hears_alarm_ = true;    // an event for it could be made, to be sure
  bool report_taken_ = false;  // the model has it, the queue perhaps not yet
  uint64_t opened_micros_ = 0;
  bool reopens_ = false;           // without a start: memory was short
  bool memory_was_short_ = false;  // in the step under way
  bool opens_input_ = false;       // next: its output has just been opened
  StartNumber polled_ = 0;         // polls are this start's
  uint64_t failing_allocation_ = 0;

  uint32_t longest_sleep_ms_ = 100;
  uint64_t free_micros_ = 0;       // until then the server's thread sleeps
  uint64_t calm_micros_ = 0;       // since then nothing has failed
  uint64_t preempted_micros_ = 0;  // until then
  // The loop must have ended, the latest start's device must have been opened: later by one idle
  // sleep, and by the polls that come in between.
  struct Deadline {
    uint64_t at_micros = UINT64_MAX;
    bool slept = false;
  };
  void Expect(Deadline& deadline);
  void Delay(uint64_t micros, bool by_sleep);
  Deadline exit_;
  Deadline start_;
  uint64_t poll_micros_ = 0;  // since then the battery is polled
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_WATCH_H_
