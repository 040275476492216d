/* The background server: one thread that keeps a device open, writes queued commands to it one at a
 * time and hands what the device sends to the host's callback.
 *
 *   1. The host finds the device's paths (discovery) and calls a start export with a callback.
 *   2. It calls command exports. Each queues one request and returns at once; none reports whether
 *      the device will answer.
 *   3. The answers, and the events that the device sends on its own, come through the callback. The
 *      host decodes their data with the small decoders at the end of this header.
 *   4. When the device has gone the server waits, and the host calls a start export again when it
 *      is back. UsbServer_Exit ends the thread.
 *
 * What the callback gets (ServerReportCallback in records.h; the frame is always 17 bytes):
 *
 *   event of the device   frame: the event (command 0x0A); data: its 10 data bytes, flags first
 *   answer to a request   frame: the request, with the answer's length byte; for a request of
 *                         several frames its last one. data: ten bytes for each frame answered, in
 *                         order. length: the sum of the answers' length bytes, at most 8192; 4 for
 *                         the on-line state and the battery
 *   battery level         frame: 08 04 00 00 00 02, ten zeros, 49; data, 4 bytes: level, charging
 *                         flag, millivolts (high byte first). Sent by the battery optimiser while
 *                         it is enabled, also in place of the device's answer to a battery request
 *   whole configuration   frame: 08 08 and zeros; data: the configuration image, 6960 bytes
 *
 * How the server writes: frames leave in queue order, at least 8 ms apart, the next only when the
 * one before has been answered. An answer may take 100 ms (5000 ms to a reset of the settings);
 * then the frame is written again. When five frames in a row have been written and nothing valid
 * has come from the device in between, everything queued is dropped. A memory write counts as
 * answered only when the device echoes it exactly. A memory read is answered by its command, and by
 * its address once the device has shown that its answers name theirs: a late answer, or the answer
 * to another program's read, is then no answer.
 *
 * How to know that a write is done: queue a query behind it, for example UsbServer_ReadVersion().
 * Its turn comes when everything queued before it has been answered. So its answer, in the
 * callback, says that the device has acknowledged every write. When it has not come after some
 * seconds, something was dropped, with all that was queued behind it: read the configuration again
 * to see what was written. examples/write.c is a host in C that does so.
 *
 * All functions may be called from any thread, the callback's included. A call may wait for one
 * write to the device. Nothing is thrown. When memory runs out, or PERILINK_QUEUE_LIMIT frames are
 * queued already, a call queues nothing; nobody is told. Records and data behind pointers are
 * copied before a function returns; the pointers must be valid.
 *
 * Paths of the wide family are UTF-16 (wide) strings, those of the narrow (UsbServerC_) and managed
 * (CS_) families NUL-terminated strings in the system's ANSI code page; null counts as empty. Where
 * this header names a function with and without CS_, both do the same.
 */
#ifndef PERILINK_SERVER_H_
#define PERILINK_SERVER_H_

#include "perilink/base.h"
#include "perilink/records.h"

PERILINK_BEGIN_DECLS

enum { PERILINK_QUEUE_LIMIT = 65536 };

/* ---- Start and end ----------------------------------------------------------------------- */

/* A start drops everything queued or half answered, stores the paths and the callback, makes the
 * mouse the target of commands (the keyboard, in the Keyboard variants) and makes the server open
 * both paths anew. When the server's thread does not run yet, it is created; otherwise the running
 * thread goes over to the new paths on its next pass, also when it had been asked to exit but has
 * not ended. Whether the paths could be opened is not reported. A null callback is allowed: nothing
 * is reported then. */
#ifdef __cplusplus
/* input_path: the HID interface that is read; output_path: the one that is written.
 * Returns the handle of the thread that was created, which is the caller's to close, or 0 when the
 * thread was running already or could not be created. */
PERILINK_API uintptr_t UsbServer_Start(const std::wstring& input_path,
                                       const std::wstring& output_path,
                                       ServerReportCallback callback);
PERILINK_API uintptr_t UsbServer_KeyboardStart(const std::wstring& input_path,
                                               const std::wstring& output_path,
                                               ServerReportCallback callback);
#endif
PERILINK_API void UsbServerC_Start(const char* input_path, const char* output_path,
                                   ServerReportCallback callback);
PERILINK_API void UsbServerC_KeyboardStart(const char* input_path, const char* output_path,
                                           ServerReportCallback callback);
/* One path for both reading and writing; the second argument is not looked at. */
PERILINK_API void CS_UsbServer_Start(const char* path, const char* unused,
                                     ServerReportCallback callback);
PERILINK_API void CS_UsbServer_KeyboardStart(const char* path, const char* unused,
                                             ServerReportCallback callback);

/* Asks the server to end and returns at once. The thread finishes its pass (an idle one sleeps
 * once), saves the battery level, closes the device and ends.
 *
 * Until it has ended, its callback may still be called: with an answer or an event that came
 * before, or with a level. A start with another callback takes effect at once: the old one is not
 * called any more, but a call of it that has begun may still run. Whoever must know that no call
 * can come any more waits for the thread that UsbServer_Start gave, or, in any language, calls
 * UsbReaderWriterServer after UsbServer_Exit, not from the callback: it returns when the server has
 * ended. The library may be unloaded without waiting. */
PERILINK_API void UsbServer_Exit(void);
PERILINK_API void CS_UsbServer_Exit(void);

/* Runs the server on the calling thread, until UsbServer_Exit. One thread at a time runs it: while
 * another one does, the server's own included, the call only waits for the end of that run. After
 * UsbServer_Exit, with nothing started since, it returns at once. */
PERILINK_API void UsbReaderWriterServer(void);
PERILINK_API void CS_UsbServer_Thread(void);

/* How long a pass of the server sleeps while nothing is queued, in milliseconds: 100 at load. What
 * is queued meanwhile is written when the sleep ends. 0 yields without sleeping. Whether the device
 * is still present is looked at between the sleeps, at most once a second unless a read, a write or
 * an answer has failed. */
PERILINK_API void CS_UsbServer_SetThreadSleepTime(uint32_t milliseconds);

/* The paths that the last start export stored; empty before the first. */
#ifdef __cplusplus
PERILINK_API void UsbServer_GetCurrentInputDevice(std::wstring& path);
PERILINK_API void UsbServer_GetCurrentOutputDevice(std::wstring& path);
#endif
/* The same as an array of BSTR with one element, lower bound 0. The caller destroys it; null when
 * memory runs out. */
PERILINK_API SAFEARRAY* CS_UsbServer_GetCurrentInputDevice(void);
PERILINK_API SAFEARRAY* CS_UsbServer_GetCurrentOutputDevice(void);

/* ---- Frames that the host builds --------------------------------------------------------- */

/* Makes the entry a single frame, still to be written, all of whose bytes are 0. */
PERILINK_API void UsbServer_InitWriteCommand(QueueEntry* entry);
/* Queues a copy of the entry as it is. The host fills in the frame, its checksum included. Leave
 * the continuation 0: 1 to 82 would feed the answer to a configuration read. */
PERILINK_API void UsbServer_WriteCommand(const QueueEntry* entry);

/* ---- Queries: command code, then what answers -------------------------------------------- */

/* 0x01, with four random bytes. Decode with GetDeviceInfo. All four names do the same. */
PERILINK_API void UsbServer_ReadEncryption(void);
PERILINK_API void UsbServer_ReadCidMid(void);
PERILINK_API void CS_UsbServer_ReadEncryption(void);
PERILINK_API void CS_UsbServer_ReadCidMid(void);

/* 0x03: whether the device is on-line. 4 bytes; decode with isDeviceOnLine. */
PERILINK_API void UsbServer_ReadOnLine(void);
PERILINK_API void CS_UsbServer_ReadOnLine(void);

/* 0x04: the battery. 4 bytes; decode with GetDeviceBatteryStatus. */
PERILINK_API void UsbServer_ReadBatteryLevel(void);
PERILINK_API void CS_UsbServer_ReadBatteryLevel(void);

/* 0x06: how pairing goes on. */
PERILINK_API void UsbServer_ReadDonglePairStatus(void);
PERILINK_API void CS_UsbServer_ReadDonglePairStatus(void);

/* 0x0E: the current configuration (profile). */
PERILINK_API void UsbServer_ReadConfig(void);
PERILINK_API void CS_UsbServer_ReadConfig(void);

/* 0x12: the firmware's version. Decode with GetDeviceVersion. */
PERILINK_API void UsbServer_ReadVersion(void);
PERILINK_API void CS_UsbServer_ReadVersion(void);

/* 0xB3: the version of the slave device. */
PERILINK_API void UsbServer_GetSlaveVersion(void);
PERILINK_API void CS_UsbServer_GetSlaveVersion(void);

/* 0x15: the colours of a 4K receiver. */
PERILINK_API void UsbServer_Get4KDongleRGBValue(void);
PERILINK_API void CS_UsbServer_Get4KDongleRGBValue(void);

/* 0x17: the long-range mode. */
PERILINK_API void UsbServer_GetLongRangeMode(void);
PERILINK_API void CS_UsbServer_GetLongRangeMode(void);

/* 0x19: the receiver's light bar. */
PERILINK_API void CS_UsbServer_GetDongleRGBBarMode(void);

/* 0x20: the serial number. */
PERILINK_API void UsbServer_GetMouseSerialNumber(void);
PERILINK_API void CS_UsbServer_GetMouseSerialNumber(void);

/* 0x2B: the signal strength. */
PERILINK_API void UsbServer_GetRSSI(void);
PERILINK_API void CS_UsbServer_GetRSSI(void);

/* 0x2D: the receiver's indicator LED. */
PERILINK_API void UsbServer_GetDongleIndicatorLed(void);
PERILINK_API void CS_UsbServer_GetDongleIndicatorLed(void);

/* A query with a command code of the host's. Code 0x0A belongs to events and is never answered. */
PERILINK_API void UsbServer_GetData(uint8_t command);
PERILINK_API void CS_UsbServer_GetData(uint8_t command);

/* ---- Settings ---------------------------------------------------------------------------- */

/* 0x02: tells the device whether the host's software runs (non-zero) or not (0). Non-zero also
 * makes the server poll the battery at once; 0 stops its polling until a start, a battery event or
 * a non-zero status. */
PERILINK_API void UsbServer_SetPCDriverStatus(uint8_t status);
PERILINK_API void CS_UsbServer_SetPCDriverStatus(uint8_t status);

/* 0x05: makes the receiver look for a device to pair with: one with this customer and model id, any
 * one (ids 0 and 0), or one with this customer id. */
PERILINK_API void UsbServer_EnterDonglePairWithCidMid(uint8_t cid, uint8_t mid);
PERILINK_API void CS_UsbServer_EnterDonglePairWithCidMid(uint8_t cid, uint8_t mid);
PERILINK_API void UsbServer_EnterDonglePair(void);
PERILINK_API void CS_UsbServer_EnterDonglePair(void);
PERILINK_API void UsbServer_EnterDonglePairOnlyCid(uint8_t cid);
PERILINK_API void CS_UsbServer_EnterDonglePairOnlyCid(uint8_t cid);

/* 0x09: back to the default configuration. The device may take up to 5 s. */
PERILINK_API void UsbServer_SetClearSetting(void);
PERILINK_API void CS_UsbServer_SetClearSetting(void);

/* 0x0B: new vendor and product ids, of which the low 12 bits are sent. */
PERILINK_API void UsbServer_SetVidPid(uint32_t vid, uint32_t pid);
PERILINK_API void CS_UsbServer_SetVidPid(uint32_t vid, uint32_t pid);

/* 0x0C: the device's descriptor string, in the system's ANSI code page: up to 29 bytes with their
 * terminating NUL, or the first 30 bytes of a longer text without one. One callback when the whole
 * text has been answered. */
#ifdef __cplusplus
PERILINK_API void UsbServer_SetDeviceDescriptorString(const std::wstring& text);
#endif
PERILINK_API void UsbServerC_SetDeviceDescriptorString(const char* text);
PERILINK_API void CS_UsbServer_SetDeviceDescriptorString(const char* text);

/* 0x0D: into the firmware's update mode. */
PERILINK_API void UsbServer_EnterUsbUpdateMode(void);
PERILINK_API void CS_UsbServer_EnterUsbUpdateMode(void);

/* 0x0F: switches to a configuration (profile). */
PERILINK_API void UsbServer_SetCurrentConfig(uint8_t config);
PERILINK_API void CS_UsbServer_SetCurrentConfig(uint8_t config);

/* 0x11: into the factory's test mode. */
PERILINK_API void UsbServer_EnterMTKMode(void);
PERILINK_API void CS_UsbServer_EnterMTKMode(void);

/* 0x14: the colours of a 4K receiver. */
PERILINK_API void UsbServer_Set4KDongleRGB(const DataRecord10* record);
PERILINK_API void CS_UsbServer_Set4KDongleRGB(const DataRecord10* record);

/* 0x16: the long-range mode. */
PERILINK_API void UsbServer_SetLongRangeMode(uint8_t mode);
PERILINK_API void CS_UsbServer_SetLongRangeMode(uint8_t mode);

/* 0x18: the receiver's light bar. Mode 0 is sent when the record is not enabled. */
PERILINK_API void CS_UsbServer_SetDongleRGBBarMode(const RgbBarMode* record);

/* 0x1A: the receiver's id, to the mouse. */
PERILINK_API void UsbServer_SetDongleIDToMouse(const DataRecord10* record);
PERILINK_API void CS_UsbServer_SetDongleIDToMouse(const DataRecord10* record);

/* 0x1F: the serial number. */
PERILINK_API void UsbServer_SetMouseSerialNumber(const DataRecord10* record);
PERILINK_API void CS_UsbServer_SetMouseSerialNumber(const DataRecord10* record);

/* 0x2C: the receiver's indicator LED. */
PERILINK_API void UsbServer_SetDongleIndicatorLed(const IndicatorLed* record);
PERILINK_API void CS_UsbServer_SetDongleIndicatorLed(const IndicatorLed* record);

/* A command code of the host's with up to ten bytes of data. More than ten: nothing is queued. */
PERILINK_API void UsbServer_SetData(uint8_t command, const uint8_t* data, uint8_t length);
PERILINK_API void CS_UsbServer_SetData(uint8_t command, const uint8_t* data, uint8_t length);

/* ---- Configuration memory (0x08) --------------------------------------------------------- */

/* Reads `length` bytes, 1 to 8190, from the low 16 bits of `address`; any other length queues
 * nothing. One callback with all of them. The continuation is 0 for a host; other values up to 82
 * belong to the configuration read. */
PERILINK_API void UsbServer_ReadFalshData(uint32_t address, int32_t length, uint8_t continuation);
PERILINK_API void CS_UsbServer_ReadFalshData(uint32_t address, int32_t length);

/* Reads the whole configuration, slots that hold nothing left out. At the end it becomes the
 * library's own record (ProtocolDataUpdate compares with it) and the host gets one callback with
 * the image of 6960 bytes, erased (0xFF) where nothing was read. Without a callback, or when the
 * device stops answering, nothing comes of it. */
PERILINK_API void UsbServer_ReadAllFlashData(void);
PERILINK_API void CS_UsbServer_ReadAllFlashData(void);

/* Single settings: report rate (1 byte), current DPI level (1), DPI indicator (8, decode with
 * BufferToDPILed), light bar (9, decode with BufferToLedBar). They also refresh the library's own
 * record, from a device whose answers name the address of the read. */
PERILINK_API void UsbServer_ReadReportRate(void);
PERILINK_API void CS_UsbServer_ReadReportRate(void);
PERILINK_API void UsbServer_ReadCurrentDPI(void);
PERILINK_API void CS_UsbServer_ReadCurrentDPI(void);
PERILINK_API void UsbServer_ReadDPILed(void);
PERILINK_API void CS_UsbServer_ReadDPILed(void);
PERILINK_API void UsbServer_ReadLedBar(void);
PERILINK_API void CS_UsbServer_ReadLedBar(void);

/* Reads the keys of one layer of a keyboard, without the server and on the calling thread: 512
 * bytes for layers 1 to 3, one byte for any other number, as an array of VT_UI1 with lower bound 0
 * that the caller destroys. No elements when a piece of ten bytes was not answered within two tries
 * of 200 ms; null when memory runs out. */
PERILINK_API SAFEARRAY* CS_UsbKeyboard_LoadLayerKeys(const char* path, uint8_t layer);

/* ---- Decoders of callback data ----------------------------------------------------------- */

/* They look at the bytes and at nothing else; `data` is what the callback got. */

/* Answer to 0x01, at least 7 bytes: bytes 4 to 6. */
PERILINK_API void GetDeviceInfo(const uint8_t* data, DeviceInfo* info);
PERILINK_API void CS_GetDeviceInfo(const uint8_t* data, DeviceInfo* info);

/* Answer to 0x03: true when the first byte is not 0. */
PERILINK_API bool isDeviceOnLine(const uint8_t* data);
PERILINK_API bool CS_isDeviceOnLine(const uint8_t* data);

/* Answer to 0x04, and the optimiser's levels: 4 bytes. */
PERILINK_API void GetDeviceBatteryStatus(const uint8_t* data, BatteryLevel* battery);
PERILINK_API void CS_GetDeviceBatteryStatus(const uint8_t* data, BatteryLevel* battery);

/* An event: bits 0 to 6 of its first byte, each as 0 or 1. */
PERILINK_API void GetDeviceStatusChanged(const uint8_t* data, DeviceStatus* status);
PERILINK_API void CS_GetDeviceStatusChanged(const uint8_t* data, DeviceStatus* status);

/* Answer to 0x12: 256 times the first byte plus the second. */
PERILINK_API uint32_t GetDeviceVersion(const uint8_t* data);
PERILINK_API uint32_t CS_GetDeviceVersion(const uint8_t* data);

PERILINK_END_DECLS

#endif /* PERILINK_SERVER_H_ */
