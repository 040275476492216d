/* The records that perilink shares with its host. Each is a byte layout: little-endian, without
 * padding of the compiler's, readable at any alignment. Sizes and offsets are checked below. */
#ifndef PERILINK_RECORDS_H_
#define PERILINK_RECORDS_H_

#include <stddef.h>

#include "perilink/base.h"

#ifdef __cplusplus
#define PERILINK_CHECK_LAYOUT(condition) static_assert(condition, #condition)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define PERILINK_CHECK_LAYOUT(condition) _Static_assert(condition, #condition)
#else
/* C99 has no assertion of the compiler's; no array has a negative size. */
#define PERILINK_CHECK_LAYOUT(condition) extern char perilink_layout_check[(condition) ? 1 : -1]
#endif

#pragma pack(push, 1)

/* ---- Device commands ------------------------------------------------------------------- */

/* The report exchanged with the device: 17 bytes, as written and as read. */
typedef struct CommandFrame {
  uint8_t report_id;    /* 0x08 in every command */
  uint8_t command;      /* command code: PerilinkCommand in protocol.h */
  uint8_t status;       /* 0 in a request; in a reply 0 for success or a device status */
  uint8_t address_high; /* 16-bit address of the memory commands, high byte first; else 0 */
  uint8_t address_low;
  uint8_t length;   /* bits 0 to 6: declared data length; bit 7: the keyboard target */
  uint8_t data[10]; /* payload, unused bytes 0 */
  uint8_t checksum; /* 0x55 minus the sum of bytes 0 to 15, modulo 256 */
} CommandFrame;
PERILINK_CHECK_LAYOUT(sizeof(CommandFrame) == 17);
PERILINK_CHECK_LAYOUT(offsetof(CommandFrame, length) == 5);
PERILINK_CHECK_LAYOUT(offsetof(CommandFrame, data) == 6);
PERILINK_CHECK_LAYOUT(offsetof(CommandFrame, checksum) == 16);

/* Three bytes of device identification, as the firmware gives them. */
typedef struct DeviceInfo {
  uint8_t bytes[3];
} DeviceInfo;
PERILINK_CHECK_LAYOUT(sizeof(DeviceInfo) == 3);

/* A battery reading. */
typedef struct BatteryLevel {
  uint8_t level;    /* percent */
  uint8_t charging; /* non-zero while the battery charges */
  uint16_t voltage; /* millivolts; 0 when the device does not tell */
} BatteryLevel;
PERILINK_CHECK_LAYOUT(sizeof(BatteryLevel) == 4);
PERILINK_CHECK_LAYOUT(offsetof(BatteryLevel, voltage) == 2);

/* Ten bytes that the library carries and never interprets. */
typedef struct DataRecord10 {
  uint8_t bytes[10];
} DataRecord10;
PERILINK_CHECK_LAYOUT(sizeof(DataRecord10) == 10);

/* The light bar of the receiver: its mode and six further bytes. When `enabled` is 0, mode 0 is
 * sent whatever `mode` holds; `enabled` itself is not sent. */
typedef struct RgbBarMode {
  uint8_t mode;
  uint8_t settings[5];
  uint8_t enabled;
} RgbBarMode;
PERILINK_CHECK_LAYOUT(sizeof(RgbBarMode) == 7);
PERILINK_CHECK_LAYOUT(offsetof(RgbBarMode, enabled) == 6);

/* The receiver's indicator LED: three bytes, as the firmware takes them. */
typedef struct IndicatorLed {
  uint8_t bytes[3];
} IndicatorLed;
PERILINK_CHECK_LAYOUT(sizeof(IndicatorLed) == 3);

/* Customer and model id of a device, with a flag (0 or 1). */
typedef struct CidMid {
  uint8_t cid;
  uint8_t mid;
  uint8_t flag;
} CidMid;
PERILINK_CHECK_LAYOUT(sizeof(CidMid) == 3);

/* ---- Background server ------------------------------------------------------------------ */

/* One frame in the server's queue. */
typedef struct QueueEntry {
  uint8_t last_chunk;   /* 1 on the last (or only) frame of its request, 0 on earlier ones */
  uint8_t pending;      /* 1: still to be written; 0: written, its reply is awaited */
  uint8_t continuation; /* 0 for an ordinary command; 1 to 82 belong to the library */
  CommandFrame frame;   /* complete, checksum included */
} QueueEntry;
PERILINK_CHECK_LAYOUT(sizeof(QueueEntry) == 20);
PERILINK_CHECK_LAYOUT(offsetof(QueueEntry, frame) == 3);

/* The seven status flags of an event report, each 0 or 1. */
typedef struct DeviceStatus {
  uint8_t flags[7];
} DeviceStatus;
PERILINK_CHECK_LAYOUT(sizeof(DeviceStatus) == 7);

/* ---- Configuration ---------------------------------------------------------------------- */

/* One event of a shortcut or a macro. */
typedef struct KeyEvent {
  uint8_t kind;    /* 0, 1 or 2 */
  uint8_t code;    /* the device keeps the low four bits */
  uint8_t keys[2]; /* two key bytes */
  uint32_t delay;  /* the low 16 bits travel to the device; always 0 in a shortcut */
} KeyEvent;
PERILINK_CHECK_LAYOUT(sizeof(KeyEvent) == 8);
PERILINK_CHECK_LAYOUT(offsetof(KeyEvent, kind) == 0);
PERILINK_CHECK_LAYOUT(offsetof(KeyEvent, code) == 1);
PERILINK_CHECK_LAYOUT(offsetof(KeyEvent, keys) == 2);
PERILINK_CHECK_LAYOUT(offsetof(KeyEvent, delay) == 4);

typedef struct ShortcutKey {
  uint8_t count; /* number of events: 2 to 6, or 0 for none */
  uint8_t unused[3];
  KeyEvent events[6];
} ShortcutKey;
PERILINK_CHECK_LAYOUT(sizeof(ShortcutKey) == 52);
PERILINK_CHECK_LAYOUT(offsetof(ShortcutKey, count) == 0);
PERILINK_CHECK_LAYOUT(offsetof(ShortcutKey, events) == 4);

typedef struct MacroKey {
  uint8_t name_length; /* 1 to 30, or 0 for none */
  uint8_t name[30];    /* as the device stores it; not terminated */
  uint8_t count;       /* number of events: 2 to 70, or 0 for none */
  KeyEvent events[70];
} MacroKey;
PERILINK_CHECK_LAYOUT(sizeof(MacroKey) == 592);
PERILINK_CHECK_LAYOUT(offsetof(MacroKey, name_length) == 0);
PERILINK_CHECK_LAYOUT(offsetof(MacroKey, name) == 1);
PERILINK_CHECK_LAYOUT(offsetof(MacroKey, count) == 31);
PERILINK_CHECK_LAYOUT(offsetof(MacroKey, events) == 32);

typedef struct DPIColor {
  uint8_t bytes[3];
} DPIColor;
PERILINK_CHECK_LAYOUT(sizeof(DPIColor) == 3);

typedef struct DPILevel {
  uint8_t value[3];
  DPIColor color;
  uint16_t extension1;
  uint16_t extension2;
  uint8_t extension_byte;
  uint8_t unused;
} DPILevel;
PERILINK_CHECK_LAYOUT(sizeof(DPILevel) == 12);
PERILINK_CHECK_LAYOUT(offsetof(DPILevel, value) == 0);
PERILINK_CHECK_LAYOUT(offsetof(DPILevel, color) == 3);
PERILINK_CHECK_LAYOUT(offsetof(DPILevel, extension1) == 6);
PERILINK_CHECK_LAYOUT(offsetof(DPILevel, extension2) == 8);
PERILINK_CHECK_LAYOUT(offsetof(DPILevel, extension_byte) == 10);
PERILINK_CHECK_LAYOUT(offsetof(DPILevel, unused) == 11);

typedef struct DPILed {
  uint8_t bytes[4];
} DPILed;
PERILINK_CHECK_LAYOUT(sizeof(DPILed) == 4);

typedef struct LedBar {
  uint8_t bytes[7];
} LedBar;
PERILINK_CHECK_LAYOUT(sizeof(LedBar) == 7);

typedef struct KeyFun {
  uint8_t bytes[3];
} KeyFun;
PERILINK_CHECK_LAYOUT(sizeof(KeyFun) == 3);

/* The host's configuration record: every setting of the device, decoded. Settings are named by
 * their offset in the record where the library only carries them. */
typedef struct ProtocolData {
  uint8_t report_rate;
  uint8_t dpi_level_count;
  uint8_t current_dpi_level;
  uint8_t setting3;
  uint8_t setting4;
  uint8_t setting5;
  uint8_t setting6;
  uint8_t switch7; /* 0 or 1, as are switches 9 to 12 */
  uint8_t setting8;
  uint8_t switch9;
  uint8_t switch10;
  uint8_t switch11;
  uint8_t switch12;
  uint8_t setting13;
  uint8_t setting14;
  uint8_t setting15;
  uint8_t setting16;
  uint8_t setting17;
  uint8_t unused18[2];
  uint32_t setting20;
  uint32_t setting24;
  uint32_t setting28;
  uint32_t setting32;
  uint8_t setting36;
  uint8_t setting37;
  uint8_t setting38[3];
  uint8_t setting41;
  uint8_t setting42;
  uint8_t setting43;
  uint8_t setting44;
  uint8_t setting45;
  uint8_t unused46[2];
  DPILevel dpi_levels[8];
  DPILed dpi_led;
  LedBar led_bar;
  KeyFun key_functions[16];
  uint8_t unused203;
  ShortcutKey shortcuts[16];
  MacroKey macros[16];
} ProtocolData;
PERILINK_CHECK_LAYOUT(sizeof(ProtocolData) == 10508);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, report_rate) == 0);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, dpi_level_count) == 1);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, current_dpi_level) == 2);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting3) == 3);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting4) == 4);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting5) == 5);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting6) == 6);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, switch7) == 7);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting8) == 8);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, switch9) == 9);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, switch10) == 10);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, switch11) == 11);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, switch12) == 12);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting13) == 13);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting14) == 14);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting15) == 15);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting16) == 16);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting17) == 17);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, unused18) == 18);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting20) == 20);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting24) == 24);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting28) == 28);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting32) == 32);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting36) == 36);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting37) == 37);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting38) == 38);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting41) == 41);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting42) == 42);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting43) == 43);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting44) == 44);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting45) == 45);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, unused46) == 46);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, dpi_levels) == 48);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, dpi_led) == 144);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, led_bar) == 148);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, key_functions) == 155);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, unused203) == 203);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, shortcuts) == 204);
PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, macros) == 1036);

/* ---- Firmware upgrade ------------------------------------------------------------------- */

/* The message of the upgrade callback. */
typedef struct UpgradeEvent {
  uint8_t message_class; /* always 7 */
  uint8_t kind;          /* 1 progress, 2 result, 3 notice: PerilinkUpgradeKind in protocol.h */
  uint8_t code;          /* what it says depends on the kind */
  uint8_t arg1;
  uint8_t arg2;
  uint8_t reserved[3];
} UpgradeEvent;
PERILINK_CHECK_LAYOUT(sizeof(UpgradeEvent) == 8);

#pragma pack(pop)

/* ---- Callbacks -------------------------------------------------------------------------- */

/* The server's results. `frame` points to 17 bytes (`frame_length` is always 17), `data` to
 * `data_length` bytes; both are valid only during the call. Called on the server thread, with no
 * lock held: it may call any export. */
typedef void(PERILINK_CALL* ServerReportCallback)(const uint8_t* frame, uint32_t frame_length,
                                                  const uint8_t* data, uint32_t data_length);

/* A USB device has arrived (true) or gone (false). */
typedef void(PERILINK_CALL* UsbChangedCallback)(bool arrived);

/* Progress, notices and the outcome of an upgrade: `message` points to an UpgradeEvent (`length`
 * is always 8), valid only during the call. Called on the upgrade thread. The result is ignored. */
typedef int(PERILINK_CALL* UpgradeCallback)(const uint8_t* message, uint32_t length);

#endif /* PERILINK_RECORDS_H_ */
