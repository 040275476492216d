#include "transport/exchange.h"

#include <algorithm>
#include <optional>

#include "perilink/finder.h"
#include "platform/guard.h"
#include "platform/runtime.h"
#include "transport/link.h"

namespace perilink {
namespace {

// One request on an open link.
class Exchange {
 public:
  Exchange(Link& link, const CommandFrame& request) : link_(link), request_(request) {}

  // One write, and the wait for its reply. The read is posted first, so that a reply that comes at
  // once finds it.
  std::optional<ValidFrame> Try(uint32_t timeout_ms) {
    link_.Listen();
    if (!link_.Write(request_)) return std::nullopt;
    std::optional<ValidFrame> without_address;
    const int64_t start_micros = MonotonicMicros();
    for (uint64_t passed_ms = 0;;) {
      const Arrival arrival = link_.Next(timeout_ms - static_cast<uint32_t>(passed_ms));
      if (arrival == Arrival::kFailure) return std::nullopt;
      if (arrival == Arrival::kReport) {
        const std::optional<ValidFrame> frame = link_.frame();
        if (!frame || (*frame)->command != request_.command) {
          if (!without_address) return std::nullopt;
        } else if (IsExact(**frame)) {
          return frame;
        } else if (FrameAddress(**frame) == 0) {
          without_address = frame;
        } else {
          echoes_addresses_ = true;
        }
      }
      passed_ms = static_cast<uint64_t>(MonotonicMicros() - start_micros) / 1000;
      if (passed_ms >= timeout_ms) break;
    }
    return echoes_addresses_ ? std::nullopt : without_address;
  }

 private:
  bool IsExact(const CommandFrame& reply) const {
    return request_.command != PERILINK_COMMAND_READ_MEMORY ||
           FrameAddress(reply) == FrameAddress(request_);
  }

  Link& link_;
  const CommandFrame& request_;
  bool echoes_addresses_ = false;
};

}  // namespace

bool ExchangeFrame(const std::wstring& path, const CommandFrame& request, CommandFrame& reply,
                   int32_t retries, int32_t timeout_ms) {
  reply = CommandFrame{};
  Link link(sizeof(CommandFrame));
  if (!link.Open(path)) return false;
  Exchange exchange(link, request);
  for (int64_t tries = int64_t{retries} + 1; tries > 0; --tries) {
    if (const auto accepted = exchange.Try(static_cast<uint32_t>(timeout_ms))) {
      reply = **accepted;
      return true;
    }
  }
  return false;
}

}  // namespace perilink

bool UsbFinder_GetDeviceData(const std::wstring& path, const CommandFrame* request,
                             CommandFrame* reply) {
  // A copy: the caller may have its reply take the request's place.
  const CommandFrame frame = *request;
  *reply = CommandFrame{};
  return perilink::Guarded(false, [&] { return perilink::ExchangeFrame(path, frame, *reply); });
}

void UsbFinder_GetUsbDeviceAttribute(const std::wstring& path,
                                     struct _HIDD_ATTRIBUTES* attributes) {
  perilink::Guarded([&] {
    perilink::DeviceHandles handles;
    handles.Open(nullptr, &path);
    handles.GetAttributes(*attributes);
  });
}
