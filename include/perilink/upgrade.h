/* Firmware upgrade: cuts and checks an upgrade file, finds devices in boot mode, and upgrades one
 * or two devices on a thread of the library's own.
 *
 * An upgrade, from the host's side:
 *
 *   1. Load the whole upgrade file into memory.
 *   2. UsbUpgrade_Start(file, callback, 10000). True: the upgrade runs.
 *   3. The callback hears progress, notices and the outcome. The file is no longer needed once
 *      UsbUpgrade_Start has returned.
 *
 * A file holds a main image and perhaps a slave image, for the two devices of a set (a receiver and
 * its mouse, for example). Each image is a header block of 8192 bytes and a payload. The header
 * names the device's interfaces in normal mode and in boot mode, so nothing else needs to be told.
 *
 * What the callback hears, as (kind, code, arg1, arg2) of UpgradeEvent (codes: protocol.h):
 *
 *   (1, percent, 0, 0)   progress, 0 to 100, when the percentage has changed; 100 may come again
 *   (2, 1, 0, 0)         success of the whole upgrade
 *   (2, 2, 1, 0)         failed: the device did not echo its reset command within 1000 ms
 *   (2, 2, 3, 0)         failed: nothing could be written to the device for `timeout` ms
 *   (2, 2, 4, 0)         failed: the system refused the library memory, or for a second told it
 *                        nothing of its devices
 *   (2, 4, in, out)      failed: so many normal-mode interfaces found, not one of each
 *   (2, 5, in, out)      failed: so many boot-mode interfaces found, more than one of a kind
 *   (2, 6, 1, 0)         failed: no device in normal mode appeared in time
 *   (2, 7, 1, 0)         failed: no device in boot mode appeared and stayed in time
 *   (2, 8, sent, event)  failed: the reset command was not written (0), or there was no event (0)
 *   (2, 9, out, in)      failed: the boot-mode output or input interface could not be opened (0)
 *   (2, 10, error, 0)    the device reported an error of its own; the download goes on
 *   (3, 17, 1, 0)        the device echoed its reset command
 *   (3, 17, 2, 0)        the reset command was sent and has no echo; or boot mode is reached
 *   (3, 16, 3, 0)        the device is ready for the download
 *   (3, status, detail, 0)  the device reported a status of its own
 *
 * Each failure ends the upgrade, and a device that it has not reached stays as it was. The event
 * that ends an upgrade is its last. By then the device is closed, unless a write to it never
 * returned, and another thread may start the next upgrade at once. After a failure start the
 * upgrade again: a device that is left in boot mode is found there. One end has no event: a file
 * with two images while neither the slave device in normal mode nor the main device in boot mode is
 * present.
 *
 * Nothing is thrown out of any export. All exports may be called from any thread, also while an
 * upgrade runs and from its callback. Pointers must not be null, unless said otherwise.
 */
#ifndef PERILINK_UPGRADE_H_
#define PERILINK_UPGRADE_H_

#include "perilink/base.h"
#include "perilink/records.h"

PERILINK_BEGIN_DECLS

/* Starts the upgrade with the file's images and returns at once.
 *
 * `file` is the complete file: the library never learns its size and reads as far as the images'
 * headers say. It is not used any more when the call returns. Before a file of doubtful origin is
 * started, its host makes sure of two things:
 *
 *   - CS_UsbUpgrade_FileSplit(file, size, 0), which reads nothing beyond `size`, gives a main
 *     image;
 *   - the main image's slave offset, the 4 bytes at offset 12 (little-endian), is 0, or
 *     CS_UsbUpgrade_FileSplit(file, size, 1) gives a slave image.
 *
 * A main image that was cut out of a file of two images still names its slave's offset. It can't be
 * started by itself: the library would look for the slave behind its end.
 *
 * `callback` may be null. It is called on the upgrade thread with no lock held, and must return
 * before the upgrade can go on. What it throws ends there.
 *
 * `timeout` in milliseconds, 1000 or more: a download fails when nothing could be written for so
 * long; the waits for a device to appear last `timeout` / 100 cycles of at least 210 ms, so 10000
 * waits about 21 seconds. Below 100 every upgrade fails.
 *
 * True when the upgrade thread runs. False when no image of the file is valid, a null file
 * included, or when memory or a thread can't be had; the log tells of the former. False too while
 * another upgrade runs, and always from the callback of one, its last event's included; this
 * changes nothing. An upgrade can't be stopped. A host that unloads the library may do so once the
 * last event has come. CS_UsbUpgrade_Start does the same. */
PERILINK_API bool UsbUpgrade_Start(const uint8_t* file, UpgradeCallback callback, uint32_t timeout);
PERILINK_API bool CS_UsbUpgrade_Start(const uint8_t* file, UpgradeCallback callback,
                                      uint32_t timeout);

/* Copies the main image (`which` 0) or the slave image (any other value) out of a file.
 *
 * Wide: true with the image in `out` and its length, 8192 + payload, in `out_length`; false with
 * *out_length and out[0] set to 0 when the file has no such image or it fails its check.
 * `file_length` is ignored and `out` must hold the whole image: for files that are known to be
 * sound. Managed: a SAFEARRAY of VT_UI1, lower bound 0; without elements when the file has no such
 * image or `file_length` ends before the image does; null when memory ran out. It reads nothing
 * beyond `file_length`. The caller destroys the array. Both write log lines. */
PERILINK_API bool UsbUpgrade_FileSplit(const uint8_t* file, uint32_t file_length, uint8_t* out,
                                       uint32_t* out_length, int32_t which);
PERILINK_API SAFEARRAY* CS_UsbUpgrade_FileSplit(const uint8_t* file, uint32_t file_length,
                                                int32_t which);

/* Paths of the boot-mode input interfaces of the file's main device; none when the main image fails
 * its check. Reads the file's first 8192 bytes.
 *
 * Narrow: an array of `*count` strings in the ANSI code page; release it with
 * UsbFinderC_Free(array, count), also when the count is 0. Null with a count of 0 when memory ran
 * out. Managed: a SAFEARRAY of BSTR, lower bound 0, which the caller destroys; null when memory ran
 * out. */
PERILINK_API char** UsbUpgradeC_FindBootDevices(const uint8_t* file, uint32_t* count);
PERILINK_API SAFEARRAY* CS_UsbUpgrade_FindBootDevices(const uint8_t* file);

/* A copy of the upgrade log, oldest line first: what the last upgrade did (UsbUpgrade_Start empties
 * the log) and what was split since. It keeps the last PERILINK_LOG_LIMIT lines. Texts from a file
 * stand in it as they came, control characters included. Released as the boot devices are. */
enum { PERILINK_LOG_LIMIT = 100000 };
PERILINK_API char** UsbUpgradeC_GetLogs(uint32_t* count);
PERILINK_API SAFEARRAY* CS_UsbUpgrade_GetLogs(void);

/* Non-zero: later log lines, the hex dumps excepted, are also appended to "dll_log.txt" in the
 * current directory, which is never emptied. What is no printable 8-bit character is written as
 * '?'. Nothing is written to anything but a plain file of this name: not through a link, not into a
 * pipe. 0, as at load: they are not. */
PERILINK_API void UsbUpgrade_EnableSaveLogFile(uint8_t enable);
PERILINK_API void CS_UsbUpgrade_EnableSaveLogFile(uint8_t enable);

PERILINK_END_DECLS

#endif /* PERILINK_UPGRADE_H_ */
