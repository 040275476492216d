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

// What a slot can hold of any event.
KeyEvent Held(KeyEvent event, uint32_t most_delay) {
  event.kind = std::min<uint8_t>(event.kind, 2);
  event.code &= 15;
  event.delay &= most_delay;
  return event;
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
  // A code of more than four bits may change the kind: that of a shortcut is written whole.
  static Record WhatRemains(Record record) {
    if (!IsShortcutCount(record.count)) record.count = 0;
    for (KeyEvent& event : record.events)
      event = &event < record.events + record.count ? Held(event, 0) : KeyEvent{};
    return record;
  }
  static bool IsPlain(const Record& record) {
    return std::ranges::all_of(record.events, [](const KeyEvent& it) { return it.code <= 15; });
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
  static Record WhatRemains(Record record) {
    record.name_length = std::min<uint8_t>(record.name_length, sizeof(record.name));
    std::fill(record.name + record.name_length, std::end(record.name), uint8_t{0});
    record.count = std::min<uint8_t>(record.count, PERILINK_MACRO_MAX_EVENTS);
    if (!IsMacroCount(record.count)) record.count = 0;
    for (KeyEvent& event : record.events)
      event = &event < record.events + record.count ? Held(event, 0xFFFF) : KeyEvent{};
    return record;
  }
  static bool IsPlain(const Record&) { return true; }
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
  const bool plain = Kind::IsPlain(record);
  ExactCopy slot({}, Kind::kSize, 0xFF);
  Kind::Encode(record, slot.data());
  typename Kind::Record decoded = expected;
  Kind::Decode(slot.data(), decoded);
  Kind::RequireSound(decoded);
  if (plain) Require(Equal(decoded, expected), "a slot holds what it can of a record");
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
