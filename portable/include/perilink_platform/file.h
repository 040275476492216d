/* Files, which are opens of HID interfaces, and their overlapped I/O.
 *
 * Each open has its own queue of input reports, filled from the moment of opening: 32 reports, the
 * oldest dropped when it is full. */
#ifndef PERILINK_PLATFORM_FILE_H_
#define PERILINK_PLATFORM_FILE_H_

#include "perilink_platform/types.h"

#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define FILE_SHARE_READ 1u
#define FILE_SHARE_WRITE 2u
#define FILE_SHARE_DELETE 4u
#define OPEN_EXISTING 3u
#define FILE_ATTRIBUTE_NORMAL 0x80u
#define FILE_FLAG_OVERLAPPED 0x40000000u

/* What Internal holds: 0, or an NTSTATUS. */
#define STATUS_PENDING 0x103u

typedef struct OVERLAPPED {
  ULONG_PTR Internal;     /* STATUS_PENDING while the I/O is pending, then its status */
  ULONG_PTR InternalHigh; /* bytes transferred */
  DWORD Offset;           /* not used: devices have no position */
  DWORD OffsetHigh;
  HANDLE hEvent; /* null, or an event: reset when I/O starts, signalled when it completes */
} OVERLAPPED;
typedef OVERLAPPED* LPOVERLAPPED;

PERILINK_PLATFORM_BEGIN

/* Opens a HID interface by the device path that SetupAPI reports, compared without regard to case.
 * INVALID_HANDLE_VALUE on failure: ERROR_FILE_NOT_FOUND for a path that is no present interface
 * (there are no other files), ERROR_PATH_NOT_FOUND for a null or empty one, ERROR_SHARING_VIOLATION
 * against the share modes of other opens, or what the device refuses with. `access` is any of
 * GENERIC_READ and GENERIC_WRITE, or 0 to query only; `creation` must be OPEN_EXISTING, `flags` any
 * of FILE_ATTRIBUTE_NORMAL and FILE_FLAG_OVERLAPPED, `attributes` and `template_file` null:
 * otherwise ERROR_INVALID_PARAMETER. */
HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share_mode,
                          LPSECURITY_ATTRIBUTES attributes, DWORD creation, DWORD flags,
                          HANDLE template_file);

/* Reads one input report, report id first, into `buffer`, which holds `size` bytes: at least the
 * interface's input report length (else ERROR_INVALID_USER_BUFFER); no more than that is stored.
 *
 * Overlapped handle: `overlapped` is required, `bytes_read` may be null. The event is reset; a
 * queued report completes the read at once (TRUE, event signalled), otherwise FALSE with
 * ERROR_IO_PENDING, and buffer, OVERLAPPED and event belong to the system until the read completes.
 * A read that fails at once leaves the event unsignalled. Removal of the device completes pending
 * reads with ERROR_DEVICE_NOT_CONNECTED, the event signalled and the buffer untouched.
 *
 * Other handles: `overlapped` must be null and `bytes_read` not; waits until a report comes. Two
 * calls on one handle don't wait for each other, as they do on Windows.
 *
 * FALSE with ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED (not opened for reading),
 * ERROR_INVALID_PARAMETER, ERROR_NOACCESS (null buffer) or ERROR_DEVICE_NOT_CONNECTED. */
BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD bytes_read,
                     LPOVERLAPPED overlapped);

/* Writes one output report, report id first. A shorter report is padded with zeros to the output
 * report length; a longer one fails with ERROR_INVALID_PARAMETER, an empty one with
 * ERROR_INVALID_USER_BUFFER, any on an interface without output reports with
 * ERROR_INVALID_FUNCTION. Completes before it returns, on overlapped handles (which require
 * `overlapped`) too: never lets another thread run. `bytes_written` is required without
 * `overlapped`. */
BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD bytes_written,
                      LPOVERLAPPED overlapped);

/* Cancels the reads that the calling thread has pending on the file; TRUE even if there are none.
 * Returns before they are completed: each completes within a moment with ERROR_OPERATION_ABORTED
 * and its event signalled, or with a report that comes in that moment. Until then buffer and
 * OVERLAPPED must stay: wait with GetOverlappedResult. */
BOOL WINAPI CancelIo(HANDLE file);
/* The same for the reads of every thread: the one of `overlapped`, or all if it is null. FALSE with
 * ERROR_NOT_FOUND if there are none. */
BOOL WINAPI CancelIoEx(HANDLE file, LPOVERLAPPED overlapped);

/* The outcome of an overlapped I/O. While it is pending: FALSE with ERROR_IO_INCOMPLETE, or with
 * `wait` waits on the OVERLAPPED's event (on the file if that is null) first. TRUE and the bytes
 * transferred, or FALSE with the error that the I/O completed with. */
BOOL WINAPI GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD bytes, BOOL wait);

PERILINK_PLATFORM_END

#endif /* PERILINK_PLATFORM_FILE_H_ */
