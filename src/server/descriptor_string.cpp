#include <algorithm>
#include <array>
#include <string>

#include "perilink/server.h"
#include "platform/ansi_text.h"
#include "platform/guard.h"
#include "server/queued_commands.h"
#include "server/state.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr size_t kLongestText = 30;
constexpr size_t kMostChunks = kLongestText / kFrameDataCapacity;
static_assert(kLongestText % kFrameDataCapacity == 0);

QueueEntry ChunkEntry(std::span<const char> text, size_t offset) {
  const size_t length = std::min(text.size() - offset, kFrameDataCapacity);
  std::array<uint8_t, kFrameDataCapacity> chunk{};
  std::transform(text.begin() + static_cast<ptrdiff_t>(offset),
                 text.begin() + static_cast<ptrdiff_t>(offset + length), chunk.begin(),
                 [](char c) { return static_cast<uint8_t>(c); });
  // Total length and offset travel where memory commands have their address.
  const auto place = static_cast<uint16_t>(text.size() << 8 | offset);
  QueueEntry entry =
      SingleEntry(BuildFrame(PERILINK_COMMAND_DESCRIPTOR_STRING, static_cast<uint8_t>(length),
                             std::span(chunk).first(length), place));
  entry.last_chunk = offset + length == text.size() ? 1 : 0;
  return entry;
}

}  // namespace

void QueueDescriptorString(const std::wstring& text) {
  const std::wstring_view terminated(text.c_str());  // up to the first NUL
  const std::string narrow = WideToNarrow(terminated);
  if (narrow.empty() && !terminated.empty()) return;  // not to be expressed in the code page
  // The terminator goes along when there is room for it.
  const std::span bytes(narrow.c_str(), std::min(narrow.size() + 1, kLongestText));
  // All at once: without its last chunk a text would never be answered.
  std::array<QueueEntry, kMostChunks> entries;
  size_t count = 0;
  for (size_t offset = 0; offset < bytes.size(); offset += kFrameDataCapacity)
    entries[count++] = ChunkEntry(bytes, offset);
  ServerState::Instance().Append(std::span(entries).first(count));
}

}  // namespace perilink

void UsbServer_SetDeviceDescriptorString(const std::wstring& text) {
  perilink::Guarded([&] { perilink::QueueDescriptorString(text); });
}
