#include "server/flash_read.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

#include "perilink/server.h"
#include "platform/guard.h"
#include "protocol/check_byte.h"
#include "protocol/key_events.h"
#include "protocol/stored.h"
#include "server/state.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr uint32_t kFrameBytes = kFrameDataCapacity;
constexpr int32_t kLongestRead = kReplyFrameLimit * kFrameDataCapacity;

QueueEntry ReadEntry(uint32_t address, uint32_t length, uint8_t tag, bool last) {
  QueueEntry entry = SingleEntry(BuildFrame(kCommandReadMemory, static_cast<uint8_t>(length), {},
                                            static_cast<uint16_t>(address)));
  entry.continuation = tag;
  entry.last_chunk = last ? 1 : 0;
  return entry;
}

// ---- The image and its slots -------------------------------------------------------------------

constexpr uint32_t kSettingsSize = PERILINK_SETTINGS_BLOCK_SIZE;
constexpr uint32_t kExtensionAddress = 6912;
constexpr uint32_t kExtensionSize = 48;
constexpr uint8_t kErased = 0xFF;

constexpr uint8_t kSlots = std::size(ProtocolData{}.macros);
constexpr uint32_t ShortcutAddress(uint8_t slot) {
  return PERILINK_SHORTCUT_ADDRESS + uint32_t{PERILINK_SHORTCUT_SLOT_SIZE} * slot;
}
constexpr uint32_t MacroAddress(uint8_t slot) {
  return PERILINK_MACRO_ADDRESS + uint32_t{PERILINK_MACRO_SLOT_SIZE} * slot;
}

constexpr bool IsNameLength(uint8_t length) {
  return length >= 1 && length <= kMaxMacroName;
}

// Larger than the image, so that no address of a step needs a second thought.
constinit std::array<uint8_t, 8192> image{};
static_assert(MacroAddress(kSlots - 1) + PERILINK_MACRO_SLOT_SIZE <= sizeof(image));
static_assert(kExtensionAddress + kExtensionSize == PERILINK_FLASH_IMAGE_SIZE);

// ---- The chain ---------------------------------------------------------------------------------

using Data = std::span<const uint8_t, kReplyDataSize>;

// The steps by their tags: each kind of slot has a tag of its own for each slot.
enum Tag : uint8_t {
  kTagSettings = 1,
  kTagShortcutProbe = 2,
  kTagShortcut = kTagShortcutProbe + kSlots,
  kTagMacroProbe = kTagShortcut + kSlots,
  kTagMacroProbeAgain = kTagMacroProbe + kSlots,
  kTagMacro = kTagMacroProbeAgain + kSlots,
  kTagExtension = kTagMacro + kSlots,
};
static_assert(kTagExtension == kLastFlashReadTag);

void Finish() {
  const ServerReportCallback callback = ServerState::Instance().Callback();
  if (callback == nullptr) return;
  StoredProtocolData::Instance().Parse(image.data());
  CommandFrame frame{};
  frame.report_id = kReportId;
  frame.command = kCommandReadMemory;
  callback(FrameBytes(frame).data(), sizeof(frame), image.data(), PERILINK_FLASH_IMAGE_SIZE);
}

void ProbeMacro(uint8_t slot) {
  if (slot == kSlots) {
    Finish();
    return;
  }
  // Name length and event count stand too far apart for one frame.
  const uint8_t tag = static_cast<uint8_t>(kTagMacroProbe + slot);
  const uint32_t address = MacroAddress(slot);
  const QueueEntry probe[] = {
      ReadEntry(address, kFrameBytes, tag, false),
      ReadEntry(address + PERILINK_MACRO_COUNT_OFFSET, kFrameBytes, tag, true),
  };
  ServerState::Instance().Append(probe);
}

void ProbeShortcut(uint8_t slot) {
  if (slot == kSlots) {
    ProbeMacro(0);
    return;
  }
  QueueMemoryRead(ShortcutAddress(slot), kFrameBytes,
                  static_cast<uint8_t>(kTagShortcutProbe + slot));
}

void TakeSettings(Data data) {
  std::fill(image.begin() + kSettingsSize, image.end(), kErased);
  std::copy_n(data.begin(), kSettingsSize, image.begin());
  QueueMemoryRead(kExtensionAddress, kExtensionSize, kTagExtension);
}

void TakeExtension(Data data) {
  std::copy_n(data.begin(), kExtensionSize, image.begin() + kExtensionAddress);
  ProbeShortcut(0);
}

void TakeShortcutProbe(uint8_t slot, Data data) {
  const uint8_t count = data[0];
  if (!IsShortcutCount(count)) {
    ProbeShortcut(static_cast<uint8_t>(slot + 1));
    return;
  }
  QueueMemoryRead(ShortcutAddress(slot), static_cast<int32_t>(ShortcutLength(count)),
                  static_cast<uint8_t>(kTagShortcut + slot));
}

void TakeShortcut(uint8_t slot, Data data) {
  const uint8_t count = data[0];
  const size_t length = ShortcutLength(count);
  if (IsShortcutCount(count) && CheckHolds(data.data(), length - 1))
    std::copy_n(data.begin(), length, image.begin() + ShortcutAddress(slot));
  ProbeShortcut(static_cast<uint8_t>(slot + 1));
}

void TakeMacroProbe(uint8_t slot, Data data) {
  const uint8_t name_length = data[0];
  const uint8_t count = data[kFrameBytes];
  if (!IsNameLength(name_length)) {
    ProbeMacro(static_cast<uint8_t>(slot + 1));
    return;
  }
  const size_t length = IsMacroCount(count) ? MacroLength(count) : name_length + size_t{1};
  QueueMemoryRead(MacroAddress(slot), static_cast<int32_t>(length),
                  static_cast<uint8_t>(kTagMacro + slot));
}

// Through the record and back: the slot is stored in its normalised form.
void TakeMacro(uint8_t slot, Data data) {
  MacroKey macro{};
  DecodeMacro(data.first<PERILINK_MACRO_SLOT_SIZE>(), macro);
  EncodeMacro(macro, MacroSlot(image.data() + MacroAddress(slot), PERILINK_MACRO_SLOT_SIZE));
  ProbeMacro(static_cast<uint8_t>(slot + 1));
}

}  // namespace

void QueueMemoryRead(uint32_t address, int32_t length, uint8_t continuation) {
  if (length < 1 || length > kLongestRead) return;
  auto remaining = static_cast<uint32_t>(length);
  std::vector<QueueEntry> entries;
  entries.reserve((remaining + kFrameBytes - 1) / kFrameBytes);
  while (remaining > 0) {
    const uint32_t step = std::min(remaining, kFrameBytes);
    remaining -= step;
    entries.push_back(ReadEntry(address, step, continuation, remaining == 0));
    address += step;
  }
  ServerState::Instance().Append(entries);
}

void ContinueFlashRead(uint8_t tag, std::span<const uint8_t, kReplyDataSize> data) {
  const auto slot_of = [tag](Tag first) { return static_cast<uint8_t>(tag - first); };
  if (tag == kTagSettings) {
    TakeSettings(data);
  } else if (tag < kTagShortcut) {
    TakeShortcutProbe(slot_of(kTagShortcutProbe), data);
  } else if (tag < kTagMacroProbe) {
    TakeShortcut(slot_of(kTagShortcut), data);
  } else if (tag < kTagMacroProbeAgain) {
    TakeMacroProbe(slot_of(kTagMacroProbe), data);
  } else if (tag < kTagMacro) {
    TakeMacroProbe(slot_of(kTagMacroProbeAgain), data);
  } else if (tag < kTagExtension) {
    TakeMacro(slot_of(kTagMacro), data);
  } else {
    TakeExtension(data);
  }
}

}  // namespace perilink

using perilink::Guarded;

void UsbServer_ReadFalshData(uint32_t address, int32_t length, uint8_t continuation) {
  Guarded([&] { perilink::QueueMemoryRead(address, length, continuation); });
}

void UsbServer_ReadAllFlashData(void) {
  UsbServer_ReadFalshData(0, perilink::kSettingsSize, perilink::kTagSettings);
}
void UsbServer_ReadReportRate(void) {
  UsbServer_ReadFalshData(0x0000, 1, 0);
}
void UsbServer_ReadCurrentDPI(void) {
  UsbServer_ReadFalshData(0x0004, 1, 0);
}
void UsbServer_ReadDPILed(void) {
  UsbServer_ReadFalshData(0x004C, 8, 0);
}
void UsbServer_ReadLedBar(void) {
  UsbServer_ReadFalshData(0x00A0, 9, 0);
}
