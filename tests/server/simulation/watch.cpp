#include "watch.h"

#include <algorithm>
#include <cstring>
#include <cwctype>

#include "note.h"
#include "perilink_platform/world.h"
#include "seam.h"
#include "support/failing_new.h"
#include "transport/frame.h"

namespace perilink::testing {
namespace {

// A little longer than anything that is done at once.
constexpr uint64_t kSoonMicros = 12'000;

// The letters of a path that may carry a mark.
constexpr size_t kMarkedLength = 40;

struct Mark {
  StartNumber start = 0;
  bool output = false;
};

Mark MarkOf(const std::wstring& path) {
  uint32_t bits = 0;
  int letter = 0;
  for (const wchar_t unit : path.substr(0, kMarkedLength))
    if (std::iswalpha(static_cast<wint_t>(unit)) != 0)
      bits |= static_cast<uint32_t>(std::iswupper(static_cast<wint_t>(unit)) != 0) << letter++;
  return {bits >> 1, (bits & 1) != 0};
}

std::wstring Lower(std::wstring path) {
  for (wchar_t& unit : path)
    unit = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(unit)));
  return path;
}

}  // namespace

std::wstring MarkedPath(std::wstring path, StartNumber start, bool output) {
  uint32_t bits = start << 1 | static_cast<uint32_t>(output);
  for (size_t i = 0; bits != 0; ++i) {
    const auto unit = static_cast<wint_t>(path.at(i));
    if (std::iswalpha(unit) == 0) continue;
    if ((bits & 1) != 0) path[i] = static_cast<wchar_t>(std::towupper(unit));
    bits >>= 1;
  }
  return path;
}

Watch::Watch(std::mt19937_64& random) : random_(random) {
  for (size_t i = 0; i < devices.size(); ++i)
    devices[i] = std::make_unique<Device>(i, random);
  TheEar() = this;
}
Watch::~Watch() {
  TheEar() = nullptr;
}

// ---- Hosts ------------------------------------------------------------------------------------

void Watch::OnStart(StartNumber start, size_t device) {
  Note("start", start, device);
  server.OnStart(start, *devices[device]);
  exit_ = {};
  Expect(start_);
}

void Watch::OnExit() {
  Note("exit");
  start_ = {};
  Expect(exit_);
}

void Watch::OnSleepTime(uint32_t sleep_ms) {
  longest_sleep_ms_ = std::max(longest_sleep_ms_, sleep_ms);
}

void Watch::Ask(const std::optional<CommandFrame>& question) {
  questions_.push_back({std::this_thread::get_id(), question, 0, {}, Now()});
}

Watch::Question* Watch::QuestionOfThread() {
  const auto found = std::find_if(
      questions_.begin(), questions_.end(),
      [](const Question& question) { return question.thread == std::this_thread::get_id(); });
  return found == questions_.end() ? nullptr : &*found;
}

Watch::Question Watch::TakeAnswer() {
  const Question question = *QuestionOfThread();
  std::erase_if(questions_, [&](const Question& it) { return it.thread == question.thread; });
  return question;
}

void Watch::Disturb(uint64_t micros) {
  calm_micros_ = platform::NowMicros() + micros;
}

// ---- Handles ----------------------------------------------------------------------------------

Watch::Handle* Watch::Find(HANDLE handle) {
  const auto found = std::find_if(handles_.begin(), handles_.end(),
                                  [handle](const Handle& it) { return it.handle == handle; });
  return found == handles_.end() ? nullptr : &*found;
}

bool Watch::Has(Role role) const {
  return std::any_of(handles_.begin(), handles_.end(),
                     [role](const Handle& it) { return it.role == role; });
}

Device* Watch::DeviceAt(const std::wstring& path) const {
  for (const auto& device : devices)
    if (device->path() == path) return device.get();
  return nullptr;
}

Watch::Role Watch::RoleOf(const std::wstring& path) {
  const Mark mark = MarkOf(path);
  if (mark.start == 0) return Role::kHost;
  if (!OnServerThread()) Broken("the server's device is opened by another thread");
  if (mark.output || opens_input_) TakeFailure();
  if (mark.output) {
    if (Has(Role::kServerOutput) || Has(Role::kServerInput))
      Broken("the last device is still open");
    opens_input_ = true;
    CheckTimes();
    if (mark.start == server.start()) start_ = {};
    server.OnConnected(mark.start);
    return Role::kServerOutput;
  }
  if (std::exchange(opens_input_, false)) {
    opened_micros_ = platform::NowMicros();
    reopens_ = false;
    polled_ = mark.start;
    battery.OnConnected();
    return Role::kServerInput;
  }
  if (polled_ != 0 && mark.start != polled_) Broken("another device's battery is polled");
  battery.OnPollOpened();
  poll_micros_ = platform::NowMicros();
  return Role::kPoll;
}

void Watch::OnOpened(const wchar_t* path, HANDLE handle, bool overlapped) {
  const Role role = RoleOf(path);
  Note("open", static_cast<uint64_t>(role), MarkOf(path).start);
  if (handle == INVALID_HANDLE_VALUE) return;
  Device* const device = DeviceAt(Lower(path));
  if (device == nullptr) return;
  Handle& it = handles_.emplace_back();
  it.handle = handle;
  it.role = role;
  it.device = device;
  if (overlapped) device->Connect(it.inbox);
}

void Watch::OnClosing(HANDLE handle) {
  if (handle == loop_timer_) {
    Note("loop ends");
    TakeFailure();
    CheckTimes();
    battery.OnLoopEnd();
    if (Has(Role::kServerOutput) || Has(Role::kServerInput)) Broken("the loop leaves handles open");
    loop_timer_ = nullptr;
    loop_runs_ = false;
    server_thread_ = {};
    FailingNew::Disarm();
    exit_ = {};
    return;
  }
  Handle* const it = Find(handle);
  if (it == nullptr) return;
  Note("close", static_cast<uint64_t>(it->role));
  if (it->role == Role::kServerInput) CheckLetGo(*it->device);
  if (it->role == Role::kPoll) {
    free_micros_ = std::max(free_micros_, platform::NowMicros());
    Delay(platform::NowMicros() - poll_micros_, false);
    poll_micros_ = platform::NowMicros();
  }
  it->device->Disconnect(it->inbox);
  handles_.remove_if([handle](const Handle& other) { return other.handle == handle; });
}

// A device that is there is kept, until its host asks for something else.
void Watch::CheckLetGo(const Device& device) {
  const bool opened_in_vain = platform::NowMicros() - opened_micros_ < 1000 || reopens_;
  if (device.present() && !opened_in_vain && exit_.at_micros == UINT64_MAX &&
      start_.at_micros == UINT64_MAX)
    Broken("a device that is there is let go of");
}

void Watch::OnWritten(HANDLE handle, const uint8_t* report, size_t size, bool written) {
  const Handle* const it = Find(handle);
  if (it == nullptr) return;
  CommandFrame frame{};
  if (size != sizeof(frame)) Broken("a frame of another length");
  std::memcpy(&frame, report, size);
  Note(written ? "write" : "failed write", frame.command, FrameAddress(frame));
  if (it->role == Role::kServerOutput) {
    CheckTimes();
    server.OnWritten(frame, written);
  }
  if (it->role == Role::kPoll) battery.OnPollWritten(frame);
  if (it->role != Role::kHost) return;
  Question* const question = QuestionOfThread();
  if (question == nullptr || !question->frame) return;
  if (std::memcmp(&frame, &*question->frame, size) != 0 || ++question->writes > 3)
    Broken("a direct command asks something else, or too often");
}

// ---- Reports ----------------------------------------------------------------------------------

void Watch::OnReadPosted(HANDLE handle, uint8_t* buffer) {
  Handle* const it = Find(handle);
  if (it == nullptr) return;
  it->buffer = buffer;
  it->inbox.Post();
}

void Watch::OnReadTaken(HANDLE handle, bool success) {
  Handle* const it = Find(handle);
  if (it == nullptr) return;
  CheckTimes();
  const std::optional<Sent> sent = it->inbox.Take();
  if (!success) return;
  if (!sent || std::memcmp(it->buffer, &sent->report, sizeof(sent->report)) != 0)
    Broken("a report is read that no device has sent");
  Note("read", sent->report.command, FrameAddress(sent->report));
  if (it->role == Role::kServerInput) Preempt();
  if (TheNotes().canary && sent->report.command == PERILINK_COMMAND_READ_MEMORY) {
    // One bit of the first byte, and its check.
    it->buffer[6] ^= 1;
    it->buffer[16] = static_cast<uint8_t>(it->buffer[16] + (it->buffer[6] % 2 != 0 ? -1 : 1));
  }
  TakeReport(*it, *sent);
}

void Watch::TakeReport(Handle& handle, const Sent& sent) {
  if (handle.role == Role::kServerInput) {
    report_taken_ = true;
    server.OnReport(sent);
  }
  if (handle.role == Role::kPoll) battery.OnPollReport(sent.report);
  if (handle.role != Role::kHost) return;
  Question* const question = QuestionOfThread();
  if (question == nullptr) return;
  question->oldest = std::min(question->oldest, sent.moment);
  if (!question->frame || sent.report.command != question->frame->command ||
      FrameChecksum(sent.report) != sent.report.checksum)
    return;
  if (question->answer && sent.report.command != PERILINK_COMMAND_READ_MEMORY)
    Broken("a direct command goes on after its answer");
  question->answer = sent;
}

// ---- Time -------------------------------------------------------------------------------------

void Watch::OnLoopBegins(HANDLE timer) {
  Note("loop begins");
  if (loop_runs_) Broken("two loops run");
  loop_timer_ = timer;
  loop_runs_ = true;
  hears_alarm_ = platform::NowMicros() >= calm_micros_;
  free_micros_ = platform::NowMicros();
  server_thread_ = std::this_thread::get_id();
}

// Memory was short: a step may be cut short.
void Watch::TakeFailure() {
  if (!OnServerThread() || !FailingNew::HasFailed()) return;
  Note("allocation failed");
  FailingNew::Disarm();
  battery.OnShortage();
  polled_ = 0;
  reopens_ = memory_was_short_ = true;
  calm_micros_ = std::max(calm_micros_, platform::NowMicros() + 1'500'000);
}

void Watch::CheckServer() {
  TakeFailure();
  server.Check(std::exchange(memory_was_short_, false));
  battery.Check(free_micros_ / 1000);
}

void Watch::OnPause(std::optional<DWORD> sleep_ms) {
  if (OnServerThread() && !Has(Role::kPoll)) {
    report_taken_ = false;
    CheckServer();
    if (sleep_ms.value_or(0) != 0) {
      free_micros_ = platform::NowMicros() + *sleep_ms * 1000;
      Delay(*sleep_ms * 1000, true);
    }
  }
  CheckTimes();
}

void Watch::OnResume() {
  if (OnServerThread() && failing_allocation_ != 0)
    FailingNew::Arm(std::exchange(failing_allocation_, 0));
}

void Watch::OnLock() {
  if (OnServerThread() && !std::exchange(report_taken_, false)) Preempt();
}

// The server's thread does not run for a while, between two of its steps.
void Watch::Preempt() {
  if (random_() % 40 != 0) return;
  const auto for_ms = static_cast<DWORD>(1 + random_() % (random_() % 4 == 0 ? 200 : 30));
  Note("preempted", for_ms);
  preempted_micros_ = platform::NowMicros() + for_ms * 1000;
  free_micros_ = std::max(free_micros_, preempted_micros_);
  Delay(for_ms * 1000, false);
  SleepUnheard(for_ms);
}

void Watch::Expect(Deadline& deadline) {
  const uint64_t now = platform::NowMicros();
  deadline = {.at_micros = std::max(now, free_micros_), .slept = false};
}

void Watch::Delay(uint64_t micros, bool by_sleep) {
  for (Deadline* const it : {&exit_, &start_}) {
    if (it->at_micros == UINT64_MAX || (by_sleep && std::exchange(it->slept, true))) continue;
    it->at_micros += micros;
  }
}

void Watch::CheckTimes() {
  const uint64_t now = platform::NowMicros();
  if (!loop_runs_ || now < calm_micros_ || Has(Role::kPoll)) return;
  const auto late = [&](uint64_t since) {
    return now > std::max(since, calm_micros_) + kSoonMicros;
  };
  const uint64_t deaf_micros = hears_alarm_ ? 0 : 110'000;
  if (exit_.at_micros != UINT64_MAX && late(exit_.at_micros + deaf_micros))
    Broken("the loop does not end");
  if (start_.at_micros != UINT64_MAX && late(start_.at_micros + deaf_micros))
    Broken("a start's device is not opened");
  if (exit_.at_micros != UINT64_MAX || start_.at_micros != UINT64_MAX) return;
  const auto ready = server.ready_micros();
  if (ready && Has(Role::kServerOutput) && late(std::max(*ready, free_micros_)))
    Broken("a frame is not written in time");
  for (const Handle& handle : handles_) {
    if (handle.role != Role::kServerInput && handle.role != Role::kServerOutput) continue;
    if (handle.role == Role::kServerInput && !handle.inbox.Empty() &&
        late(std::max(handle.inbox.since_micros(), free_micros_)))
      Broken("a report is left unread");
    // It shows when the next answer is overdue. Or else, a sleep later each: a report that came
    // before is taken, a read can't be posted, and the device is looked for. One that could not be
    // opened for reading is looked for once a second.
    const uint64_t gone = handle.device->gone_micros();
    const uint64_t since = std::max({gone, ready.value_or(0), preempted_micros_});
    const uint64_t unread_micros = Has(Role::kServerInput) ? 0 : 1'000'000;
    if (gone != 0 && late(since + 3'000 * longest_sleep_ms_ + unread_micros))
      Broken("a device has gone, and nobody has noticed");
  }
}

}  // namespace perilink::testing
