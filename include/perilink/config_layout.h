/* Where each setting stands: in the device's configuration image and in the ProtocolData record.
 *
 * The image keeps every field as its value bytes followed by one check byte: 0x55 minus the sum of
 * the value bytes, modulo 256. A field is taken over only when its check byte is right; otherwise
 * the record gets the field's fallback, or keeps what it holds. The library's parsers and its
 * compare walk these tables; a host that prints, stores or verifies a configuration can walk them
 * too. They are C++ (17 or later); to others this header declares nothing beyond protocol.h.
 */
#ifndef PERILINK_CONFIG_LAYOUT_H_
#define PERILINK_CONFIG_LAYOUT_H_

#include "perilink/protocol.h"

#ifdef PERILINK_CPP17

#include <array>

namespace perilink {

/* How a field's value is taken from the image, and how it is written. */
enum class FieldRule : uint8_t {
  kPlain,            /* the bytes as they are */
  kBelowLevelCount,  /* accepted only below the record's dpi_level_count */
  kSwitch,           /* accepted as 0 or 1; written as the record holds it */
  kNormalizedSwitch, /* accepted as 0 or 1, and written so */
};

struct ConfigField {
  const char* name;       /* of the member of its record, as records.h names it */
  uint16_t record_offset; /* in its record (ProtocolData, or the group's sub-record) */
  uint16_t flash_address; /* of the value bytes in entry 0 of its group */
  uint8_t flash_stride;   /* from one entry of its group to the next */
  uint8_t width;          /* value bytes, 1 to 6; the check byte follows them */
  FieldRule rule;
  bool keeps; /* a rejected field leaves the record as it is, whatever `fallback` says */
  std::array<uint8_t, 6> fallback;
};

/* A run of equal sub-records, each made of the same fields. */
struct ConfigGroup {
  const char* name;       /* of the member of ProtocolData; "" for ProtocolData itself */
  uint16_t record_offset; /* of entry 0 in ProtocolData */
  uint16_t record_stride; /* the size of an entry */
  uint8_t count;
  const ConfigField* fields;
  uint8_t field_count;
};

inline constexpr uint8_t kSettingCount = 30;

/* clang-format off */
#define PERILINK_SETTING(member, address, rule, keeps, fallback)                               \
  ConfigField{#member, offsetof(ProtocolData, member), address, 0,                             \
              sizeof(ProtocolData::member), FieldRule::rule, keeps, {fallback}}
/* clang-format on */

/* The numbered settings, in the order in which they are parsed and written. */
inline constexpr std::array<ConfigField, kSettingCount> kSettings = {{
    PERILINK_SETTING(report_rate, PERILINK_REPORT_RATE_ADDRESS, kPlain, false, 1),
    PERILINK_SETTING(dpi_level_count, 2, kPlain, false, 6),
    PERILINK_SETTING(current_dpi_level, PERILINK_CURRENT_DPI_ADDRESS, kBelowLevelCount, false, 2),
    PERILINK_SETTING(setting3, 6, kPlain, false, 0),
    PERILINK_SETTING(setting4, 8, kPlain, false, 0),
    PERILINK_SETTING(setting5, 10, kPlain, false, 0),
    PERILINK_SETTING(setting6, 169, kPlain, false, 8),
    PERILINK_SETTING(switch7, 171, kNormalizedSwitch, false, 1),
    PERILINK_SETTING(setting8, 173, kPlain, false, 6),
    PERILINK_SETTING(switch9, 175, kSwitch, false, 0),
    PERILINK_SETTING(switch10, 177, kSwitch, false, 0),
    PERILINK_SETTING(switch11, 179, kSwitch, false, 0),
    PERILINK_SETTING(switch12, 181, kSwitch, false, 0),
    PERILINK_SETTING(setting13, 183, kPlain, false, 6),
    PERILINK_SETTING(setting14, 185, kPlain, false, 0),
    PERILINK_SETTING(setting15, 189, kPlain, true, 0),
    PERILINK_SETTING(setting16, 191, kPlain, true, 0),
    PERILINK_SETTING(setting17, 193, kPlain, true, 0),
    PERILINK_SETTING(setting20, 195, kPlain, true, 0),
    PERILINK_SETTING(setting24, 200, kPlain, true, 0),
    PERILINK_SETTING(setting28, 205, kPlain, true, 0),
    PERILINK_SETTING(setting32, 210, kPlain, true, 0),
    PERILINK_SETTING(setting36, 215, kPlain, true, 0),
    PERILINK_SETTING(setting37, 217, kPlain, true, 0),
    PERILINK_SETTING(setting38, 219, kPlain, true, 0),
    PERILINK_SETTING(setting41, 223, kPlain, true, 0),
    PERILINK_SETTING(setting42, 225, kPlain, true, 0),
    PERILINK_SETTING(setting43, 227, kPlain, true, 0),
    PERILINK_SETTING(setting44, 229, kPlain, true, 0),
    PERILINK_SETTING(setting45, 231, kPlain, true, 0),
}};

#undef PERILINK_SETTING

/* A DPI level: three parts, far apart in the image, each under a check byte of its own. The
 * extension's two numbers and its byte stand together, little-endian as in the record. */
inline constexpr std::array<ConfigField, 3> kDpiLevelFields = {{
    {"value",
     0,
     PERILINK_DPI_VALUES_ADDRESS,
     PERILINK_DPI_VALUE_SIZE,
     3,
     FieldRule::kPlain,
     false,
     {0xFF, 0xFF, 0x00}},
    {"color",
     3,
     PERILINK_DPI_COLORS_ADDRESS,
     PERILINK_DPI_COLOR_SIZE,
     3,
     FieldRule::kPlain,
     false,
     {0xFF, 0xFF, 0xFF}},
    {"extension",
     6,
     PERILINK_DPI_EXTENSIONS_ADDRESS,
     PERILINK_DPI_EXTENSION_SIZE,
     5,
     FieldRule::kPlain,
     false,
     {0xFF, 0xFF, 0xFF, 0xFF, 0x00}},
}};

inline constexpr std::array<ConfigField, 4> kDpiLedFields = {{
    {"bytes[0]", 0, PERILINK_DPI_LED_ADDRESS, 0, 1, FieldRule::kPlain, false, {2}},
    {"bytes[1]", 1, PERILINK_DPI_LED_ADDRESS + 2, 0, 1, FieldRule::kPlain, false, {0x80}},
    {"bytes[2]", 2, PERILINK_DPI_LED_ADDRESS + 4, 0, 1, FieldRule::kPlain, false, {3}},
    {"bytes[3]", 3, PERILINK_DPI_LED_ADDRESS + 6, 0, 1, FieldRule::kPlain, false, {1}},
}};

inline constexpr std::array<ConfigField, 2> kLedBarFields = {{
    {"bytes[0..5]",
     0,
     PERILINK_LED_BAR_ADDRESS,
     0,
     6,
     FieldRule::kPlain,
     false,
     {1, 0xFF, 0xFF, 0xFF, 8, 9}},
    {"bytes[6]", 6, PERILINK_LED_BAR_ADDRESS + 7, 0, 1, FieldRule::kPlain, false, {1}},
}};

inline constexpr std::array<ConfigField, 1> kKeyFunFields = {{
    {"bytes",
     0,
     PERILINK_KEY_FUNCTIONS_ADDRESS,
     PERILINK_KEY_FUNCTION_SIZE,
     3,
     FieldRule::kPlain,
     false,
     {0, 0, 0}},
}};

/* Every field of the record but its shortcuts and macros, in the order of parsing and writing. */
inline constexpr std::array<ConfigGroup, 5> kConfigGroups = {{
    {"", 0, 0, 1, kSettings.data(), kSettingCount},
    {"dpi_levels", offsetof(ProtocolData, dpi_levels), sizeof(DPILevel), PERILINK_DPI_LEVELS,
     kDpiLevelFields.data(), 3},
    {"dpi_led", offsetof(ProtocolData, dpi_led), sizeof(DPILed), 1, kDpiLedFields.data(), 4},
    {"led_bar", offsetof(ProtocolData, led_bar), sizeof(LedBar), 1, kLedBarFields.data(), 2},
    {"key_functions", offsetof(ProtocolData, key_functions), sizeof(KeyFun), PERILINK_KEY_FUNCTIONS,
     kKeyFunFields.data(), 1},
}};

} /* namespace perilink */

#endif /* PERILINK_CPP17 */

#endif /* PERILINK_CONFIG_LAYOUT_H_ */
