/* OLE Automation strings, and one-dimensional arrays of strings (VT_BSTR) and of bytes (VT_UI1). */
#ifndef PERILINK_PLATFORM_OLE_H_
#define PERILINK_PLATFORM_OLE_H_

#include "perilink_platform/error.h"
#include "perilink_platform/types.h"

typedef WCHAR OLECHAR;
typedef OLECHAR* BSTR;
typedef unsigned short VARTYPE;

#define VT_EMPTY 0
#define VT_BSTR 8
#define VT_UI1 17

#define FADF_HAVEVARTYPE 0x80
#define FADF_BSTR 0x100

typedef struct tagSAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
} SAFEARRAYBOUND;

typedef struct tagSAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  PVOID pvData;
  SAFEARRAYBOUND rgsabound[1];
} SAFEARRAY;

PERILINK_PLATFORM_BEGIN

/* A copy of a zero-terminated text; null for a null text or without memory. */
BSTR WINAPI SysAllocString(const OLECHAR* text);
/* A copy of `length` characters, zeros among them; zeros if `text` is null. */
BSTR WINAPI SysAllocStringLen(const OLECHAR* text, UINT length);
/* Null is allowed. */
void WINAPI SysFreeString(BSTR text);
/* Characters, without the terminating zero; 0 for null. */
UINT WINAPI SysStringLen(BSTR text);

/* Null on failure: another type than the two, another number of dimensions than 1, no memory. The
 * elements are null strings or zeros. */
SAFEARRAY* WINAPI SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds);
/* DISP_E_ARRAYISLOCKED while its data are accessed. Frees its strings. Null is allowed. */
HRESULT WINAPI SafeArrayDestroy(SAFEARRAY* array);
/* Stores a copy of the string that `element` is (a BSTR, which may be null), or the byte that
 * `element` points to. DISP_E_BADINDEX outside the bounds. */
HRESULT WINAPI SafeArrayPutElement(SAFEARRAY* array, LONG* index, void* element);
/* Stores a copy of the string, which the caller frees, or the byte where `element` points. */
HRESULT WINAPI SafeArrayGetElement(SAFEARRAY* array, LONG* index, void* element);
UINT WINAPI SafeArrayGetDim(SAFEARRAY* array);
/* DISP_E_BADINDEX for another dimension than 1. The upper bound of an empty array is one below its
 * lower bound. */
HRESULT WINAPI SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound);
HRESULT WINAPI SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound);
HRESULT WINAPI SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type);
/* Locks the array and gives its elements, BSTRs or bytes, until SafeArrayUnaccessData. */
HRESULT WINAPI SafeArrayAccessData(SAFEARRAY* array, void** data);
HRESULT WINAPI SafeArrayUnaccessData(SAFEARRAY* array);

PERILINK_PLATFORM_END

#endif /* PERILINK_PLATFORM_OLE_H_ */
