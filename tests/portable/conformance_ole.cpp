// OLE strings and arrays.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/win32.h"

namespace {

TEST(OleStrings, KeepTheirLength) {
  const BSTR text = SysAllocString(L"x64");
  EXPECT_EQ(SysStringLen(text), 3u);
  EXPECT_STREQ(text, L"x64");
  // The length in bytes stands before the text, where managed hosts look for it.
  uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<const char*>(text) - 4, 4);
  EXPECT_EQ(bytes, 3 * sizeof(WCHAR));
  SysFreeString(text);
  const BSTR with_zero = SysAllocStringLen(L"a\0b", 3);
  EXPECT_EQ(SysStringLen(with_zero), 3u);
  EXPECT_EQ(with_zero[2], L'b');
  EXPECT_EQ(with_zero[3], L'\0');
  SysFreeString(with_zero);
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  SysFreeString(nullptr);
}

TEST(OleArrays, HoldCopiesOfStrings) {
  SAFEARRAYBOUND bound{2, 0};
  SAFEARRAY* const array = SafeArrayCreate(VT_BSTR, 1, &bound);
  ASSERT_NE(array, nullptr);
  const BSTR text = SysAllocString(L"first");
  LONG index = 0;
  EXPECT_EQ(SafeArrayPutElement(array, &index, text), S_OK);
  EXPECT_EQ(SafeArrayPutElement(array, &index, text), S_OK);  // frees the one before it
  SysFreeString(text);
  for (const LONG outside : {-1, 2}) {
    index = outside;
    EXPECT_EQ(SafeArrayPutElement(array, &index, nullptr), DISP_E_BADINDEX);
  }
  VARTYPE type = 0;
  EXPECT_EQ(SafeArrayGetVartype(array, &type), S_OK);
  EXPECT_EQ(type, VT_BSTR);
  EXPECT_EQ(SafeArrayGetDim(array), 1u);
  index = 0;
  BSTR copy = nullptr;
  EXPECT_EQ(SafeArrayGetElement(array, &index, &copy), S_OK);
  EXPECT_STREQ(copy, L"first");
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
  EXPECT_NE(static_cast<BSTR*>(data)[0], copy);
  EXPECT_EQ(SysStringLen(static_cast<BSTR*>(data)[1]), 0u);
  EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  SysFreeString(copy);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(OleArrays, HoldBytesAndNothing) {
  for (const ULONG count : {0u, 3u}) {
    SAFEARRAYBOUND bound{count, 0};
    SAFEARRAY* const array = SafeArrayCreate(VT_UI1, 1, &bound);
    ASSERT_NE(array, nullptr);
    for (LONG i = 0; i < static_cast<LONG>(count); ++i) {
      BYTE byte = static_cast<BYTE>(0xF0 + i);
      EXPECT_EQ(SafeArrayPutElement(array, &i, &byte), S_OK);
    }
    LONG lower = 7;
    LONG upper = 7;
    EXPECT_EQ(SafeArrayGetLBound(array, 1, &lower), S_OK);
    EXPECT_EQ(SafeArrayGetUBound(array, 1, &upper), S_OK);
    EXPECT_EQ(lower, 0);
    EXPECT_EQ(upper, static_cast<LONG>(count) - 1);
    EXPECT_EQ(SafeArrayGetUBound(array, 2, &upper), DISP_E_BADINDEX);
    LONG last = upper;
    BYTE byte = 0;
    const HRESULT result = SafeArrayGetElement(array, &last, &byte);
    EXPECT_EQ(result, count == 0 ? DISP_E_BADINDEX : S_OK);
    EXPECT_EQ(byte, count == 0 ? 0 : 0xF2);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
  }
  EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
}

}  // namespace
