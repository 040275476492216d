#include "transport/pass_through.h"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>

#include "perilink/finder.h"
#include "platform/guard.h"
#include "platform/runtime.h"
#include "transport/link.h"

namespace perilink {
namespace {

constexpr int kRawTries = 2;
constexpr uint32_t kRawTimeoutMs = 200;

// The RawDeviceHandles. They are closed when they are no longer stored and no exchange uses them.
// Never destroyed: a host may exchange while the process exits.
class RawDevice {
 public:
  using Handles = std::shared_ptr<DeviceHandles>;

  static RawDevice& Instance() {
    static RawDevice& device = *new RawDevice;
    return device;
  }

  // Null when nothing is open.
  Handles Get() {
    const std::lock_guard lock(mutex_);
    return handles_;
  }
  void Put(Handles handles) {
    const std::lock_guard lock(mutex_);
    handles_.swap(handles);
  }

 private:
  std::mutex mutex_;
  Handles handles_;
};

// The first report that the link brings in time.
bool TakeReply(Link& link, std::span<uint8_t> reply) {
  const int64_t start_micros = MonotonicMicros();
  for (uint32_t passed_ms = 0; passed_ms < kRawTimeoutMs;) {
    const Arrival arrival = link.Next(kRawTimeoutMs - passed_ms);
    if (arrival == Arrival::kFailure) return false;
    if (arrival == Arrival::kReport) {
      std::copy_n(link.report().begin(), reply.size(), reply.begin());
      return true;
    }
    passed_ms = static_cast<uint32_t>((MonotonicMicros() - start_micros) / 1000);
  }
  return false;
}

}  // namespace

bool OpenRawDevice(const std::wstring& path) {
  const auto handles = std::make_shared<DeviceHandles>();
  handles->Open(&path, &path);
  RawDevice::Instance().Put(handles);
  return handles->CanWrite() && handles->CanRead();
}

void CloseRawDevice() {
  RawDevice::Instance().Put(nullptr);
}

bool WriteRaw(std::span<const uint8_t> report) {
  const auto handles = RawDevice::Instance().Get();
  return handles && handles->Write(report);
}

bool ExchangeRaw(std::span<const uint8_t> request, std::span<uint8_t> reply) {
  // The caller may have its reply take the request's place.
  std::array<uint8_t, Link::kLongestReport> copy{};
  std::copy(request.begin(), request.end(), copy.begin());
  std::fill(reply.begin(), reply.end(), uint8_t{0});

  const auto handles = RawDevice::Instance().Get();
  if (!handles) return false;
  Link link(*handles, reply.size());
  if (!link.Prepare()) return false;
  // One read serves both tries. The link's destructor drains it, however they end.
  link.Listen();
  for (int tries = kRawTries; tries > 0; --tries) {
    if (link.Write(std::span(copy).first(request.size())) && TakeReply(link, reply)) return true;
  }
  return false;
}

}  // namespace perilink

bool UsbFinder_WriteDeviceData(const uint8_t* data, uint8_t length) {
  return perilink::Guarded(false, [&] { return perilink::WriteRaw({data, length}); });
}
