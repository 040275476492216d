#include "upgrade/report_writer.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "platform/guard.h"
#include "platform/handles.h"
#include "platform/module.h"

namespace perilink {
namespace {

// The longest wait of the thread for its writer, and of the writer's end for the thread.
constexpr DWORD kLongestIdleMs = 1000;

// Made signalled by one thread and reset by the wait of the other.
UniqueEvent CreateHandOverEvent() {
  return UniqueEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr));
}

}  // namespace

// What writer and thread hand to each other. It is the writer's until `go` is signalled, the
// thread's until `done` is; whoever leaves last frees it.
struct ReportWriter::Shared {
  std::shared_ptr<DeviceHandles> handles;
  UniqueEvent go = CreateHandOverEvent();
  UniqueEvent done = CreateHandOverEvent();
  std::array<uint8_t, PERILINK_PACKET_SIZE> bytes{};
  size_t length = 0;
  bool as_feature_report = false;
  bool written = false;
  std::atomic<bool> over{false};
};

ReportWriter::~ReportWriter() {
  if (!shared_) return;
  shared_->over = true;
  SetEvent(shared_->go.Get());
  // When the thread is done, it has released the handles. Unless a write is stuck, that is at once.
  if (!stuck_) WaitForSingleObject(shared_->done.Get(), kLongestIdleMs);
}

void ReportWriter::Work(void* parameter) {
  const std::unique_ptr<std::shared_ptr<Shared>> owned(
      static_cast<std::shared_ptr<Shared>*>(parameter));
  Shared& shared = **owned;
  while (!shared.over) {
    if (WaitForSingleObject(shared.go.Get(), kLongestIdleMs) != WAIT_OBJECT_0 || shared.over)
      continue;
    const auto bytes = std::span<const uint8_t>(shared.bytes).first(shared.length);
    shared.written = shared.as_feature_report ? shared.handles->SendFeature(bytes)
                                              : shared.handles->Write(bytes);
    SetEvent(shared.done.Get());
  }
  shared.handles.reset();
  SetEvent(shared.done.Get());
}

bool ReportWriter::Start() {
  if (shared_) return true;
  auto shared = std::make_shared<Shared>();
  if (!shared->go.Valid() || !shared->done.Valid()) return false;
  shared->handles = handles_;
  auto for_thread = std::make_unique<std::shared_ptr<Shared>>(shared);
  const UniqueEvent thread(StartLibraryThread(&Work, for_thread.get()));
  if (!thread.Valid()) return false;
  static_cast<void>(for_thread.release());
  shared_ = std::move(shared);
  return true;
}

Sent ReportWriter::Send(const UpgradeFileCommand& command, std::span<const uint8_t> bytes,
                        uint32_t timeout_ms) {
  if (stuck_) return Sent::kStuck;
  if (!Guarded(false, [this] { return Start(); })) return Sent::kNo;
  shared_->length = std::min(bytes.size(), shared_->bytes.size());
  std::copy_n(bytes.begin(), shared_->length, shared_->bytes.begin());
  shared_->as_feature_report = command.use_feature_report != 0;
  SetEvent(shared_->go.Get());
  stuck_ = WaitForSingleObject(shared_->done.Get(), timeout_ms) != WAIT_OBJECT_0;
  if (stuck_) return Sent::kStuck;
  return shared_->written ? Sent::kYes : Sent::kNo;
}

}  // namespace perilink
