#include "server/flash_read.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

#include "perilink/server.h"
#include "platform/guard.h"
#include "protocol/key_events.h"
#include "protocol/stored.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr uint32_t kFrameBytes = kFrameDataCapacity;
constexpr int32_t kLongestRead = kReplyFrameLimit * kFrameDataCapacity;

QueueEntry ReadEntry(uint32_t address, uint32_t length, uint8_t tag, bool last) {
  QueueEntry entry =
      SingleEntry(BuildFrame(PERILINK_COMMAND_READ_MEMORY, static_cast<uint8_t>(length), {},
                             static_cast<uint16_t>(address)));
  entry.continuation = tag;
  entry.last_chunk = last ? 1 : 0;
  return entry;
}

// ---- The image and its slots -------------------------------------------------------------------

constexpr uint32_t kExtensionSize = PERILINK_DPI_LEVELS * PERILINK_DPI_EXTENSION_SIZE;

constexpr bool IsNameLength(uint8_t length) {
  return length >= 1 && length <= PERILINK_MACRO_NAME_SIZE;
}

using Image = std::array<uint8_t, PERILINK_FLASH_IMAGE_SIZE>;
static_assert(Perilink_MacroSlotAddress(PERILINK_SLOTS) <= sizeof(Image));
static_assert(PERILINK_DPI_EXTENSIONS_ADDRESS + kExtensionSize == sizeof(Image));

// The data of a memory write, as far as they lie in the image.
void LayOver(Image& image, const CommandFrame& write) {
  const size_t address = FrameAddress(write);
  if (address >= image.size()) return;
  const size_t declared = FrameDataLength(write);
  const size_t length = std::min({declared, kFrameDataCapacity, image.size() - address});
  std::copy_n(write.data, length, image.begin() + static_cast<ptrdiff_t>(address));
}

// ---- The chain ---------------------------------------------------------------------------------

using Data = std::span<const uint8_t, kReplyDataSize>;

// The steps by their tags: each kind of slot has a tag of its own for each slot.
enum Tag : uint8_t {
  kTagSettings = 1,
  kTagShortcutProbe = 2,
  kTagShortcut = kTagShortcutProbe + PERILINK_SLOTS,
  kTagMacroProbe = kTagShortcut + PERILINK_SLOTS,
  kTagMacroProbeAgain = kTagMacroProbe + PERILINK_SLOTS,
  kTagMacro = kTagMacroProbeAgain + PERILINK_SLOTS,
  kTagExtension = kTagMacro + PERILINK_SLOTS,
};
static_assert(kTagExtension == kLastFlashReadTag);

// The frames of a read of `length` bytes, the last one marked.
std::vector<QueueEntry> ReadEntries(uint32_t address, uint32_t length, uint8_t tag) {
  std::vector<QueueEntry> entries;
  entries.reserve((length + kFrameBytes - 1) / kFrameBytes);
  while (length > 0) {
    const uint32_t step = std::min(length, kFrameBytes);
    length -= step;
    entries.push_back(ReadEntry(address, step, tag, length == 0));
    address += step;
  }
  return entries;
}

}  // namespace

// One full read, between its first answer and its last.
class FlashRead : public std::enable_shared_from_this<FlashRead> {
 public:
  FlashRead(ServerState& state, ConnectionNumber connection)
      : state_(state), connection_(connection) {
    image_.fill(PERILINK_ERASED);
  }

  void Continue(uint8_t tag, Data data, ServerReportCallback callback);
  void OnWritten(const CommandFrame& write) {
    LayOver(image_, write);
    const uint32_t address = FrameAddress(write);
    if (address + kFrameBytes > macro_ && address < macro_ + PERILINK_MACRO_SLOT_SIZE)
      macro_written_ = true;
  }

 private:
  void TakeSettings(Data data);
  void TakeExtension(Data data);
  void ProbeShortcut(uint8_t slot);
  void TakeShortcutProbe(uint8_t slot, Data data);
  void TakeShortcut(uint8_t slot, Data data);
  void ProbeMacro(uint8_t slot);
  void TakeMacroProbe(uint8_t slot, Data data);
  void TakeMacro(uint8_t slot, Data data);
  void Finish();
  // False when another connection has begun.
  bool Store();

  void Queue(std::span<const QueueEntry> entries);

  ServerState& state_;
  const ConnectionNumber connection_;
  ServerReportCallback callback_ = nullptr;
  Image image_;                     // what the device holds
  Image believed_;                  // the same with what is on its way to the device
  uint32_t macro_ = sizeof(Image);  // the address of the macro that is probed or read
  bool macro_written_ = false;      // since it was probed
};

// Nothing of a read reaches another connection.
void FlashRead::Queue(std::span<const QueueEntry> entries) {
  ServerState::Queues queues = state_.LockQueues();
  if (queues.connection == connection_) queues.commands.Append(entries, shared_from_this());
}

void FlashRead::TakeSettings(Data data) {
  std::copy_n(data.begin(), PERILINK_SETTINGS_BLOCK_SIZE, image_.begin());
  Queue(ReadEntries(PERILINK_DPI_EXTENSIONS_ADDRESS, kExtensionSize, kTagExtension));
}

void FlashRead::TakeExtension(Data data) {
  std::copy_n(data.begin(), kExtensionSize, image_.begin() + PERILINK_DPI_EXTENSIONS_ADDRESS);
  ProbeShortcut(0);
}

void FlashRead::ProbeShortcut(uint8_t slot) {
  if (slot == PERILINK_SLOTS) {
    ProbeMacro(0);
    return;
  }
  Queue(ReadEntries(Perilink_ShortcutSlotAddress(slot), kFrameBytes,
                    static_cast<uint8_t>(kTagShortcutProbe + slot)));
}

void FlashRead::TakeShortcutProbe(uint8_t slot, Data data) {
  const uint8_t count = data[0];
  if (!IsShortcutCount(count)) {
    ProbeShortcut(static_cast<uint8_t>(slot + 1));
    return;
  }
  Queue(ReadEntries(Perilink_ShortcutSlotAddress(slot),
                    static_cast<uint32_t>(Perilink_ShortcutSize(count)),
                    static_cast<uint8_t>(kTagShortcut + slot)));
}

void FlashRead::TakeShortcut(uint8_t slot, Data data) {
  const uint8_t count = data[0];
  const size_t length = Perilink_ShortcutSize(count);
  if (IsShortcutCount(count) && Perilink_CheckHolds(data.data(), length - 1))
    std::copy_n(data.begin(), length, image_.begin() + Perilink_ShortcutSlotAddress(slot));
  ProbeShortcut(static_cast<uint8_t>(slot + 1));
}

void FlashRead::ProbeMacro(uint8_t slot) {
  if (slot == PERILINK_SLOTS) {
    Finish();
    return;
  }
  // Name length and event count stand too far apart for one frame.
  const uint8_t tag = static_cast<uint8_t>(kTagMacroProbe + slot);
  const uint32_t address = Perilink_MacroSlotAddress(slot);
  macro_ = address;
  macro_written_ = false;
  const QueueEntry probe[] = {
      ReadEntry(address, kFrameBytes, tag, false),
      ReadEntry(address + PERILINK_MACRO_COUNT_OFFSET, kFrameBytes, tag, true),
  };
  Queue(probe);
}

void FlashRead::TakeMacroProbe(uint8_t slot, Data data) {
  const uint8_t name_length = data[0];
  const uint8_t count = data[kFrameBytes];
  if (!IsNameLength(name_length)) {
    ProbeMacro(static_cast<uint8_t>(slot + 1));
    return;
  }
  const size_t length = IsMacroCount(count) ? Perilink_MacroSize(count) : name_length + size_t{1};
  Queue(ReadEntries(Perilink_MacroSlotAddress(slot), static_cast<uint32_t>(length),
                    static_cast<uint8_t>(kTagMacro + slot)));
}

// Decodes the slot into the record and encodes it again: the image gets its normalised form.
void FlashRead::TakeMacro(uint8_t slot, Data data) {
  // The new macro may be longer than what was read of it.
  if (macro_written_) {
    ProbeMacro(slot);
    return;
  }
  MacroKey macro{};
  DecodeMacro(data.first<PERILINK_MACRO_SLOT_SIZE>(), macro);
  EncodeMacro(macro,
              MacroSlot(image_.data() + Perilink_MacroSlotAddress(slot), PERILINK_MACRO_SLOT_SIZE));
  ProbeMacro(static_cast<uint8_t>(slot + 1));
}

// The stored record takes the image, with all writes laid over it that still wait in the queue: it
// describes what the device will hold.
bool FlashRead::Store() {
  believed_ = image_;
  const ServerState::Queues queues = state_.LockQueues();
  if (queues.connection != connection_) return false;
  for (size_t i = 0; i < queues.commands.Size(); ++i) {
    const QueueEntry& entry = queues.commands.At(i);
    if (entry.continuation == kUpdateTag && entry.frame.command == PERILINK_COMMAND_WRITE_MEMORY)
      LayOver(believed_, entry.frame);
  }
  StoredProtocolData::Instance().Parse(believed_.data());
  return true;
}

void FlashRead::Finish() {
  if (callback_ == nullptr || !Store()) return;
  CommandFrame frame{};
  frame.report_id = PERILINK_REPORT_ID;
  frame.command = PERILINK_COMMAND_READ_MEMORY;
  callback_(FrameBytes(frame).data(), sizeof(frame), image_.data(), PERILINK_FLASH_IMAGE_SIZE);
}

void FlashRead::Continue(uint8_t tag, Data data, ServerReportCallback callback) {
  callback_ = callback;
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

// ---- The reads under way -----------------------------------------------------------------------

void FlashReads::Continue(Step& step, std::span<const uint8_t, kReplyDataSize> data,
                          ServerReportCallback callback) {
  if (step.reader == nullptr) {
    std::erase_if(running_, [](const std::weak_ptr<FlashRead>& read) { return read.expired(); });
    step.reader = std::make_shared<FlashRead>(state_, step.connection);
    running_.push_back(step.reader);
  }
  step.reader->Continue(step.tag, data, callback);
}

void FlashReads::OnWritten(const CommandFrame& write) {
  for (const std::weak_ptr<FlashRead>& running : running_) {
    if (const auto read = running.lock()) read->OnWritten(write);
  }
}

void QueueMemoryRead(uint32_t address, int32_t length, uint8_t continuation) {
  if (length < 1 || length > kLongestRead) return;
  ServerState::Instance().Append(ReadEntries(address, static_cast<uint32_t>(length), continuation));
}

}  // namespace perilink

using perilink::Guarded;

void UsbServer_ReadFalshData(uint32_t address, int32_t length, uint8_t continuation) {
  Guarded([&] { perilink::QueueMemoryRead(address, length, continuation); });
}

void UsbServer_ReadAllFlashData(void) {
  UsbServer_ReadFalshData(0, PERILINK_SETTINGS_BLOCK_SIZE, perilink::kTagSettings);
}
void UsbServer_ReadReportRate(void) {
  UsbServer_ReadFalshData(PERILINK_REPORT_RATE_ADDRESS, 1, 0);
}
void UsbServer_ReadCurrentDPI(void) {
  UsbServer_ReadFalshData(PERILINK_CURRENT_DPI_ADDRESS, 1, 0);
}
void UsbServer_ReadDPILed(void) {
  UsbServer_ReadFalshData(PERILINK_DPI_LED_ADDRESS, PERILINK_DPI_LED_SIZE, 0);
}
void UsbServer_ReadLedBar(void) {
  UsbServer_ReadFalshData(PERILINK_LED_BAR_ADDRESS, PERILINK_LED_BAR_SIZE, 0);
}
