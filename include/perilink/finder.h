/* Discovery, raw pass-through and direct commands: everything that a host asks a device itself,
 * on its own thread, with the answer in hand when the call returns.
 *
 * Three families of exports do the same:
 *
 *   UsbFinder_     wide: text as std::wstring, lists as std::vector (C++ only, same compiler and
 *                  runtime as the library);
 *   UsbFinderC_    narrow: NUL-terminated text in the ANSI code page (UTF-8 on Linux), lists as
 *                  arrays that UsbFinderC_Free releases;
 *   CS_UsbFinder_  managed: narrow text in, lists as SAFEARRAYs of BSTR and byte blocks as
 *                  SAFEARRAYs of VT_UI1 out, which the caller destroys.
 *
 * A device path is what discovery returns. Narrow text may be empty; a null pointer counts as
 * empty text. Other pointers must not be null, unless said otherwise.
 *
 * Nothing is thrown out of any export. Memory that runs out looks like any other failure: false, 0,
 * an empty list; a null pointer where not even an empty array can be made.
 *
 * Threads: every export may be called from any thread, several at once; the pass-through family,
 * whose open device is one for the whole process, from one thread at a time. Each direct command
 * opens the path, exchanges one frame and closes it again. Two exchanges with one device at the
 * same moment can take each other's replies; each drops a reply to another command and tries again.
 *
 * The frame, by example. Every command travels as a report of 17 bytes, and so does its reply. To
 * ask a mouse for its firmware version, and the answer of a device with version 1.23 (0x0123):
 *
 *   byte      0  1  2  3  4  5  6  7  8  9 10 11 12 13 14 15 16
 *   request  08 12 00 00 00 00 00 00 00 00 00 00 00 00 00 00 3B
 *   reply    08 12 00 00 00 02 01 23 00 00 00 00 00 00 00 00 15
 *            |  |  |  |     |  |                             |
 *            |  |  |  |     |  data, 10 bytes                checksum
 *            |  |  |  |     data length; bit 7 (0x80): for the keyboard
 *            |  |  |  address of the memory commands, high byte first
 *            |  |  status: 0 in a request; a device status in a reply, 0 for success
 *            |  command, echoed by the reply
 *            report id, always 08
 *
 * The checksum is 0x55 minus the sum of bytes 0 to 15, modulo 256: 0x55 - 0x1A = 0x3B above. A
 * reply counts only with its right checksum and the request's command.
 */
#ifndef PERILINK_FINDER_H_
#define PERILINK_FINDER_H_

#include "perilink/base.h"
#include "perilink/records.h"

PERILINK_BEGIN_DECLS

/* ---- Discovery: narrow and managed -------------------------------------------------------
 *
 * Lists the paths of the HID interfaces that are present, in the system's order and spelling.
 * Nothing is opened and nothing is cached. The result is a snapshot; an empty list also stands for
 * an enumeration that failed.
 *
 * Narrow results: an array of `*count` strings, each NUL-terminated; release array and strings with
 * UsbFinderC_Free(array, count), also when the count is 0. Null with a count of 0 when memory ran
 * out. Managed results: a one-dimensional SAFEARRAY of BSTR, lower bound 0, no elements when
 * nothing is found; destroy it with SafeArrayDestroy. Null when memory ran out. */

/* Every HID interface that is present. */
PERILINK_API char** UsbFinderC_EnumHidDeviceList(uint32_t* count);
PERILINK_API SAFEARRAY* CS_UsbFinder_EnumHidDeviceList(void);

/* Interfaces whose path contains "vid_<vendor>&pid_<product>". The ids are text, normally four
 * hexadecimal digits each, and are lower-cased; nothing else is tested. An empty product finds
 * every product of the vendor. Nothing is found for ids that the ANSI code page can't hold. */
PERILINK_API char** UsbFinderC_FindHidDevices(const char* vendor_id, const char* product_id,
                                              uint32_t* count);
PERILINK_API SAFEARRAY* CS_UsbFinder_FindHidDevices(const char* vendor_id, const char* product_id);

/* Interfaces whose path contains the lower-cased key: a fragment of a path, or a whole one to ask
 * whether that interface is present. An empty key finds nothing. */
PERILINK_API char** UsbFinderC_FindHidDevicesByKey(const char* key, uint32_t* count);
PERILINK_API SAFEARRAY* CS_UsbFinder_FindHidDevicesByKey(const char* key);

/* Interfaces of the vendor and product that carry the USB interface number and the HID collection
 * number: "vid_1234&pid_abcd&mi_01&col05" for "1234", "ABCD", 1 and 5. With an empty product: those
 * of any product of the vendor. */
PERILINK_API char** UsbFinderC_FindHidDevicesByDeviceId(const char* vendor_id,
                                                        const char* product_id,
                                                        int32_t interface_number,
                                                        int32_t collection_number, uint32_t* count);
PERILINK_API SAFEARRAY* CS_UsbFinder_FindHidDevicesByDeviceId(const char* vendor_id,
                                                              const char* product_id,
                                                              int32_t interface_number,
                                                              int32_t collection_number);

/* The same with interface 1 and collection 5, where the devices keep their commands. */
PERILINK_API char** UsbFinderC_FindHidDevicesByDefaultDeviceId(const char* vendor_id,
                                                               const char* product_id,
                                                               uint32_t* count);
PERILINK_API SAFEARRAY* CS_UsbFinder_FindHidDevicesByDefaultDeviceId(const char* vendor_id,
                                                                     const char* product_id);

/* Releases a list that a narrow export returned: `count` strings (none when it is 0 or negative)
 * and the array. The count must be the one returned with it. A null array is ignored. */
PERILINK_API void UsbFinderC_Free(char** list, int32_t count);

/* The processor architecture of the build: one BSTR, "x64". */
PERILINK_API SAFEARRAY* CS_UsbFinder_GetDllVersion(void);

/* Vendor and product id and version of the device behind the path, into the system's
 * HIDD_ATTRIBUTES record. Reports nothing: set the record's fields apart beforehand to see whether
 * they were filled. */
PERILINK_API void UsbFinderC_GetUsbDeviceAttribute(const char* path,
                                                   struct _HIDD_ATTRIBUTES* attributes);
PERILINK_API void CS_UsbFinder_GetUsbDeviceAttribute(const char* path,
                                                     struct _HIDD_ATTRIBUTES* attributes);

/* ---- Raw pass-through: one open device for the process -----------------------------------
 *
 * Open once, write and exchange as often as wanted, close. Whole reports travel as they are,
 * report id first; nothing is added or tested, neither a checksum nor a length. */

/* Opens the path for writing and for reading. True when both succeeded. A pair that is open already
 * is closed, when no exchange on another thread uses it any more. After false, close as after
 * true. */
PERILINK_API bool UsbFinderC_OpenDevice(const char* path);
PERILINK_API bool CS_UsbFinder_OpenDevice(const char* path);

/* Closes the pair. An exchange on another thread ends first, on its own handles, after at most
 * 400 ms. Does no harm when nothing is open. */
PERILINK_API void UsbFinderC_CloseDevice(void);
PERILINK_API void CS_UsbFinder_CloseDevice(void);

/* Writes `length` bytes (0 to 255). False when nothing is open or the system refuses the write. */
PERILINK_API bool UsbFinder_WriteDeviceData(const uint8_t* data, uint8_t length);
PERILINK_API bool UsbFinderC_WriteDeviceData(const uint8_t* data, uint8_t length);
PERILINK_API bool CS_UsbFinder_WriteDeviceData(const uint8_t* data, uint8_t length);

/* Writes `length` bytes and waits up to 200 ms for a report of up to `length` bytes; writes and
 * waits once more if none comes. Whatever arrives is the reply. Narrow: true with the reply in
 * `reply` (`length` bytes), or false with zeros there. `request` and `reply` may be one buffer.
 * Managed: a SAFEARRAY of VT_UI1, lower bound 0, with `length` elements, or none on failure. */
PERILINK_API bool UsbFinderC_ReadWriteDeviceData(const uint8_t* request, uint8_t* reply,
                                                 uint8_t length);
PERILINK_API SAFEARRAY* CS_UsbFinder_ReadWriteDeviceData(const uint8_t* request, uint8_t length);

/* ---- Direct commands: narrow and managed --------------------------------------------------
 *
 * Each sends its frame up to three times and waits up to 100 ms after each for the reply, so a
 * silent device costs about 300 ms. "Fails" below means that no reply was accepted: the device is
 * absent, asleep or answers with wrong checksums only. A record that "stays untouched" keeps what
 * the caller had in it. A CS_ name beside a UsbFinderC_ name does the same. */

/* Whether the frames built from now on are for a mouse (as at load) or for a keyboard, in the whole
 * process: the keyboard's carry bit 7 in byte 5. Starting the background server sets it too. */
PERILINK_API void UsbFinder_SetMouseMode(void);
PERILINK_API void UsbFinderC_SetMouseMode(void);
PERILINK_API void CS_UsbFinder_SetMouseMode(void);
PERILINK_API void UsbFinder_SetKeyboardMode(void);
PERILINK_API void UsbFinderC_SetKeyboardMode(void);
PERILINK_API void CS_UsbFinder_SetKeyboardMode(void);

/* Sends a frame that the caller has built, checksum included. True with the reply in `reply`; false
 * with zeros there. */
PERILINK_API bool UsbFinderC_GetDeviceData(const char* path, const CommandFrame* request,
                                           CommandFrame* reply);
PERILINK_API bool CS_UsbFinder_GetDeviceData(const char* path, const CommandFrame* request,
                                             CommandFrame* reply);

/* The device's three bytes of identification, all zero when it fails. A non-zero `keyboard` asks
 * for the keyboard's whatever the mode. The managed export stores them instead of returning. */
PERILINK_API DeviceInfo UsbFinderC_GetDeviceInfo(const char* path, uint8_t keyboard);
PERILINK_API void CS_UsbFinder_GetDeviceInfo(const char* path, uint8_t keyboard, DeviceInfo* info);

/* Whether the wireless device behind a receiver is on line. False when it fails. */
PERILINK_API bool UsbFinderC_GetDeviceOnLine(const char* path);
PERILINK_API bool CS_UsbFinder_GetDeviceOnLine(const char* path);

/* The whole on-line reply: data byte 0 is the on-line state, data bytes 1 to 3 the device's
 * address. True with the reply in `reply`, false with zeros there: the state is the caller's to
 * read. The managed export returns the 17 bytes, or 17 zeros, as a SAFEARRAY of VT_UI1. */
PERILINK_API bool UsbFinderC_GetDeviceOnLineWithUsbAddress(const char* path, CommandFrame* reply);
PERILINK_API SAFEARRAY* CS_UsbFinder_GetDeviceOnLineWithUsbAddress(const char* path);

/* The battery as the device reports it. False and the record untouched when it fails. */
PERILINK_API bool UsbFinderC_GetBatteryLevel(const char* path, BatteryLevel* battery);
PERILINK_API bool CS_UsbFinder_GetBatteryLevel(const char* path, BatteryLevel* battery);

/* The index of the current DPI level, 0 to 255. 0 when it fails. */
PERILINK_API int32_t UsbFinderC_GetCurrentDPI(const char* path);
PERILINK_API int32_t CS_UsbFinder_GetCurrentDPI(const char* path);

/* The firmware version, 0x0123 for 1.23. 0 when it fails. */
PERILINK_API int32_t UsbFinderC_GetVersion(const char* path);
PERILINK_API int32_t CS_UsbFinder_GetVersion(const char* path);

/* The same of the slave device: true and the version in `*version`; false and 0 there. */
PERILINK_API bool UsbFinderC_GetSlaveVersion(const char* path, int32_t* version);
PERILINK_API bool CS_UsbFinder_GetSlaveVersion(const char* path, int32_t* version);

/* Sets the colours of a 4K receiver. 0: the device echoed them; 1: it answered other data; 3: it
 * failed; any other value, and possibly 1 and 3, is the status that the device reported. */
PERILINK_API uint8_t UsbFinderC_Set4KDongleRGB(const char* path, const DataRecord10* value);
PERILINK_API uint8_t CS_UsbFinder_Set4KDongleRGB(const char* path, const DataRecord10* value);

/* The colours of a 4K receiver. An accepted reply fills the record; true when the device declares a
 * length in it (its byte 5 is not 0). False and the record untouched when it fails. */
PERILINK_API bool UsbFinderC_Get4KDongleRGBValue(const char* path, DataRecord10* value);
PERILINK_API bool CS_UsbFinder_Get4KDongleRGBValue(const char* path, DataRecord10* value);

/* Switches the long-range mode. True when the device echoes the mode. */
PERILINK_API bool UsbFinderC_SetLongRangeMode(const char* path, uint8_t mode);
PERILINK_API bool CS_UsbFinder_SetLongRangeMode(const char* path, uint8_t mode);

/* The long-range mode. False and 0 in `*mode` when it fails. */
PERILINK_API bool UsbFinderC_GetLongRangeMode(const char* path, uint8_t* mode);
PERILINK_API bool CS_UsbFinder_GetLongRangeMode(const char* path, uint8_t* mode);

/* Sets the receiver's light bar (see RgbBarMode). True when a reply was accepted. */
PERILINK_API bool UsbFinderC_SetDongleRGBBarMode(const char* path, const RgbBarMode* mode);
PERILINK_API bool CS_UsbFinder_SetDongleRGBBarMode(const char* path, const RgbBarMode* mode);

/* The receiver's light bar. An accepted reply fills the record; true when the device declares a
 * length in it (its byte 5 is not 0). False and the record untouched when it fails. */
PERILINK_API bool UsbFinderC_GetDongleRGBBarMode(const char* path, RgbBarMode* mode);
PERILINK_API bool CS_UsbFinder_GetDongleRGBBarMode(const char* path, RgbBarMode* mode);

/* Hands the receiver's id to the mouse. True when a reply was accepted and its byte 5 is not 0. */
PERILINK_API bool UsbFinderC_SetDongleIDToMouse(const char* path, const DataRecord10* id);
PERILINK_API bool CS_UsbFinder_SetDongleIDToMouse(const char* path, const DataRecord10* id);

/* The mouse's serial number: ten bytes, which many models fill with text. It tells two devices of
 * one model apart wherever they are plugged in. A path does not: it names the place. The names that
 * a device gives itself are the system's to read (docs/hosts.md has code for both systems). Get:
 * false and the record untouched when it fails. */
PERILINK_API bool UsbFinderC_SetMouseSerialNumber(const char* path, const DataRecord10* number);
PERILINK_API bool CS_UsbFinder_SetMouseSerialNumber(const char* path, const DataRecord10* number);
PERILINK_API bool UsbFinderC_GetMouseSerialNumber(const char* path, DataRecord10* number);
PERILINK_API bool CS_UsbFinder_GetMouseSerialNumber(const char* path, DataRecord10* number);

/* Signal strength of the wireless link, as the device reports it. False and `*rssi` untouched when
 * it fails. There is no UsbFinderC_ name of this one. */
PERILINK_API bool CS_UsbFinder_GetRSSI(const char* path, uint8_t* rssi);

/* The receiver's indicator LED. Get: false and the record untouched when it fails. */
PERILINK_API bool UsbFinderC_SetDongleIndicatorLed(const char* path, const IndicatorLed* led);
PERILINK_API bool CS_UsbFinder_SetDongleIndicatorLed(const char* path, const IndicatorLed* led);
PERILINK_API bool UsbFinderC_GetDongleIndicatorLed(const char* path, IndicatorLed* led);
PERILINK_API bool CS_UsbFinder_GetDongleIndicatorLed(const char* path, IndicatorLed* led);

/* Reads the customer and model id; `unused` is ignored. An accepted reply fills the record; true
 * when its check byte (over the customer id) is right too. False and the record untouched when it
 * fails. Sent for the keyboard target whatever the mode. */
PERILINK_API bool UsbFinderC_ReadCidMid(const char* path, uint8_t unused, CidMid* ids);
PERILINK_API bool CS_UsbFinder_ReadCidMid(const char* path, uint8_t unused, CidMid* ids);

/* Writes three bytes of customer and model id and stores what the device answers, as above; false
 * and zeros in the record when it fails. */
PERILINK_API bool UsbFinderC_WriteCidMid(const char* path, uint8_t a, uint8_t b, uint8_t c,
                                         CidMid* ids);
PERILINK_API bool CS_UsbFinder_WriteCidMid(const char* path, uint8_t a, uint8_t b, uint8_t c,
                                           CidMid* ids);

/* Any command that sends data: `length` bytes, 0 to 10; `data` may be null when it is 0. True when
 * a reply was accepted. More than 10 bytes are refused: false, nothing sent. */
PERILINK_API bool UsbFinderC_SetData(const char* path, uint8_t command, const uint8_t* data,
                                     uint8_t length);
PERILINK_API bool CS_UsbFinder_SetData(const char* path, uint8_t command, const uint8_t* data,
                                       uint8_t length);

/* Any command that fetches data. False and the record untouched when it fails. */
PERILINK_API bool UsbFinderC_GetData(const char* path, uint8_t command, DataRecord10* result);
PERILINK_API bool CS_UsbFinder_GetData(const char* path, uint8_t command, DataRecord10* result);

/* Any command that sends and fetches data, with the caller's patience: up to `retries` + 1 writes
 * (none when `retries` is below 0), `timeout_ms` after each (-1: without limit). False and the
 * record untouched when it fails or `length` is over 10. */
PERILINK_API bool UsbFinderC_SetCommand(const char* path, uint8_t command, const uint8_t* data,
                                        uint8_t length, int32_t retries, int32_t timeout_ms,
                                        DataRecord10* result);
PERILINK_API bool CS_UsbFinder_SetCommand(const char* path, uint8_t command, const uint8_t* data,
                                          uint8_t length, int32_t retries, int32_t timeout_ms,
                                          DataRecord10* result);

PERILINK_END_DECLS

#ifdef __cplusplus

/* ---- The wide family ----------------------------------------------------------------------
 *
 * As the narrow export of the same name, with text as std::wstring (UTF-16 on Windows, one code
 * point a unit on Linux). A list replaces what the caller's vector held before. */

PERILINK_BEGIN_DECLS

PERILINK_API void UsbFinder_EnumHidDeviceList(std::vector<std::wstring>& list);
PERILINK_API void UsbFinder_FindHidDevices(const std::wstring& vendor_id,
                                           const std::wstring& product_id,
                                           std::vector<std::wstring>& list);
PERILINK_API void UsbFinder_FindHidDevicesByKey(const std::wstring& key,
                                                std::vector<std::wstring>& list);
PERILINK_API void UsbFinder_FindHidDevicesByDeviceId(const std::wstring& vendor_id,
                                                     const std::wstring& product_id,
                                                     int32_t interface_number,
                                                     int32_t collection_number,
                                                     std::vector<std::wstring>& list);
PERILINK_API void UsbFinder_FindHidDevicesByDefaultDeviceId(const std::wstring& vendor_id,
                                                            const std::wstring& product_id,
                                                            std::vector<std::wstring>& list);
PERILINK_API void UsbFinder_GetUsbDeviceAttribute(const std::wstring& path,
                                                  struct _HIDD_ATTRIBUTES* attributes);

PERILINK_API bool UsbFinder_GetDeviceData(const std::wstring& path, const CommandFrame* request,
                                          CommandFrame* reply);
PERILINK_API DeviceInfo UsbFinder_GetDeviceInfo(const std::wstring& path, uint8_t keyboard);
PERILINK_API bool UsbFinder_GetDeviceOnLine(const std::wstring& path);
PERILINK_API bool UsbFinder_GetDeviceOnLineWithUsbAddress(const std::wstring& path,
                                                          CommandFrame* reply);
PERILINK_API bool UsbFinder_GetBatteryLevel(const std::wstring& path, BatteryLevel* battery);
PERILINK_API int32_t UsbFinder_GetCurrentDPI(const std::wstring& path);
PERILINK_API int32_t UsbFinder_GetVersion(const std::wstring& path);
PERILINK_API bool UsbFinder_GetSlaveVersion(const std::wstring& path, int32_t* version);
PERILINK_API uint8_t UsbFinder_Set4KDongleRGB(const std::wstring& path, const DataRecord10* value);
PERILINK_API bool UsbFinder_Get4KDongleRGBValue(const std::wstring& path, DataRecord10* value);
PERILINK_API bool UsbFinder_SetLongRangeMode(const std::wstring& path, uint8_t mode);
PERILINK_API bool UsbFinder_GetLongRangeMode(const std::wstring& path, uint8_t* mode);
PERILINK_API bool UsbFinder_SetDongleRGBBarMode(const std::wstring& path, const RgbBarMode* mode);
PERILINK_API bool UsbFinder_GetDongleRGBBarMode(const std::wstring& path, RgbBarMode* mode);
PERILINK_API bool UsbFinder_SetDongleIDToMouse(const std::wstring& path, const DataRecord10* id);
PERILINK_API bool UsbFinder_SetMouseSerialNumber(const std::wstring& path,
                                                 const DataRecord10* number);
PERILINK_API bool UsbFinder_GetMouseSerialNumber(const std::wstring& path, DataRecord10* number);
PERILINK_API bool UsbFinder_GetRSSI(const std::wstring& path, uint8_t* rssi);
PERILINK_API bool UsbFinder_SetDongleIndicatorLed(const std::wstring& path,
                                                  const IndicatorLed* led);
PERILINK_API bool UsbFinder_GetDongleIndicatorLed(const std::wstring& path, IndicatorLed* led);
PERILINK_API bool UsbFinder_ReadCidMid(const std::wstring& path, uint8_t unused, CidMid* ids);
PERILINK_API bool UsbFinder_WriteCidMid(const std::wstring& path, uint8_t a, uint8_t b, uint8_t c,
                                        CidMid* ids);
PERILINK_API bool UsbFinder_SetData(const std::wstring& path, uint8_t command, const uint8_t* data,
                                    uint8_t length);
PERILINK_API bool UsbFinder_GetData(const std::wstring& path, uint8_t command,
                                    DataRecord10* result);
PERILINK_API bool UsbFinder_SetCommand(const std::wstring& path, uint8_t command,
                                       const uint8_t* data, uint8_t length, int32_t retries,
                                       int32_t timeout_ms, DataRecord10* result);

PERILINK_END_DECLS

#endif /* __cplusplus */

#endif /* PERILINK_FINDER_H_ */
