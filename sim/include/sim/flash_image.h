// The configuration memory of a virtual device, in the device's own encoding.
//
// Every field is its value bytes followed by a check byte (report.h, CheckOf). Shortcut and macro
// slots have a check byte of their own; an erased slot (0xFF) is empty.
#ifndef PERILINK_SIM_FLASH_IMAGE_H_
#define PERILINK_SIM_FLASH_IMAGE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

namespace perilink::sim {

inline constexpr size_t kFlashSize = 8192;
inline constexpr size_t kConfigurationSize = 6960;  // what of it the host reads as configuration
inline constexpr size_t kSlotCount = 16;            // of shortcuts, and of macros
inline constexpr size_t kShortcutSlotSize = 32;
inline constexpr size_t kMacroSlotSize = 384;

// Where a shortcut or macro slot begins; `slot` is 0 to 15.
constexpr size_t ShortcutAddress(size_t slot) {
  return 256 + kShortcutSlotSize * slot;
}
constexpr size_t MacroAddress(size_t slot) {
  return 768 + kMacroSlotSize * slot;
}

struct FlashField {
  uint16_t address;
  uint8_t width;  // value bytes; the check byte follows them
};

// Every guarded field of the configuration outside the slots, in address order.
std::span<const FlashField> FlashFields();

// One key event of a shortcut or macro. `kind` is 0 press, 1 release, 2 other; `code` has 4 bits.
struct SlotEvent {
  uint8_t kind = 0;
  uint8_t code = 0;
  uint8_t key = 0;
  uint8_t key_high = 0;
  uint16_t delay_ms = 0;  // macros only
};

class FlashImage {
 public:
  // Erased: all 0xFF, no field valid.
  FlashImage();
  // A valid configuration of a mouse, with no shortcuts and no macros. Its values differ from the
  // ones that a host assumes when a field is invalid, so that the two can be told apart.
  static FlashImage Default();
  // The memory of a keyboard: three key layers of 512 bytes, the rest erased.
  static FlashImage KeyboardDefault();

  std::span<uint8_t, kFlashSize> bytes() { return bytes_; }
  std::span<const uint8_t, kFlashSize> bytes() const { return bytes_; }
  uint8_t operator[](size_t address) const { return bytes_.at(address); }

  // Stores bytes as they are; what would lie beyond the memory is dropped.
  void SetBytes(size_t address, std::span<const uint8_t> bytes);
  // Stores value bytes and, after them, their check byte.
  void SetField(size_t address, std::span<const uint8_t> value);
  void SetField(size_t address, std::initializer_list<uint8_t> value);
  // Makes a field invalid: inverts its check byte, `width` bytes after its address.
  void BreakField(size_t address, size_t width);

  // Fills a slot (0 to 15; others are ignored). The count is stored as it is, so that a shortcut of
  // 1 or 7 events is an invalid one; events that the slot has no room for are dropped. A macro's
  // name is cut to 30 bytes.
  void SetShortcut(size_t slot, std::span<const SlotEvent> events);
  void SetMacro(size_t slot, std::string_view name, std::span<const SlotEvent> events);
  void ClearShortcut(size_t slot);
  void ClearMacro(size_t slot);

  bool FieldValid(size_t address, size_t width) const;
  bool ShortcutValid(size_t slot) const;  // empty, or closed by the right check byte
  bool MacroValid(size_t slot) const;
  // Addresses of the fields and slots that are not valid: empty when the configuration is sound.
  std::vector<uint16_t> InvalidFields() const;

 private:
  void Erase(size_t address, size_t count);

  std::array<uint8_t, kFlashSize> bytes_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_FLASH_IMAGE_H_
