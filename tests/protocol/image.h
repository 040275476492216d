// Builds configuration images from records, from tables and code of its own: what the library's
// parser and compare are held against.
#ifndef PERILINK_TESTS_PROTOCOL_IMAGE_H_
#define PERILINK_TESTS_PROTOCOL_IMAGE_H_

#include <cstring>
#include <random>
#include <vector>

#include "perilink/records.h"

namespace perilink::testing {

using Image = std::vector<uint8_t>;
using Random = std::mt19937;

// A field under a check byte of its own.
struct Place {
  size_t offset;  // in the record
  size_t width;
  size_t address;  // in the image
};

// Shortcuts and macros apart, every place in the order of writing.
inline std::vector<Place> Places() {
  std::vector<Place> places;
  for (size_t i = 0; i <= 5; ++i)
    places.push_back({i, 1, 2 * i});
  for (size_t i = 6; i <= 14; ++i)
    places.push_back({i, 1, 169 + 2 * (i - 6)});
  for (size_t i = 15; i <= 17; ++i)
    places.push_back({i, 1, 189 + 2 * (i - 15)});
  for (size_t i = 0; i < 4; ++i)
    places.push_back({20 + 4 * i, 4, 195 + 5 * i});
  places.insert(places.end(), {{36, 1, 215}, {37, 1, 217}, {38, 3, 219}});
  for (size_t i = 41; i <= 45; ++i)
    places.push_back({i, 1, 223 + 2 * (i - 41)});
  for (size_t i = 0; i < 8; ++i) {
    places.push_back({48 + 12 * i, 3, 12 + 4 * i});
    places.push_back({51 + 12 * i, 3, 44 + 4 * i});
    places.push_back({54 + 12 * i, 5, 6912 + 6 * i});
  }
  for (size_t i = 0; i < 4; ++i)
    places.push_back({144 + i, 1, 76 + 2 * i});
  places.insert(places.end(), {{148, 6, 160}, {154, 1, 167}});
  for (size_t i = 0; i < 16; ++i)
    places.push_back({155 + 3 * i, 3, 96 + 4 * i});
  return places;
}

inline uint8_t* Bytes(ProtocolData& record) {
  return &record.report_rate;
}

inline uint8_t Check(const uint8_t* bytes, size_t size) {
  unsigned sum = 0;
  for (size_t i = 0; i < size; ++i)
    sum += bytes[i];
  return static_cast<uint8_t>(0x55u - sum);
}

inline uint8_t EventByte(const KeyEvent& event) {
  const uint8_t kinds[] = {0x80, 0x40, 0x00};
  return static_cast<uint8_t>(kinds[event.kind] + event.code);
}

inline Image BuildImage(ProtocolData record) {
  Image image(PERILINK_FLASH_IMAGE_SIZE, 0xFF);
  for (const Place& place : Places()) {
    std::memcpy(&image[place.address], Bytes(record) + place.offset, place.width);
    image[place.address + place.width] = Check(&image[place.address], place.width);
  }
  for (size_t k = 0; k < 16; ++k) {
    const ShortcutKey& shortcut = record.shortcuts[k];
    uint8_t* slot = &image[256 + 32 * k];
    slot[0] = shortcut.count;
    for (size_t i = 0; i < shortcut.count; ++i) {
      const KeyEvent& event = shortcut.events[i];
      slot[1 + 3 * i] = EventByte(event);
      std::memcpy(slot + 2 + 3 * i, event.keys, 2);
    }
    if (shortcut.count != 0) slot[1 + 3 * shortcut.count] = Check(slot, 1u + 3u * shortcut.count);
  }
  for (size_t k = 0; k < 16; ++k) {
    const MacroKey& macro = record.macros[k];
    uint8_t* slot = &image[768 + 384 * k];
    slot[0] = macro.name_length;
    std::memcpy(slot + 1, macro.name, macro.name_length);
    slot[31] = macro.count;
    for (size_t i = 0; i < macro.count; ++i) {
      const KeyEvent& event = macro.events[i];
      slot[32 + 5 * i] = EventByte(event);
      std::memcpy(slot + 33 + 5 * i, event.keys, 2);
      slot[35 + 5 * i] = static_cast<uint8_t>(event.delay / 256);
      slot[36 + 5 * i] = static_cast<uint8_t>(event.delay % 256);
    }
    slot[32 + 5 * macro.count] = Check(slot + 31, 1u + 5u * macro.count);
  }
  return image;
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

inline bool Same(const ProtocolData& a, const ProtocolData& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_PROTOCOL_IMAGE_H_
