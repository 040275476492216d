/* HID class calls on an open interface. */
#ifndef PERILINK_PLATFORM_HID_H_
#define PERILINK_PLATFORM_HID_H_

#include "perilink_platform/types.h"

/* perilink's own headers name this record by its tag. */
typedef struct _HIDD_ATTRIBUTES { /* NOLINT(bugprone-reserved-identifier) */
  ULONG Size;
  USHORT VendorID;
  USHORT ProductID;
  USHORT VersionNumber;
} HIDD_ATTRIBUTES;
typedef HIDD_ATTRIBUTES* PHIDD_ATTRIBUTES;

PERILINK_PLATFORM_BEGIN

/* {4D1E55B2-F16F-11CF-88CB-001111000030} */
void WINAPI HidD_GetHidGuid(LPGUID guid);

/* Fills the record, its size included. FALSE with ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER
 * (null record) or ERROR_DEVICE_NOT_CONNECTED, and the record untouched. */
BOOLEAN WINAPI HidD_GetAttributes(HANDLE file, PHIDD_ATTRIBUTES attributes);

/* Sends one feature report, report id first; lengths as WriteFile treats them. Needs no access
 * right. */
BOOLEAN WINAPI HidD_SetFeature(HANDLE file, PVOID report, ULONG size);

PERILINK_PLATFORM_END

#endif /* PERILINK_PLATFORM_HID_H_ */
