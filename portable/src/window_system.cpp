#include "window_system.h"

#include <algorithm>
#include <cstring>

#include "path.h"
#include "perilink_platform/error.h"

namespace perilink::platform {
namespace {

constexpr size_t kMostPosted = 10'000;
constexpr ATOM kFirstAtom = 0xC000;

Thread& Self() {
  return Scheduler::Get().Current("a window call");
}

// A class name that is the number RegisterClassW gave.
bool IsAtom(const wchar_t* name) {
  return reinterpret_cast<uintptr_t>(name) <= 0xFFFF;
}

std::vector<std::byte> DeviceBroadcast(const std::wstring& path) {
  const size_t name_at = offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name);
  const size_t size = name_at + (path.size() + 1) * sizeof(WCHAR);
  DEV_BROADCAST_DEVICEINTERFACE_W head{};
  head.dbcc_size = static_cast<DWORD>(size);
  head.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
  head.dbcc_classguid = GUID_DEVINTERFACE_USB_DEVICE;
  std::vector<std::byte> record(std::max(size, sizeof(head)));
  std::memcpy(record.data(), &head, sizeof(head));
  std::memcpy(record.data() + name_at, path.c_str(), (path.size() + 1) * sizeof(WCHAR));
  return record;
}

}  // namespace

void DestroyWindowsOf(Thread& thread) {
  WindowSystem::Get().DestroyAllOf(thread);
}

WindowSystem& WindowSystem::Get() {
  static auto* const system = new WindowSystem;
  return *system;
}

std::shared_ptr<Window> WindowSystem::FindWindow(HWND window) {
  const auto found = windows_.find(window);
  return found == windows_.end() ? nullptr : found->second;
}

std::shared_ptr<const WindowClass> WindowSystem::FindClass(const wchar_t* name) {
  for (const auto& known : classes_) {
    if (IsAtom(name) ? known->atom == reinterpret_cast<uintptr_t>(name)
                     : SamePath(known->name, name))
      return known;
  }
  return nullptr;
}

DWORD WindowSystem::RegisterClass(const std::wstring& name, WNDPROC procedure, ATOM& atom) {
  const std::lock_guard lock(mutex_);
  if (FindClass(name.c_str()) != nullptr) return ERROR_CLASS_ALREADY_EXISTS;
  atom = static_cast<ATOM>(kFirstAtom + classes_.size());
  classes_.push_back(std::make_shared<const WindowClass>(WindowClass{atom, name, procedure}));
  return 0;
}

DWORD WindowSystem::Create(CREATESTRUCTW& create, HWND& window) {
  const auto created = std::make_shared<Window>();
  {
    const std::lock_guard lock(mutex_);
    created->window_class = FindClass(create.lpszClass);
    if (created->window_class == nullptr) return ERROR_CANNOT_FIND_WND_CLASS;
    created->procedure = created->window_class->procedure;
    created->title = create.lpszName != nullptr ? create.lpszName : L"";
    created->owner = &Self();
    last_window_ += 2;
    created->handle = reinterpret_cast<HWND>(last_window_);  // NOLINT(performance-no-int-to-ptr)
    windows_.emplace(created->handle, created);
  }
  const WNDPROC procedure = created->procedure;
  const auto parameter = reinterpret_cast<LPARAM>(&create);
  if (procedure(created->handle, WM_NCCREATE, 0, parameter) == FALSE) {
    const std::lock_guard lock(mutex_);
    Forget(*created);
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  if (procedure(created->handle, WM_CREATE, 0, parameter) == -1) {
    Destroy(created->handle);
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  window = created->handle;
  return 0;
}

DWORD WindowSystem::Destroy(HWND window) {
  std::shared_ptr<Window> doomed;
  {
    const std::lock_guard lock(mutex_);
    doomed = FindWindow(window);
    if (doomed == nullptr || doomed->destroying) return ERROR_INVALID_WINDOW_HANDLE;
    if (doomed->owner != &Self()) return ERROR_ACCESS_DENIED;
    doomed->destroying = true;
  }
  doomed->procedure.load()(window, WM_DESTROY, 0, 0);
  doomed->procedure.load()(window, WM_NCDESTROY, 0, 0);
  const std::lock_guard lock(mutex_);
  Forget(*doomed);
  return 0;
}

// Takes a window out of the system together with the messages that wait for it.
void WindowSystem::Forget(Window& window) {
  MessageQueue& queue = window.owner->messages;
  std::erase_if(queue.posted, [&window](const MSG& m) { return m.hwnd == window.handle; });
  for (const auto& sent : queue.sent) {
    if (sent->window == window.handle) Answer(sent, false, 0);
  }
  std::erase_if(queue.sent, [&window](const auto& sent) { return sent->window == window.handle; });
  windows_.erase(window.handle);
}

void WindowSystem::DestroyAllOf(Thread& thread) {
  const std::lock_guard lock(mutex_);
  for (auto next = windows_.begin(); next != windows_.end();) {
    const std::shared_ptr<Window> window = (next++)->second;
    if (window->owner == &thread) Forget(*window);
  }
}

WNDPROC WindowSystem::Procedure(HWND window) {
  const std::lock_guard lock(mutex_);
  const auto found = FindWindow(window);
  return found == nullptr ? nullptr : found->procedure.load();
}

WNDPROC WindowSystem::SetProcedure(HWND window, WNDPROC procedure) {
  const std::lock_guard lock(mutex_);
  const auto found = FindWindow(window);
  return found == nullptr ? nullptr : found->procedure.exchange(procedure);
}

bool WindowSystem::Exists(HWND window) {
  const std::lock_guard lock(mutex_);
  return FindWindow(window) != nullptr;
}

HWND WindowSystem::Find(const wchar_t* class_name, const wchar_t* title) {
  const std::lock_guard lock(mutex_);
  const auto wanted = class_name != nullptr ? FindClass(class_name) : nullptr;
  if (class_name != nullptr && wanted == nullptr) return nullptr;
  for (const auto& [handle, window] : windows_) {
    if (wanted != nullptr && window->window_class != wanted) continue;
    if (title == nullptr || SamePath(window->title, title)) return handle;
  }
  return nullptr;
}

DWORD WindowSystem::Post(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  const std::lock_guard lock(mutex_);
  Thread* owner = &Self();
  if (window != nullptr) {
    const auto target = FindWindow(window);
    if (target == nullptr) return ERROR_INVALID_WINDOW_HANDLE;
    owner = target->owner;
  }
  MessageQueue& queue = owner->messages;
  if (queue.posted.size() >= kMostPosted) return ERROR_NOT_ENOUGH_QUOTA;
  const auto time = static_cast<DWORD>(Scheduler::Get().Now() / 1000);
  queue.posted.push_back(MSG{window, message, wparam, lparam, time, {}});
  Scheduler::Get().Set(owner->message_came);
  return 0;
}

DWORD WindowSystem::Send(HWND window, UINT message, WPARAM wparam, LPARAM lparam, LRESULT& result) {
  Thread& self = Self();
  const auto sent = std::make_shared<SentMessage>();
  std::unique_lock lock(mutex_);
  const auto target = FindWindow(window);
  if (target == nullptr) return ERROR_INVALID_WINDOW_HANDLE;
  if (target->owner == &self) {
    lock.unlock();
    result = target->procedure.load()(window, message, wparam, lparam);
    return 0;
  }
  sent->window = window;
  sent->message = message;
  sent->wparam = wparam;
  sent->lparam = lparam;
  sent->sender = &self;
  target->owner->messages.sent.push_back(sent);
  Scheduler::Get().Set(target->owner->message_came);
  while (true) {
    Scheduler::Get().Reset(self.message_came);
    if (sent->done) break;
    lock.unlock();
    HandleSent(self);
    lock.lock();
    if (sent->done) break;
    lock.unlock();
    Scheduler::Get().Wait(self.message_came, kForever,
                          {"the answer of window", reinterpret_cast<uintptr_t>(window)});
    lock.lock();
  }
  result = sent->result;
  return sent->handled ? 0 : ERROR_INVALID_WINDOW_HANDLE;
}

void WindowSystem::Answer(const std::shared_ptr<SentMessage>& sent, bool handled, LRESULT result) {
  sent->handled = handled;
  sent->result = result;
  sent->done = true;
  if (sent->sender != nullptr) Scheduler::Get().Set(sent->sender->message_came);
}

void WindowSystem::HandleSent(Thread& self) {
  auto& waiting = self.messages.sent;
  while (true) {
    std::shared_ptr<SentMessage> sent;
    std::shared_ptr<Window> window;
    {
      const std::lock_guard lock(mutex_);
      if (waiting.empty()) return;
      sent = waiting.front();
      waiting.pop_front();
      window = FindWindow(sent->window);
      if (window == nullptr || window->owner != &self) {
        Answer(sent, false, 0);
        continue;
      }
    }
    const LRESULT result =
        window->procedure.load()(sent->window, sent->message, sent->wparam, sent->lparam);
    const std::lock_guard lock(mutex_);
    Answer(sent, true, result);
  }
}

void WindowSystem::PostQuit(int exit_code) {
  const std::lock_guard lock(mutex_);
  Thread& self = Self();
  self.messages.quit = true;
  self.messages.exit_code = exit_code;
  Scheduler::Get().Set(self.message_came);
}

bool WindowSystem::Pump(HWND window, bool remove, MSG& message) {
  Thread& self = Self();
  // Before the look, so that what comes after it sets it again.
  Scheduler::Get().Reset(self.message_came);
  HandleSent(self);
  const std::lock_guard lock(mutex_);
  return TakePosted(self.messages, window, remove, message);
}

bool WindowSystem::TakePosted(MessageQueue& queue, HWND window, bool remove, MSG& message) {
  const auto found = std::find_if(queue.posted.begin(), queue.posted.end(), [window](const MSG& m) {
    return window == nullptr || m.hwnd == window;
  });
  if (found != queue.posted.end()) {
    message = *found;
    if (remove) queue.posted.erase(found);
    return true;
  }
  if (!queue.quit) return false;
  message = MSG{};
  message.message = WM_QUIT;
  message.wParam = static_cast<WPARAM>(queue.exit_code);
  if (remove) queue.quit = false;
  return true;
}

void WindowSystem::AwaitMessage(uint64_t timeout) {
  Scheduler::Get().Wait(Self().message_came, timeout, {"a message"});
}

LRESULT WindowSystem::Dispatch(const MSG& message) {
  std::unique_lock lock(mutex_);
  const auto window = FindWindow(message.hwnd);
  if (window == nullptr || window->owner != &Self()) return 0;
  lock.unlock();
  return window->procedure.load()(message.hwnd, message.message, message.wParam, message.lParam);
}

DWORD WindowSystem::RegisterNotification(HWND window) {
  const std::lock_guard lock(mutex_);
  const auto target = FindWindow(window);
  if (target == nullptr) return ERROR_INVALID_WINDOW_HANDLE;
  target->notified = true;
  return 0;
}

void WindowSystem::NotifyDeviceChange(const std::wstring& path, bool arrived) {
  const std::lock_guard lock(mutex_);
  // All are made before the first is on its way: without memory nobody is told.
  std::list<std::shared_ptr<SentMessage>> messages;
  for (const auto& [handle, window] : windows_) {
    if (!window->notified) continue;
    const auto& sent = messages.emplace_back(std::make_shared<SentMessage>());
    sent->window = handle;
    sent->message = WM_DEVICECHANGE;
    sent->wparam = arrived ? DBT_DEVICEARRIVAL : DBT_DEVICEREMOVECOMPLETE;
    sent->payload = DeviceBroadcast(path);
    sent->lparam = reinterpret_cast<LPARAM>(sent->payload.data());
  }
  while (!messages.empty()) {
    Thread& owner = *windows_.at(messages.front()->window)->owner;
    owner.messages.sent.splice(owner.messages.sent.end(), messages, messages.begin());
    Scheduler::Get().Set(owner.message_came);
  }
}

}  // namespace perilink::platform
