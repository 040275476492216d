// OLE strings and arrays.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/win32.h"

namespace {

TEST(OleStrings, KeepTheirLength) {
  const BSTR text = SysAllocStringLen(L"a\0b", 3);
  EXPECT_EQ(SysStringLen(text), 3u);
  EXPECT_EQ(text[2], L'b');
  EXPECT_EQ(text[3], L'\0');
  // The length in bytes stands before the text, where managed hosts look for it.
  uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<const char*>(text) - 4, 4);
  EXPECT_EQ(bytes, 3 * sizeof(WCHAR));
  SysFreeString(text);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
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
  BSTR copy = nullptr;
  EXPECT_EQ(SafeArrayGetElement(array, &index, &copy), S_OK);
  EXPECT_STREQ(copy, L"first");
  index = 2;
  EXPECT_EQ(SafeArrayPutElement(array, &index, nullptr), DISP_E_BADINDEX);
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
  EXPECT_NE(static_cast<BSTR*>(data)[0], copy);
  EXPECT_EQ(SysStringLen(static_cast<BSTR*>(data)[1]), 0u);
  EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  SysFreeString(copy);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

}  // namespace
