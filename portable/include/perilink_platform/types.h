/* The system's basic types, with their Windows sizes: DWORD, ULONG and LONG have 32 bits, BOOL is
 * an int, handles are pointers. WCHAR is wchar_t, which has 4 bytes here (UTF-32) and 2 on Windows
 * (UTF-16): sizes in bytes of texts are always a multiple of sizeof(WCHAR). */
#ifndef PERILINK_PLATFORM_TYPES_H_
#define PERILINK_PLATFORM_TYPES_H_

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
#define PERILINK_PLATFORM_BEGIN extern "C" {
#define PERILINK_PLATFORM_END }
#else
#define PERILINK_PLATFORM_BEGIN
#define PERILINK_PLATFORM_END
#endif

/* One calling convention only. */
#define WINAPI
#define CALLBACK
#define APIENTRY
#define STDMETHODCALLTYPE

#define TRUE 1
#define FALSE 0

typedef int BOOL;
typedef unsigned char BOOLEAN;
typedef uint8_t BYTE;
typedef uint8_t UCHAR;
typedef char CHAR;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int INT;
typedef unsigned int UINT;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef long long LONGLONG;
typedef unsigned long long ULONGLONG;
typedef unsigned long long DWORD64;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t DWORD_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef intptr_t INT_PTR;
typedef size_t SIZE_T;
typedef wchar_t WCHAR;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BOOL* LPBOOL;
typedef BYTE* LPBYTE;
typedef DWORD* LPDWORD;
typedef DWORD* PDWORD;
typedef LONG* PLONG;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef const char* LPCCH;
typedef WCHAR* LPWSTR;
typedef WCHAR* PWSTR;
typedef const WCHAR* LPCWSTR;
typedef const WCHAR* PCWSTR;
typedef const WCHAR* LPCWCH;
typedef union _LARGE_INTEGER {
  LONGLONG QuadPart;
} LARGE_INTEGER;
typedef LONG HRESULT;
typedef LONG LSTATUS;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;
typedef WORD ATOM;

typedef void* HANDLE;
typedef void* HDEVINFO;
typedef void* HDEVNOTIFY;
typedef struct PerilinkWindow* HWND;
typedef struct PerilinkKey* HKEY;
typedef HKEY* PHKEY;
typedef struct PerilinkModule* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef struct PerilinkMenu* HMENU;
typedef struct PerilinkIcon* HICON;
typedef HICON HCURSOR;
typedef struct PerilinkBrush* HBRUSH;

#define INVALID_HANDLE_VALUE ((HANDLE)(intptr_t)-1) /* NOLINT(performance-no-int-to-ptr) */

typedef struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
} GUID;
typedef GUID* LPGUID;

#ifdef __cplusplus
inline bool operator==(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) return false;
  }
  return true;
}
#endif

/* Security attributes are never used: pass null. */
typedef struct SECURITY_ATTRIBUTES SECURITY_ATTRIBUTES;
typedef SECURITY_ATTRIBUTES* LPSECURITY_ATTRIBUTES;

typedef struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek; /* 0 is Sunday */
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
} SYSTEMTIME;
typedef SYSTEMTIME* LPSYSTEMTIME;

#endif /* PERILINK_PLATFORM_TYPES_H_ */
