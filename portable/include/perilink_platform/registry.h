/* The user's registry: a file in the state folder that world.h names, replaced as a whole by every
 * write, and read again when another process has replaced it. Only a file that isn't there is an
 * empty registry. One that can't be understood counts as empty, as do its damaged lines, and is put
 * aside as registry.damaged by the next write.
 *
 * All functions return ERROR_SUCCESS or an error code and don't touch the last error. On an error
 * nothing has changed. What can go wrong with the file:
 *
 *   ERROR_ACCESS_DENIED        no permission; or the folder or a file in it is a link, no regular
 *                              file, another user's, or the folder can be written by others
 *   ERROR_PATH_NOT_FOUND       there is no folder to write to, or the user has no home
 *   ERROR_TOO_MANY_OPEN_FILES, ERROR_NOT_ENOUGH_MEMORY, ERROR_DISK_FULL
 *   ERROR_FILE_TOO_LARGE       it is, or would become, larger than 1 MiB
 *   ERROR_LOCK_VIOLATION       another process has kept it locked for two seconds
 *   ERROR_REGISTRY_IO_FAILED   any other failure to read or write it
 *
 * Names compare without regard to case (ASCII letters). */
#ifndef PERILINK_PLATFORM_REGISTRY_H_
#define PERILINK_PLATFORM_REGISTRY_H_

#include "perilink_platform/types.h"

/* NOLINTNEXTLINE(performance-no-int-to-ptr) */
#define HKEY_CURRENT_USER ((HKEY)(intptr_t)(int32_t)0x80000001u)

typedef DWORD REGSAM;
#define KEY_QUERY_VALUE 0x1u
#define KEY_SET_VALUE 0x2u
#define KEY_READ 0x20019u
#define KEY_WRITE 0x20006u
#define KEY_ALL_ACCESS 0xF003Fu

#define REG_NONE 0u
#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u

PERILINK_PLATFORM_BEGIN

/* Opens a key below `key` (HKEY_CURRENT_USER or an open key). ERROR_FILE_NOT_FOUND if it doesn't
 * exist. A null or empty `sub_key` opens `key` again. `options` must be 0, `access` at most
 * KEY_ALL_ACCESS. */
LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR sub_key, DWORD options, REGSAM access, PHKEY result);
/* Opens a key with KEY_ALL_ACCESS, creating it and those above it as needed. */
LSTATUS WINAPI RegCreateKeyW(HKEY key, LPCWSTR sub_key, PHKEY result);

/* A value's type and data; any of the outputs may be null, `size` only together with `data`. `size`
 * holds the bytes that `data` has room for and receives the bytes of the value; ERROR_MORE_DATA if
 * those are more. No terminating zero is added to texts that were stored without. */
LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                LPDWORD size);
/* Stores a value. `type` is 0 to 11 (the system's own types), `reserved` 0. Exactly `size`
 * bytes are stored: Windows adds a text's terminating zero if it finds one behind them. The file
 * has been replaced and forced to the disk when it returns. */
LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD size);
LSTATUS WINAPI RegCloseKey(HKEY key);

PERILINK_PLATFORM_END

#endif /* PERILINK_PLATFORM_REGISTRY_H_ */
