#include <cstdlib>
#include <cstring>

#include "call.h"
#include "ole_string.h"
#include "perilink_platform/ole.h"

namespace perilink::platform {
namespace {

// The element type is kept before the array, as on Windows.
struct ArrayBlock {
  VARTYPE type;
  SAFEARRAY array;
};

ArrayBlock* BlockOf(SAFEARRAY* array) {
  return reinterpret_cast<ArrayBlock*>(reinterpret_cast<char*>(array) -
                                       offsetof(ArrayBlock, array));
}

// A failing call's result while a fault is armed, else S_OK.
HRESULT InjectedResult(const char* function) {
  const DWORD error = InjectedError(function);
  return error == 0 ? S_OK : static_cast<HRESULT>(0x80070000u | (error & 0xFFFFu));
}

// The element at `index`, null outside the bounds.
void* Element(const SAFEARRAY& array, LONG index) {
  const int64_t offset = int64_t{index} - array.rgsabound[0].lLbound;
  if (offset < 0 || offset >= int64_t{array.rgsabound[0].cElements}) return nullptr;
  return static_cast<char*>(array.pvData) + static_cast<size_t>(offset) * array.cbElements;
}

HRESULT Bound(const char* function, SAFEARRAY* array, UINT dimension, LONG* bound, bool upper) {
  const HRESULT injected = InjectedResult(function);
  if (FAILED(injected)) return injected;
  if (array == nullptr || bound == nullptr) return E_INVALIDARG;
  if (dimension != 1) return DISP_E_BADINDEX;
  const SAFEARRAYBOUND& own = array->rgsabound[0];
  *bound = upper ? static_cast<LONG>(int64_t{own.lLbound} + own.cElements - 1) : own.lLbound;
  return S_OK;
}

bool CopyString(BSTR text, BSTR& copy) {
  copy = text == nullptr ? nullptr : AllocateString(text, SysStringLen(text));
  return text == nullptr || copy != nullptr;
}

}  // namespace
}  // namespace perilink::platform

using perilink::platform::ArrayBlock;
using perilink::platform::BlockOf;
using perilink::platform::InjectedResult;

SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds) {
  if (perilink::platform::CallMustFail("SafeArrayCreate")) return nullptr;
  if ((type != VT_BSTR && type != VT_UI1) || dimensions != 1 || bounds == nullptr) return nullptr;
  auto* const block = static_cast<ArrayBlock*>(std::calloc(1, sizeof(ArrayBlock)));
  if (block == nullptr) return nullptr;
  block->type = type;
  SAFEARRAY& array = block->array;
  array.cDims = 1;
  array.fFeatures = FADF_HAVEVARTYPE;
  if (type == VT_BSTR) array.fFeatures |= FADF_BSTR;
  array.cbElements = type == VT_BSTR ? sizeof(BSTR) : 1;
  array.rgsabound[0] = bounds[0];
  if (bounds[0].cElements == 0) return &array;
  array.pvData = std::calloc(bounds[0].cElements, array.cbElements);
  if (array.pvData != nullptr) return &array;
  std::free(block);
  return nullptr;
}

HRESULT SafeArrayDestroy(SAFEARRAY* array) {
  if (array == nullptr) return S_OK;
  if (array->cLocks > 0) return DISP_E_ARRAYISLOCKED;
  if (BlockOf(array)->type == VT_BSTR) {
    auto* const texts = static_cast<BSTR*>(array->pvData);
    for (ULONG i = 0; i < array->rgsabound[0].cElements; ++i)
      SysFreeString(texts[i]);
  }
  std::free(array->pvData);
  std::free(BlockOf(array));
  return S_OK;
}

HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* index, void* element) {
  const HRESULT injected = InjectedResult("SafeArrayPutElement");
  if (FAILED(injected)) return injected;
  if (array == nullptr || index == nullptr) return E_INVALIDARG;
  void* const slot = perilink::platform::Element(*array, *index);
  if (slot == nullptr) return DISP_E_BADINDEX;
  if (BlockOf(array)->type == VT_BSTR) {
    BSTR copy = nullptr;
    if (!perilink::platform::CopyString(static_cast<BSTR>(element), copy)) return E_OUTOFMEMORY;
    SysFreeString(*static_cast<BSTR*>(slot));
    *static_cast<BSTR*>(slot) = copy;
    return S_OK;
  }
  if (element == nullptr) return E_INVALIDARG;
  std::memcpy(slot, element, array->cbElements);
  return S_OK;
}

HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* index, void* element) {
  const HRESULT injected = InjectedResult("SafeArrayGetElement");
  if (FAILED(injected)) return injected;
  if (array == nullptr || index == nullptr || element == nullptr) return E_INVALIDARG;
  const void* const slot = perilink::platform::Element(*array, *index);
  if (slot == nullptr) return DISP_E_BADINDEX;
  if (BlockOf(array)->type == VT_BSTR) {
    BSTR copy = nullptr;
    if (!perilink::platform::CopyString(*static_cast<const BSTR*>(slot), copy))
      return E_OUTOFMEMORY;
    *static_cast<BSTR*>(element) = copy;
    return S_OK;
  }
  std::memcpy(element, slot, array->cbElements);
  return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* array) {
  return array == nullptr ? 0 : array->cDims;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound) {
  return perilink::platform::Bound("SafeArrayGetUBound", array, dimension, bound, true);
}

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound) {
  return perilink::platform::Bound("SafeArrayGetLBound", array, dimension, bound, false);
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type) {
  const HRESULT injected = InjectedResult("SafeArrayGetVartype");
  if (FAILED(injected)) return injected;
  if (array == nullptr || type == nullptr) return E_INVALIDARG;
  *type = BlockOf(array)->type;
  return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) {
  const HRESULT injected = InjectedResult("SafeArrayAccessData");
  if (FAILED(injected)) return injected;
  if (array == nullptr || data == nullptr) return E_INVALIDARG;
  ++array->cLocks;
  *data = array->pvData;
  return S_OK;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array) {
  if (array == nullptr) return E_INVALIDARG;
  if (array->cLocks == 0) return E_UNEXPECTED;
  --array->cLocks;
  return S_OK;
}
