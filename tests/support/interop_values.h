// Takes what the managed and narrow families return apart, and releases it.
#ifndef PERILINK_TESTS_SUPPORT_INTEROP_VALUES_H_
#define PERILINK_TESTS_SUPPORT_INTEROP_VALUES_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "perilink/finder.h"
#include "platform/win32.h"

namespace perilink::testing {

// Elements of a one-dimensional array of the type with lower bound 0; -1 if it is anything else.
inline LONG ElementsOf(SAFEARRAY* array, VARTYPE expected) {
  VARTYPE type = 0;
  LONG lower = -1;
  LONG upper = -1;
  if (array == nullptr || SafeArrayGetDim(array) != 1 ||
      SafeArrayGetVartype(array, &type) != S_OK || type != expected ||
      SafeArrayGetLBound(array, 1, &lower) != S_OK || lower != 0 ||
      SafeArrayGetUBound(array, 1, &upper) != S_OK)
    return -1;
  return upper + 1;
}

inline std::vector<uint8_t> TakeBytes(SAFEARRAY* array) {
  const LONG count = ElementsOf(array, VT_UI1);
  EXPECT_GE(count, 0);
  std::vector<uint8_t> bytes;
  for (LONG i = 0; i < count; ++i) {
    uint8_t byte = 0;
    EXPECT_EQ(SafeArrayGetElement(array, &i, &byte), S_OK);
    bytes.push_back(byte);
  }
  SafeArrayDestroy(array);
  return bytes;
}

inline std::vector<std::wstring> TakeTexts(SAFEARRAY* array) {
  const LONG count = ElementsOf(array, VT_BSTR);
  EXPECT_GE(count, 0);
  std::vector<std::wstring> texts;
  for (LONG i = 0; i < count; ++i) {
    BSTR text = nullptr;
    EXPECT_EQ(SafeArrayGetElement(array, &i, &text), S_OK);
    texts.emplace_back(text == nullptr ? L"" : text, SysStringLen(text));
    SysFreeString(text);
  }
  SafeArrayDestroy(array);
  return texts;
}

inline std::vector<std::string> TakeTexts(char** list, uint32_t count) {
  std::vector<std::string> texts(list, list + count);
  UsbFinderC_Free(list, static_cast<int32_t>(count));
  return texts;
}

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SUPPORT_INTEROP_VALUES_H_
