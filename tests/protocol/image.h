// Images of a virtual device's configuration memory, from records that a device can hold: what the
// library's parser and compare are held against.
#ifndef PERILINK_TESTS_PROTOCOL_IMAGE_H_
#define PERILINK_TESTS_PROTOCOL_IMAGE_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <span>
#include <vector>

#include "perilink/protocol.h"
#include "sim/flash_image.h"
#include "sim/report.h"

namespace perilink::testing {

using Image = std::vector<uint8_t>;
using Random = std::mt19937;

// A field under a check byte of its own.
struct Place {
  size_t offset;  // in the record
  size_t width;
  size_t address;  // in the image
};

// Every place in the order of writing, shortcuts and macros apart: the virtual device says what
// fields its memory has, this where the record has them.
inline std::vector<Place> Places() {
  std::vector<Place> places;
  const auto add = [&places](size_t first, size_t last, size_t offset) {
    for (const sim::FlashField& field : sim::FlashFields()) {
      if (field.address < first || field.address > last) continue;
      places.push_back({offset, field.width, field.address});
      offset += field.width;
    }
  };
  add(0, 10, 0);
  add(169, 193, 6);
  add(195, 231, 20);
  for (size_t i = 0; i < 8; ++i) {
    for (const size_t address : {12 + 4 * i, 44 + 4 * i, 6912 + 6 * i})
      add(address, address, 48 + 12 * i + (address < 44 ? 0 : address < 6912 ? 3 : 6));
  }
  add(76, 82, 144);
  add(160, 167, 148);
  add(96, 156, 155);
  EXPECT_EQ(places.size(), sim::FlashFields().size());
  EXPECT_EQ(places.size(), 76u);
  return places;
}

inline uint8_t* Bytes(ProtocolData& record) {
  return &record.report_rate;
}

// The events of a shortcut or a macro that count.
template <typename Slot>
std::vector<sim::SlotEvent> SlotEvents(const Slot& slot) {
  std::vector<sim::SlotEvent> events;
  for (const KeyEvent& it : std::span(slot.events).first(slot.count)) {
    events.push_back({it.kind, it.code, it.keys[0], it.keys[1], static_cast<uint16_t>(it.delay)});
  }
  return events;
}

inline Image BuildImage(ProtocolData record) {
  sim::FlashImage flash;
  for (const Place& it : Places())
    flash.SetField(it.address, std::span(Bytes(record) + it.offset, it.width));
  for (size_t k = 0; k < sim::kSlotCount; ++k) {
    const MacroKey& macro = record.macros[k];
    flash.SetShortcut(k, SlotEvents(record.shortcuts[k]));
    flash.SetMacro(k, {reinterpret_cast<const char*>(macro.name), macro.name_length},
                   SlotEvents(macro));
  }
  return Image(flash.bytes().begin(), flash.bytes().begin() + PERILINK_FLASH_IMAGE_SIZE);
}

inline uint8_t RandomByte(Random& random, unsigned below = 256) {
  return static_cast<uint8_t>(random() % below);
}

inline void Fill(Random& random, void* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i)
    static_cast<uint8_t*>(bytes)[i] = RandomByte(random);
}

inline KeyEvent RandomEvent(Random& random, unsigned delays) {
  return {RandomByte(random, 3),
          RandomByte(random, 16),
          {RandomByte(random), RandomByte(random)},
          static_cast<uint32_t>(random() % delays)};
}

// 0, or from 2 to `most`.
inline uint8_t RandomCount(Random& random, unsigned most) {
  const uint8_t count = RandomByte(random, most + 1);
  return count == 1 ? uint8_t{0} : count;
}

// A record that a device can hold: parsing its image gives exactly this record.
inline ProtocolData RandomRecord(Random& random) {
  ProtocolData record{};
  for (const Place& place : Places())
    Fill(random, Bytes(record) + place.offset, place.width);
  record.dpi_level_count = static_cast<uint8_t>(4 + RandomByte(random, 5));
  record.current_dpi_level = RandomByte(random, record.dpi_level_count);
  for (const int offset : {7, 9, 10, 11, 12})
    Bytes(record)[offset] &= 1;
  for (ShortcutKey& shortcut : record.shortcuts) {
    shortcut.count = RandomCount(random, 6);
    for (size_t i = 0; i < shortcut.count; ++i)
      shortcut.events[i] = RandomEvent(random, 1);
  }
  for (MacroKey& macro : record.macros) {
    macro.name_length = RandomByte(random, 31);
    Fill(random, macro.name, macro.name_length);
    macro.count = RandomCount(random, 70);
    for (size_t i = 0; i < macro.count; ++i)
      macro.events[i] = RandomEvent(random, 0x10000);
  }
  return record;
}

template <typename Record>
bool Same(const Record& a, const Record& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_PROTOCOL_IMAGE_H_
