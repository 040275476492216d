/* What every public header of perilink needs: linkage, calling convention, system types by name.
 *
 * The headers compile alone, as C99 (narrow and managed families) and as C++14 or later (all three
 * families; the tables of config_layout.h from C++17 on). The wide family passes standard strings
 * and vectors, so it is declared for C++ only and its host must be built with the same compiler and
 * runtime as the library.
 */
#ifndef PERILINK_BASE_H_
#define PERILINK_BASE_H_

#include <stdbool.h>
#include <stdint.h>

#if defined(_WIN32)
#define PERILINK_API
#define PERILINK_CALL __stdcall
#else
#define PERILINK_API __attribute__((visibility("default")))
#define PERILINK_CALL
#endif

#ifdef __cplusplus
#include <string>
#include <vector>
#define PERILINK_BEGIN_DECLS extern "C" {
#define PERILINK_END_DECLS }
/* A function that its header defines. */
#define PERILINK_INLINE constexpr
#else
#define PERILINK_BEGIN_DECLS
#define PERILINK_END_DECLS
#define PERILINK_INLINE static inline
#endif

#if (defined(__cplusplus) && __cplusplus >= 201703L) || \
    (defined(_MSVC_LANG) && _MSVC_LANG >= 201703L)
#define PERILINK_CPP17
#endif

/* The system's OLE Automation array and HID attribute record, by name only: a host that looks
 * inside them includes <oleauto.h> and <hidsdi.h> (on Linux, the portable platform library's
 * <perilink_platform/win32.h>). */
typedef struct tagSAFEARRAY SAFEARRAY;
struct _HIDD_ATTRIBUTES;

#endif /* PERILINK_BASE_H_ */
