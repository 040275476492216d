/* A host in C sees the platform's declarations, too. */
#include "perilink_platform/win32.h"

_Static_assert(sizeof(DWORD) == 4 && sizeof(LONG) == 4 && sizeof(GUID) == 16,
               "sizes as on Windows");
_Static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) == 8, "as in 64-bit Windows");
_Static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32, "as in 64-bit Windows");
_Static_assert(sizeof(DEV_BROADCAST_DEVICEINTERFACE_W) == 32, "as in 64-bit Windows");
_Static_assert(sizeof(HIDD_ATTRIBUTES) == 12 && sizeof(SYSTEMTIME) == 16, "as on Windows");
_Static_assert(sizeof(SAFEARRAY) == 32, "as in 64-bit Windows");
