/* The devices' protocols in constants and records: command frames, events, the configuration
 * memory, the upgrade file and what the upgrade tells its host.
 *
 * A host needs them to read what its callbacks get and to build what it sends by itself. The
 * library, the command-line tool and the examples use the same ones. Where each setting of the
 * configuration stands, with its rules, is the table of config_layout.h.
 *
 * Compiles as C99 and as C++14 or later; to C++ the functions are constexpr.
 */
#ifndef PERILINK_PROTOCOL_H_
#define PERILINK_PROTOCOL_H_

#include "perilink/base.h"
#include "perilink/records.h"

/* ---- Command frames ----------------------------------------------------------------------
 *
 * The reports of 17 bytes that a device takes and sends in normal mode: CommandFrame in records.h,
 * told by example in finder.h. */

enum {
  /* The USB interface and the HID collection at which the devices take commands. */
  PERILINK_DEFAULT_INTERFACE = 1,
  PERILINK_DEFAULT_COLLECTION = 5,

  PERILINK_REPORT_ID = 0x08,     /* byte 0 of every frame */
  PERILINK_FRAME_DATA_SIZE = 10, /* data bytes of a frame, and the most of a memory command */
  PERILINK_LENGTH_MASK = 0x7F,   /* of the length byte: the declared data length */
  PERILINK_KEYBOARD_BIT = 0x80,  /* of the length byte: the frame is for the keyboard */
  PERILINK_CHECKSUM_START = 0x55 /* what the bytes of a frame or of a field are taken from */
};
PERILINK_CHECK_LAYOUT(sizeof(((CommandFrame*)0)->data) == PERILINK_FRAME_DATA_SIZE);

/* The check byte of `size` bytes: 0x55 minus their sum, modulo 256; 0x55 for no bytes. It is the
 * checksum of a frame (its bytes 0 to 15), and stands behind every field of the configuration. */
PERILINK_INLINE uint8_t Perilink_CheckByte(const uint8_t* bytes, size_t size) {
  uint8_t check = PERILINK_CHECKSUM_START;
  for (size_t i = 0; i < size; ++i)
    check = (uint8_t)(check - bytes[i]);
  return check;
}

/* Whether the byte behind the `size` bytes is their check byte. */
PERILINK_INLINE bool Perilink_CheckHolds(const uint8_t* bytes, size_t size) {
  return bytes[size] == Perilink_CheckByte(bytes, size);
}

/* Command codes: byte 1 of a request, of its reply, and of an event. Payloads and replies are in
 * docs/command-protocol.md; finder.h and server.h have an export for most. */
enum PerilinkCommand {
  PERILINK_COMMAND_DEVICE_INFO = 0x01,       /* identification */
  PERILINK_COMMAND_DRIVER_STATUS = 0x02,     /* the host's software runs, or no longer does */
  PERILINK_COMMAND_ON_LINE = 0x03,           /* whether the wireless device is on line */
  PERILINK_COMMAND_BATTERY_LEVEL = 0x04,     /* percent, charging, millivolts */
  PERILINK_COMMAND_PAIR = 0x05,              /* the receiver looks for a device */
  PERILINK_COMMAND_PAIR_STATUS = 0x06,       /* how that goes on */
  PERILINK_COMMAND_WRITE_MEMORY = 0x07,      /* up to 10 bytes; acknowledged by its exact echo */
  PERILINK_COMMAND_READ_MEMORY = 0x08,       /* up to 10 bytes */
  PERILINK_COMMAND_CLEAR_SETTING = 0x09,     /* the default configuration; takes up to 5 s */
  PERILINK_COMMAND_EVENT = 0x0A,             /* from the device alone, on its own */
  PERILINK_COMMAND_VID_PID = 0x0B,           /* sets vendor and product id */
  PERILINK_COMMAND_DESCRIPTOR_STRING = 0x0C, /* sets the device's name, 10 bytes a frame */
  PERILINK_COMMAND_USB_UPDATE_MODE = 0x0D,   /* resets into boot mode */
  PERILINK_COMMAND_READ_CONFIG = 0x0E,       /* the current configuration (profile) */
  PERILINK_COMMAND_SET_CONFIG = 0x0F,        /* switches to another */
  PERILINK_COMMAND_MTK_MODE = 0x11,          /* factory test mode */
  PERILINK_COMMAND_VERSION = 0x12,           /* of the firmware */
  PERILINK_COMMAND_SET_DONGLE_RGB = 0x14,    /* colours of a 4K receiver */
  PERILINK_COMMAND_GET_DONGLE_RGB = 0x15,
  PERILINK_COMMAND_SET_LONG_RANGE = 0x16, /* long-range mode */
  PERILINK_COMMAND_GET_LONG_RANGE = 0x17,
  PERILINK_COMMAND_SET_RGB_BAR_MODE = 0x18, /* the receiver's light bar */
  PERILINK_COMMAND_GET_RGB_BAR_MODE = 0x19,
  PERILINK_COMMAND_DONGLE_ID_TO_MOUSE = 0x1A, /* hands the receiver's id to the mouse */
  PERILINK_COMMAND_SET_SERIAL_NUMBER = 0x1F,
  PERILINK_COMMAND_GET_SERIAL_NUMBER = 0x20,
  PERILINK_COMMAND_RSSI = 0x2B,              /* signal strength */
  PERILINK_COMMAND_SET_INDICATOR_LED = 0x2C, /* the receiver's indicator */
  PERILINK_COMMAND_GET_INDICATOR_LED = 0x2D,
  PERILINK_COMMAND_SLAVE_VERSION = 0xB3, /* of the slave device's firmware */
  PERILINK_COMMAND_WRITE_CID_MID = 0xF0, /* customer and model id; always with the keyboard bit */
  PERILINK_COMMAND_READ_CID_MID = 0xF1
};

/* Flags of an event: bits of its first data byte. The others belong to the device's firmware;
 * GetDeviceStatusChanged gives bits 0 to 6. */
enum {
  PERILINK_EVENT_BATTERY = 0x40 /* ask for the battery; the optimiser does so while it is enabled */
};

/* ---- Configuration memory ----------------------------------------------------------------
 *
 * Byte addresses for the memory commands, the same in the image that a full read gives. A field is
 * its value bytes and one check byte behind them. A size below counts check bytes; entry i of a
 * list stands at its address + i x the size of an entry. */

enum {
  PERILINK_FLASH_IMAGE_SIZE = 6960,   /* the whole configuration, from address 0 on */
  PERILINK_SETTINGS_BLOCK_SIZE = 233, /* its settings, from address 0 on */
  PERILINK_ERASED = 0xFF,             /* a byte that was never written */

  /* What single exports read and write. */
  PERILINK_REPORT_RATE_ADDRESS = 0,
  PERILINK_CURRENT_DPI_ADDRESS = 4, /* the index of the level in use */
  PERILINK_DPI_LED_ADDRESS = 76,    /* the DPI indicator: four fields of one byte */
  PERILINK_DPI_LED_SIZE = 8,
  PERILINK_LED_BAR_ADDRESS = 160, /* the light bar: a field of six bytes and one of one byte */
  PERILINK_LED_BAR_SIZE = 9,

  /* DPI levels, in three lists. */
  PERILINK_DPI_LEVELS = 8,
  PERILINK_DPI_VALUES_ADDRESS = 12, /* fields of three bytes */
  PERILINK_DPI_VALUE_SIZE = 4,
  PERILINK_DPI_COLORS_ADDRESS = 44, /* fields of three bytes */
  PERILINK_DPI_COLOR_SIZE = 4,
  PERILINK_DPI_EXTENSIONS_ADDRESS = 6912, /* fields of two little-endian numbers and a byte */
  PERILINK_DPI_EXTENSION_SIZE = 6,

  PERILINK_KEY_FUNCTIONS = 16,
  PERILINK_KEY_FUNCTIONS_ADDRESS = 96, /* fields of three bytes */
  PERILINK_KEY_FUNCTION_SIZE = 4
};

/* Slots of shortcuts and of macros, 16 of each. */
enum {
  PERILINK_SLOTS = 16,

  /* A shortcut: its number of events, the events, and a check byte over both. */
  PERILINK_SHORTCUT_ADDRESS = 256, /* of slot 0; the others follow */
  PERILINK_SHORTCUT_SLOT_SIZE = 32,
  PERILINK_SHORTCUT_EVENTS_OFFSET = 1, /* of the first event in its slot */
  PERILINK_SHORTCUT_EVENT_SIZE = 3,    /* head, and two key bytes */
  PERILINK_SHORTCUT_MIN_EVENTS = 2,    /* fewer, or more than the most: the slot is empty */
  PERILINK_SHORTCUT_MAX_EVENTS = 6,

  /* A macro: the length of its name (1 to 30; anything else: none) and the name; then its number of
   * events, the events, and a check byte over both. */
  PERILINK_MACRO_ADDRESS = 768, /* of slot 0; the others follow */
  PERILINK_MACRO_SLOT_SIZE = 384,
  PERILINK_MACRO_NAME_OFFSET = 1,
  PERILINK_MACRO_NAME_SIZE = 30,
  PERILINK_MACRO_COUNT_OFFSET = 31,  /* of the number of events: the check begins there */
  PERILINK_MACRO_EVENTS_OFFSET = 32, /* of the first event in its slot */
  PERILINK_MACRO_EVENT_SIZE = 5,     /* head, two key bytes, and the delay, high byte first */
  PERILINK_MACRO_MIN_EVENTS = 2,     /* fewer, or more than the most: there are none */
  PERILINK_MACRO_MAX_EVENTS = 70,

  /* The head of an event: its kind in two bits, and its code. Both bits read as kind 2, too. */
  PERILINK_KEY_EVENT_KINDS = 0xC0,
  PERILINK_KEY_EVENT_KIND_0 = 0x80,
  PERILINK_KEY_EVENT_KIND_1 = 0x40,
  PERILINK_KEY_EVENT_KIND_2 = 0x00,
  PERILINK_KEY_EVENT_CODE = 0x0F
};
PERILINK_CHECK_LAYOUT(sizeof(((ProtocolData*)0)->dpi_levels) ==
                      PERILINK_DPI_LEVELS * sizeof(DPILevel));
PERILINK_CHECK_LAYOUT(sizeof(((ProtocolData*)0)->key_functions) ==
                      PERILINK_KEY_FUNCTIONS * sizeof(KeyFun));
PERILINK_CHECK_LAYOUT(sizeof(((ProtocolData*)0)->shortcuts) ==
                      PERILINK_SLOTS * sizeof(ShortcutKey));
PERILINK_CHECK_LAYOUT(sizeof(((ProtocolData*)0)->macros) == PERILINK_SLOTS * sizeof(MacroKey));
PERILINK_CHECK_LAYOUT(sizeof(((ShortcutKey*)0)->events) ==
                      PERILINK_SHORTCUT_MAX_EVENTS * sizeof(KeyEvent));
PERILINK_CHECK_LAYOUT(sizeof(((MacroKey*)0)->events) ==
                      PERILINK_MACRO_MAX_EVENTS * sizeof(KeyEvent));
PERILINK_CHECK_LAYOUT(sizeof(((MacroKey*)0)->name) == PERILINK_MACRO_NAME_SIZE);

/* Where a slot begins. slot: 0 to 15; 16 gives where the last one ends. */
PERILINK_INLINE uint16_t Perilink_ShortcutSlotAddress(size_t slot) {
  return (uint16_t)(PERILINK_SHORTCUT_ADDRESS + slot * PERILINK_SHORTCUT_SLOT_SIZE);
}
PERILINK_INLINE uint16_t Perilink_MacroSlotAddress(size_t slot) {
  return (uint16_t)(PERILINK_MACRO_ADDRESS + slot * PERILINK_MACRO_SLOT_SIZE);
}

/* How many bytes of its slot so many events take, from the slot's first byte to the check byte. */
PERILINK_INLINE size_t Perilink_ShortcutSize(size_t events) {
  return PERILINK_SHORTCUT_EVENTS_OFFSET + events * PERILINK_SHORTCUT_EVENT_SIZE + 1;
}
PERILINK_INLINE size_t Perilink_MacroSize(size_t events) {
  return PERILINK_MACRO_EVENTS_OFFSET + events * PERILINK_MACRO_EVENT_SIZE + 1;
}

/* The memory of a keyboard holds its keys in layers, from address 0 on. */
enum { PERILINK_LAYERS = 3, PERILINK_LAYER_SIZE = 512 };

/* Where a layer begins. layer: 1 to 3. */
PERILINK_INLINE uint16_t Perilink_LayerAddress(size_t layer) {
  return (uint16_t)((layer - 1) * PERILINK_LAYER_SIZE);
}

/* ---- What an upgrade tells its host ------------------------------------------------------
 *
 * Members of UpgradeEvent. What arg1 and arg2 say to each is in upgrade.h. */

enum { PERILINK_UPGRADE_MESSAGE_CLASS = 7 }; /* of every message */

enum PerilinkUpgradeKind {
  PERILINK_UPGRADE_PROGRESS = 1, /* the code is the percentage, 0 to 100 */
  PERILINK_UPGRADE_RESULT = 2,   /* a PerilinkUpgradeResult */
  PERILINK_UPGRADE_NOTICE = 3    /* a PerilinkUpgradeNotice, or a status of the device's own */
};

/* All but the device's error end the upgrade. */
enum PerilinkUpgradeResult {
  PERILINK_UPGRADE_RESULT_SUCCESS = 1,
  PERILINK_UPGRADE_RESULT_TIMEOUT = 2,            /* arg1 is a PerilinkUpgradeTimeout */
  PERILINK_UPGRADE_RESULT_NORMAL_INTERFACES = 4,  /* in normal mode: not one of each kind */
  PERILINK_UPGRADE_RESULT_BOOT_INTERFACES = 5,    /* in boot mode: more than one of a kind */
  PERILINK_UPGRADE_RESULT_NO_NORMAL_DEVICE = 6,   /* none in normal mode came in time */
  PERILINK_UPGRADE_RESULT_NO_BOOT_DEVICE = 7,     /* none in boot mode came in time, and stayed */
  PERILINK_UPGRADE_RESULT_RESET_WRITE_FAILED = 8, /* the reset command was not written */
  PERILINK_UPGRADE_RESULT_BOOT_OPEN_FAILED = 9,   /* the device in boot mode can't be opened */
  PERILINK_UPGRADE_RESULT_DEVICE_ERROR = 10       /* arg1 is the device's error */
};

enum PerilinkUpgradeTimeout {
  PERILINK_UPGRADE_TIMEOUT_RESET_ECHO = 1, /* the device did not echo its reset command */
  PERILINK_UPGRADE_TIMEOUT_DOWNLOAD = 3,   /* nothing could be written to it for too long */
  PERILINK_UPGRADE_TIMEOUT_LIBRARY = 4     /* no time was up: the library ran out of something */
};

enum PerilinkUpgradeNotice {
  PERILINK_UPGRADE_NOTICE_DOWNLOAD = 16, /* the device is ready for the download */
  PERILINK_UPGRADE_NOTICE_BOOT = 17,     /* on the way to boot mode, or there */
  PERILINK_UPGRADE_NOTICE_END = 0x88     /* the device's status: it has its firmware, complete */
};

/* ---- The upgrade file --------------------------------------------------------------------
 *
 * A main image at offset 0, and perhaps a slave image for the second device of a set. An image is a
 * header block and its payload. Integers are little-endian; texts are in the ANSI code page and end
 * at the first NUL or with their field. */

enum {
  PERILINK_UPGRADE_HEADER_SIZE = 8192, /* the header block: UpgradeFileHeader, the rest unread */
  PERILINK_UPGRADE_TEXT_SIZE = 64,
  PERILINK_UPGRADE_COMMAND_SIZE = 62, /* the most bytes of a command */
  PERILINK_UPGRADE_ECHO_OFFSET = 5,   /* in the reset command: not 0 when the device echoes it */
  PERILINK_UPGRADE_CHECKSUM_START = 0x55555555
};

#pragma pack(push, 1)

/* A command for the device that the file brings along. */
typedef struct UpgradeFileCommand {
  uint8_t length;             /* bytes to send; of the packet template: of every packet, up to 64 */
  uint8_t use_feature_report; /* 0: sent as an output report; else as a feature report */
  uint8_t data[62];           /* report id first; a length beyond them counts as 62 */
} UpgradeFileCommand;
PERILINK_CHECK_LAYOUT(sizeof(UpgradeFileCommand) == 64);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileCommand, data) == 2);

/* The part of the header block that is read. A key is a fragment of a device path, without regard
 * to case: it selects the interfaces whose path contains it; an empty one selects none. */
typedef struct UpgradeFileHeader {
  uint32_t checksum;       /* see Perilink_UpgradeChecksum */
  uint32_t checked_length; /* end of the range that is summed, counted from the image's start */
  uint32_t payload_length;
  uint32_t slave_offset; /* of the slave image in the file; 0: none. Main image only */
  uint8_t reserved[7];
  char file_id[64];
  char chip_name[64];
  char boot_input_key[64];
  char boot_output_key[64];
  char normal_input_key[64];
  char normal_output_key[64];
  UpgradeFileCommand reset_command;   /* from normal mode into boot mode */
  UpgradeFileCommand start_command;   /* the first packet */
  UpgradeFileCommand packet_template; /* of the others: length, byte 0 and the first address */
  char sensor_name[64];
  char product_name[64];
} UpgradeFileHeader;
PERILINK_CHECK_LAYOUT(sizeof(UpgradeFileHeader) == 727);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, checksum) == 0);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, checked_length) == 4);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, payload_length) == 8);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, slave_offset) == 12);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, reserved) == 16);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, file_id) == 23);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, chip_name) == 87);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, boot_input_key) == 151);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, boot_output_key) == 215);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, normal_input_key) == 279);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, normal_output_key) == 343);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, reset_command) == 407);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, start_command) == 471);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, packet_template) == 535);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, sensor_name) == 599);
PERILINK_CHECK_LAYOUT(offsetof(UpgradeFileHeader, product_name) == 663);

#pragma pack(pop)

/* The checksum that belongs into the header of an image: 0x55555555 minus the bytes from the
 * payload length on up to `checked_length` (excluded), each as a number, modulo 2^32. A checked
 * length beyond the header block: nothing is summed, and the checksum must be 0. `image`: the
 * header block, 8192 bytes. */
PERILINK_INLINE uint32_t Perilink_UpgradeChecksum(const uint8_t* image, uint32_t checked_length) {
  uint32_t checksum = PERILINK_UPGRADE_CHECKSUM_START;
  if (checked_length > PERILINK_UPGRADE_HEADER_SIZE) return 0;
  for (size_t i = offsetof(UpgradeFileHeader, payload_length); i < checked_length; ++i)
    checksum -= image[i];
  return checksum;
}

/* ---- Boot mode ---------------------------------------------------------------------------
 *
 * Packets to a boot loader and its replies: reports without a checksum. What the codes say stands
 * behind the report id. */

enum {
  PERILINK_PACKET_SIZE = 64,           /* the longest */
  PERILINK_PACKET_CODE_OFFSET = 1,     /* PERILINK_BOOT_DATA; of the start command, its own */
  PERILINK_PACKET_PLACE_OFFSET = 2,    /* PERILINK_BOOT_MORE or PERILINK_BOOT_LAST */
  PERILINK_PACKET_LENGTH_OFFSET = 3,   /* number of payload bytes */
  PERILINK_PACKET_ADDRESS_OFFSET = 5,  /* of the first payload byte: four bytes, high byte first */
  PERILINK_PACKET_PAYLOAD_OFFSET = 17, /* up to 32 bytes, filled up with 0xFF */
  PERILINK_PACKET_PAYLOAD_SIZE = 32
};

enum PerilinkBootCode {
  PERILINK_BOOT_START = 0xB0, /* the start packet of make_upgrade; reply: ready for the download */
  PERILINK_BOOT_DATA = 0xB1,  /* a packet with payload, and its echo */
  PERILINK_BOOT_MORE = 0xC0,  /* more packets follow */
  PERILINK_BOOT_LAST = 0xC1,  /* this is the last one */
  PERILINK_BOOT_ERROR = 0x5A, /* reply; then the mark, and the error */
  PERILINK_BOOT_ERROR_MARK = 0xA5,
  PERILINK_BOOT_STATUS = 0x5B, /* reply; then the mark, a status, and its detail */
  PERILINK_BOOT_STATUS_MARK = 0xB5
};

#endif /* PERILINK_PROTOCOL_H_ */
