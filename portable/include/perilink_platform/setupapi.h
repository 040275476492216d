/* Enumeration of the HID interfaces that are present. */
#ifndef PERILINK_PLATFORM_SETUPAPI_H_
#define PERILINK_PLATFORM_SETUPAPI_H_

#include "perilink_platform/types.h"

#define DIGCF_PRESENT 0x2u
#define DIGCF_DEVICEINTERFACE 0x10u
#define SPINT_ACTIVE 1u

typedef struct SP_DEVINFO_DATA {
  DWORD cbSize;
  GUID ClassGuid;
  DWORD DevInst;
  ULONG_PTR Reserved;
} SP_DEVINFO_DATA;
typedef SP_DEVINFO_DATA* PSP_DEVINFO_DATA;

typedef struct SP_DEVICE_INTERFACE_DATA {
  DWORD cbSize;
  GUID InterfaceClassGuid;
  DWORD Flags;
  ULONG_PTR Reserved;
} SP_DEVICE_INTERFACE_DATA;
typedef SP_DEVICE_INTERFACE_DATA* PSP_DEVICE_INTERFACE_DATA;

/* 8 bytes, as in 64-bit Windows: what cbSize must hold. */
typedef struct SP_DEVICE_INTERFACE_DETAIL_DATA_W {
  DWORD cbSize;
  WCHAR DevicePath[1];
} SP_DEVICE_INTERFACE_DETAIL_DATA_W;
typedef SP_DEVICE_INTERFACE_DETAIL_DATA_W* PSP_DEVICE_INTERFACE_DETAIL_DATA_W;

PERILINK_PLATFORM_BEGIN

/* The HID interfaces present now, or those of the device whose instance id `enumerator` is; a set
 * doesn't change afterwards. INVALID_HANDLE_VALUE on failure. `guid` must be the HID class's and
 * `parent` null (ERROR_INVALID_PARAMETER), `flags` DIGCF_PRESENT | DIGCF_DEVICEINTERFACE
 * (ERROR_INVALID_FLAGS). */
HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* guid, PCWSTR enumerator, HWND parent, DWORD flags);

/* The interface at `index`. FALSE with ERROR_NO_MORE_ITEMS beyond the last or for another class,
 * ERROR_INVALID_USER_BUFFER if `data` is null or its cbSize wrong, ERROR_INVALID_PARAMETER if
 * `device` or a null `guid` is given, ERROR_INVALID_HANDLE. */
BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA device, const GUID* guid,
                                        DWORD index, PSP_DEVICE_INTERFACE_DATA data);

/* The device path of an interface. `required`, if not null, receives the bytes needed for `detail`.
 * FALSE with ERROR_INSUFFICIENT_BUFFER while `size` is less (also when `detail` is null and `size`
 * 0, to ask), ERROR_INVALID_USER_BUFFER for a wrong cbSize or a size that doesn't fit `detail`,
 * ERROR_INVALID_PARAMETER for a `data` that isn't of this set or a `device` that isn't null,
 * ERROR_INVALID_HANDLE. */
BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA data,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                             PDWORD required, PSP_DEVINFO_DATA device);

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set);

PERILINK_PLATFORM_END

#endif /* PERILINK_PLATFORM_SETUPAPI_H_ */
