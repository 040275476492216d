/* The portable platform: the small set of Windows services that perilink uses, on Linux, under
 * their Windows names, with their Windows types, values and errors.
 *
 * Each function's declaration says which arguments it takes and where it differs from Windows; an
 * argument outside that fails with the Windows error. Usable from C11 and from C++. */
#ifndef PERILINK_PLATFORM_WIN32_H_
#define PERILINK_PLATFORM_WIN32_H_

#include "perilink_platform/codepage.h"
#include "perilink_platform/error.h"
#include "perilink_platform/file.h"
#include "perilink_platform/handle.h"
#include "perilink_platform/hid.h"
#include "perilink_platform/ole.h"
#include "perilink_platform/registry.h"
#include "perilink_platform/setupapi.h"
#include "perilink_platform/types.h"
#include "perilink_platform/window.h"

#endif /* PERILINK_PLATFORM_WIN32_H_ */
