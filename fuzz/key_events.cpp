// Shortcuts and macros: a slot's bytes to a record, and a record's bytes to a slot. An input is a
// byte (bit 0: macro, bit 1: the slot's check byte is made right), then the bytes of either.
#include "protocol/key_events.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "perilink/protocol_data.h"
#include "sim/flash_image.h"
#include "sim/report.h"
#include "support/images.h"
#include "support/records.h"
#include "support/require.h"

namespace perilink::fuzz {
namespace {

using sim::SlotEvent;

template <typename Record>
bool Equal(const Record& a, const Record& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

std::vector<SlotEvent> SlotEvents(const KeyEvent* events, size_t count) {
  std::vector<SlotEvent> slot_events;
  for (const KeyEvent& it : std::span(events, count))
    slot_events.push_back(
        {it.kind, it.code, it.keys[0], it.keys[1], static_cast<uint16_t>(it.delay)});
  return slot_events;
}

// What an event is read as: bits 7 and 6 say its kind.
KeyEvent EventOf(uint8_t head, uint8_t key, uint8_t other_key, int delay) {
  const int bits = head & 0xC0;
  const uint8_t kind = bits == 0x80 ? 0 : bits == 0x40 ? 1 : 2;
  return {kind, static_cast<uint8_t>(head & 15), {key, other_key}, static_cast<uint32_t>(delay)};
}
uint8_t KindBits(uint8_t kind) {
  return kind == 0 ? 0x80 : kind == 1 ? 0x40 : 0;
}

// The bytes at its start are a count and its events, under a right check byte.
bool IsSealed(std::span<const uint8_t> slot, size_t most, size_t event_size) {
  const size_t checked = 1 + slot[0] * event_size;
  return slot[0] >= 2 && slot[0] <= most && sim::CheckOf(slot.first(checked)) == slot[checked];
}

bool IsErased(std::span<const uint8_t> bytes) {
  return std::ranges::all_of(bytes, [](uint8_t it) { return it == 0xFF; });
}

// ---- Shortcuts ---------------------------------------------------------------------------------

struct Shortcuts {
  using Record = ShortcutKey;
  static constexpr size_t kSize = PERILINK_SHORTCUT_SLOT_SIZE;
  static constexpr size_t kAddress = sim::ShortcutAddress(0);

  static void Decode(const uint8_t* slot, Record& record) { BufferToShortcutKey(slot, &record); }
  static void Encode(Record& record, uint8_t* slot) { ShortcutKeyToBuffer(&record, slot); }
  static void Model(const Record& record, sim::FlashImage& image) {
    image.SetShortcut(0, SlotEvents(record.events, record.count));
  }
  static void RequireSound(const Record& record) {
    Require(record.count == 0 || IsShortcutCount(record.count),
            "a shortcut has 0 or 2 to 6 events");
    RequireEventsInRange(record.events, 0);
  }
  static Record Read(std::span<const uint8_t> slot, Record record) {
    record.count = IsSealed(slot, 6, 3) ? slot[0] : 0;
    for (size_t i = 0; i < std::size(record.events); ++i) {
      const auto at = slot.subspan(1 + 3 * i, 3);
      if (i < record.count) record.events[i] = EventOf(at[0], at[1], at[2], 0);
      if (record.count == 0) record.events[i] = {};
    }
    return record;
  }
  // The whole code is written, and may change the kind.
  static Record WhatRemains(Record record) {
    if (!IsShortcutCount(record.count)) record.count = 0;
    for (KeyEvent& event : record.events) {
      const auto head = static_cast<uint8_t>(KindBits(event.kind) | event.code);
      event = &event < record.events + record.count ? EventOf(head, event.keys[0], event.keys[1], 0)
                                                    : KeyEvent{};
    }
    return record;
  }
  // A count out of range is written by itself, and empties the record.
  static void RequireWritten(Record before, const Record& after, std::span<const uint8_t> slot) {
    const uint8_t count = before.count;
    const bool good = IsShortcutCount(count);
    if (!good) {
      before.count = 0;
      std::ranges::fill(before.events, KeyEvent{});
    }
    Require(Equal(after, before), "encoding leaves a sound record alone and empties another");
    Require(slot[0] == count && IsErased(slot.subspan(good ? 2 + size_t{3} * count : 1)),
            "a shortcut is written, and no more");
  }
};

// ---- Macros ------------------------------------------------------------------------------------

struct Macros {
  using Record = MacroKey;
  static constexpr size_t kSize = PERILINK_MACRO_SLOT_SIZE;
  static constexpr size_t kAddress = sim::MacroAddress(0);

  static void Decode(const uint8_t* slot, Record& record) { BufferToMacroKey(slot, &record); }
  static void Encode(Record& record, uint8_t* slot) { MacroKeyToBuffer(&record, slot); }
  static void Model(const Record& record, sim::FlashImage& image) {
    const std::string name(record.name, record.name + record.name_length);
    image.SetMacro(0, name, SlotEvents(record.events, record.count));
  }
  static void RequireSound(const Record& record) { RequireMacroInRange(record); }
  static Record Read(std::span<const uint8_t> slot, Record record) {
    record.name_length = slot[0] <= sizeof(record.name) ? slot[0] : 0;
    std::ranges::fill(record.name, uint8_t{0});
    std::copy_n(slot.begin() + 1, record.name_length, record.name);
    slot = slot.subspan(31);
    record.count = IsSealed(slot, 70, 5) ? slot[0] : 0;
    for (size_t i = 0; i < std::size(record.events); ++i) {
      const auto at = slot.subspan(1 + 5 * i, 5);
      if (i < record.count) record.events[i] = EventOf(at[0], at[1], at[2], at[3] << 8 | at[4]);
      if (record.count == 0) record.events[i] = {};
    }
    return record;
  }
  static Record WhatRemains(Record record) {
    record.name_length = std::min<uint8_t>(record.name_length, sizeof(record.name));
    std::fill(record.name + record.name_length, std::end(record.name), uint8_t{0});
    record.count = std::min<uint8_t>(record.count, PERILINK_MACRO_MAX_EVENTS);
    if (!IsMacroCount(record.count)) record.count = 0;
    for (KeyEvent& event : record.events) {
      const auto head = static_cast<uint8_t>(KindBits(event.kind) | (event.code & 15));
      event = &event < record.events + record.count
                  ? EventOf(head, event.keys[0], event.keys[1], event.delay & 0xFFFF)
                  : KeyEvent{};
    }
    return record;
  }
  static void RequireWritten(const Record& before, const Record& after,
                             std::span<const uint8_t> slot) {
    Require(Equal(after, before), "encoding leaves a record alone");
    const size_t name = std::min<size_t>(before.name_length, sizeof(before.name));
    const size_t count = std::min<size_t>(before.count, 70);
    const auto checked = slot.subspan(31, 1 + 5 * count);
    Require(slot[0] == name && checked[0] == count && slot[32 + 5 * count] == sim::CheckOf(checked),
            "a macro's counts are written, and its check byte");
    Require(IsErased(slot.subspan(1 + name, 30 - name)) && IsErased(slot.subspan(33 + 5 * count)),
            "a macro is written, and no more");
  }
};

// ---- Both --------------------------------------------------------------------------------------

template <typename Kind>
void CheckSlot(Input& input, bool seal) {
  sim::FlashImage image;
  image.SetBytes(Kind::kAddress, input.Bytes(Kind::kSize));
  if (seal) SealAll(image);
  const ExactCopy slot(image.bytes().subspan(Kind::kAddress, Kind::kSize));
  typename Kind::Record decoded{};
  Kind::Decode(slot.data(), decoded);
  Kind::RequireSound(decoded);
  // What a slot does not tell stays as it was.
  typename Kind::Record filled;
  std::memset(&filled, 0xA5, sizeof(filled));
  const typename Kind::Record expected = Kind::Read(slot.span(), filled);
  Kind::Decode(slot.data(), filled);
  Require(Equal(filled, expected), "a record is what its slot tells");

  ExactCopy encoded(slot.span());
  typename Kind::Record again = decoded;
  Kind::Encode(again, encoded.data());
  Require(Equal(again, decoded), "encoding leaves a sound record alone");
  Kind::Decode(encoded.data(), again);
  Require(Equal(again, decoded), "key events survive their slot");

  ExactCopy erased({}, Kind::kSize, 0xFF);
  Kind::Encode(again, erased.data());
  Kind::Model(decoded, image);
  if (decoded.count == 0) return;  // a device's empty slots are erased
  Require(std::ranges::equal(erased.span(), image.bytes().subspan(Kind::kAddress, Kind::kSize)),
          "a slot is what the device makes of the same events");
}

// Whatever a host makes of its record.
template <typename Kind>
void CheckRecord(Input& input) {
  typename Kind::Record record{};
  input.Fill({reinterpret_cast<uint8_t*>(&record), sizeof(record)});
  const typename Kind::Record expected = Kind::WhatRemains(record);
  const typename Kind::Record before = record;
  ExactCopy slot({}, Kind::kSize, 0xFF);
  Kind::Encode(record, slot.data());
  Kind::RequireWritten(before, record, slot.span());
  typename Kind::Record decoded = expected;
  Kind::Decode(slot.data(), decoded);
  Kind::RequireSound(decoded);
  Require(Equal(decoded, expected), "a slot holds what it can of a record");
}

template <typename Kind>
void Check(Input input, bool seal) {
  Input record = input;
  CheckSlot<Kind>(input, seal);
  CheckRecord<Kind>(record);
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  Input input(data, size);
  const uint8_t head = input.Byte();
  const bool seal = (head & 2) != 0;
  (head & 1) == 0 ? Check<Shortcuts>(input, seal) : Check<Macros>(input, seal);
  return 0;
}
