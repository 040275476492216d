/* The device's configuration image and the host's configuration record: parsers, converters of the
 * sub-records, and the update that turns changes of a record into flash writes.
 *
 * All buffers are the caller's; nothing is allocated or kept but the library's own copy of the
 * record. No function reports an error: a field whose check byte is wrong takes its default or
 * keeps what the record holds (config_layout.h says which), and the next field is read. Every
 * function may be called on any thread; the buffers of one call must not change meanwhile.
 */
#ifndef PERILINK_PROTOCOL_DATA_H_
#define PERILINK_PROTOCOL_DATA_H_

#include "perilink/protocol.h"
#include "perilink/records.h"

PERILINK_BEGIN_DECLS

/* ---- Parsers ---------------------------------------------------------------------------- */

/* Fills bytes 0 to 45 of `record` from the image's settings block (`image`: at least
 * PERILINK_SETTINGS_BLOCK_SIZE bytes) and touches nothing else. */
PERILINK_API void MouseConfigParser(const uint8_t* image, ProtocolData* record);

/* Fills the whole `record` from a whole image (`image`: PERILINK_FLASH_IMAGE_SIZE bytes). From the
 * first call on, ProtocolDataUpdate does its work. */
PERILINK_API void ProtocolDataParser(const uint8_t* image, ProtocolData* record);
PERILINK_API void CS_ProtocolDataParser(const uint8_t* image, ProtocolData* record);

/* Copies `record` into the library's own record, which says what the device is believed to hold. */
PERILINK_API void SetDllProtocolData(const ProtocolData* record);
PERILINK_API void CS_SetDllProtocolData(const ProtocolData* record);

/* ---- Update ------------------------------------------------------------------------------ */

/* Compares `record` with the library's own record, queues a flash write for every field that
 * differs and copies it into the library's own record. All writes of a call stand together in the
 * server's queue, ordered as the record is; equal records queue nothing. Does nothing until
 * ProtocolDataParser has run once. The writes are sent by the server thread; those that it drops
 * leave the library's own record ahead of the device until the configuration is read again. If the
 * writes don't all fit into the queue (PERILINK_QUEUE_LIMIT) or memory runs out, none is queued and
 * the library's own record stays as it was.
 *
 * A shortcut whose count is not 2 to 6 is emptied (count 0, events zero) in `record`. A macro whose
 * count is over 70 or whose name length is over 30 is passed over. */
PERILINK_API void ProtocolDataUpdate(ProtocolData* record);
PERILINK_API void CS_ProtocolDataUpdate(ProtocolData* record);

/* The same against a record of the caller's: `previous` takes the new values. Works whether or not
 * anything has been parsed. Shortcuts with a count out of range are emptied in both records. */
PERILINK_API void CS_ProtocolDataCompareUpdate(ProtocolData* record, ProtocolData* previous);

/* ---- Converters -------------------------------------------------------------------------- */

/* `source`: 4 bytes, three colour bytes and their check byte. Fills the level's colour (0xFF, 0xFF,
 * 0xFF when the check is wrong) and leaves the rest of `level` as it is. */
PERILINK_API void BufferToDPIColor(const uint8_t* source, DPILevel* level);

/* `source`: 8 bytes, four pairs of value and check byte, as the image holds them at address 76. */
PERILINK_API void BufferToDPILed(const uint8_t* source, DPILed* led);
PERILINK_API void CS_BufferToDPILed(const uint8_t* source, DPILed* led);

/* `source`: 9 bytes, six values and their check byte, one value and its check byte, as the image
 * holds them at address 160. */
PERILINK_API void BufferToLedBar(const uint8_t* source, LedBar* bar);
PERILINK_API void CS_BufferToLedBar(const uint8_t* source, LedBar* bar);

/* `source`: 4 bytes, three values and their check byte. */
PERILINK_API void BufferToKeyFunMap(const uint8_t* source, KeyFun* entry);

/* Encodes `shortcut` into a slot of 32 bytes: its count, three bytes for each event and a check
 * byte, 3 x count + 2 bytes in all; the rest of `target` is left as it is. A count that is not 2 to
 * 6 is written alone, and `shortcut` is emptied: count 0, events zero. For example count 2 with the
 * events (0, 0x02, 0x04 0x00) and (1, 0x00, 0x05 0x00) gives 02 82 04 00 40 05 00 88. */
PERILINK_API void ShortcutKeyToBuffer(ShortcutKey* shortcut, uint8_t* target);

/* Decodes a slot of 32 bytes. A count that is not 2 to 6, or a wrong check byte, gives an empty
 * shortcut: count 0, events zero. Events from the count on are left as they are otherwise. */
PERILINK_API void BufferToShortcutKey(const uint8_t* source, ShortcutKey* shortcut);

/* Encodes `macro` into a slot of 384 bytes: name length and name in bytes 0 to 30, the count in
 * byte 31, five bytes for each event, and a check byte over count and events; the rest of `target`
 * is left as it is. A name length over 30 is taken as 30 and a count over 70 as 70. For example
 * count 2 with the events (0, 1, 0x04 0x00, delay 10) and (1, 1, 0x04 0x00, delay 300) gives, from
 * byte 31 on, 02 81 04 00 00 0A 41 04 00 01 2C 52. */
PERILINK_API void MacroKeyToBuffer(const MacroKey* macro, uint8_t* target);

/* Decodes a slot of 384 bytes. The name is taken by itself (none when its length is not 1 to 30). A
 * count that is not 2 to 70, or a wrong check byte, gives no events: count 0, all seventy zero.
 * Events from the count on are left as they are otherwise. */
PERILINK_API void BufferToMacroKey(const uint8_t* source, MacroKey* macro);

PERILINK_END_DECLS

#endif /* PERILINK_PROTOCOL_DATA_H_ */
