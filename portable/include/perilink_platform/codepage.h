/* Conversion between narrow and wide text. The ANSI code page is UTF-8 here, as it is on a Windows
 * that is set so; wide characters are whole code points, never surrogate pairs. */
#ifndef PERILINK_PLATFORM_CODEPAGE_H_
#define PERILINK_PLATFORM_CODEPAGE_H_

#include "perilink_platform/types.h"

#define CP_ACP 0u
#define CP_UTF8 65001u

PERILINK_PLATFORM_BEGIN

/* Both take `source_length` units, or with -1 a zero-terminated text with its zero, and return the
 * number of units stored, or with a `target_size` of 0 the number needed. A text that is no valid
 * UTF-8 (no code point) gets U+FFFD in the place of each bad part. 0 on failure:
 * ERROR_INSUFFICIENT_BUFFER; ERROR_INVALID_FLAGS unless `flags` is 0; ERROR_INVALID_PARAMETER for
 * another code page, a null source, a length of 0 or below -1, a null target with a size, source
 * and target the same, or (in the second) a default character or flag, which UTF-8 doesn't have. */
int WINAPI MultiByteToWideChar(UINT code_page, DWORD flags, LPCCH source, int source_length,
                               LPWSTR target, int target_size);
int WINAPI WideCharToMultiByte(UINT code_page, DWORD flags, LPCWCH source, int source_length,
                               LPSTR target, int target_size, LPCCH default_char,
                               LPBOOL used_default_char);

PERILINK_PLATFORM_END

#endif /* PERILINK_PLATFORM_CODEPAGE_H_ */
