// The user's registry.
#include <gtest/gtest.h>

#include <string>

#include "platform/handles.h"

namespace perilink {
namespace {

constexpr WCHAR kKey[] = L"Software\\PerilinkConformance\\Key";

// As numbers that compare on every system.
DWORD Code(LSTATUS status) {
  return static_cast<DWORD>(status);
}

TEST(Registry, KeepsValuesAsTheyWereStored) {
  HKEY handle = nullptr;
  ASSERT_EQ(Code(RegCreateKeyW(HKEY_CURRENT_USER, kKey, &handle)), DWORD{ERROR_SUCCESS});
  const UniqueRegistryKey key(handle);
  // Stored without a terminating zero. None may follow it: Windows looks, and would store that too.
  const std::wstring followed = L"01736240585-85!";
  const std::wstring text = followed.substr(0, followed.size() - 1);
  const auto bytes = static_cast<DWORD>(text.size() * sizeof(WCHAR));
  EXPECT_EQ(Code(RegSetValueExW(handle, L"Text", 0, REG_SZ,
                                reinterpret_cast<const BYTE*>(followed.data()), bytes)),
            DWORD{ERROR_SUCCESS});

  ASSERT_EQ(Code(RegOpenKeyExW(HKEY_CURRENT_USER, L"SOFTWARE\\perilinkconformance\\KEY", 0,
                               KEY_READ, &handle)),
            DWORD{ERROR_SUCCESS});
  const UniqueRegistryKey reader(handle);
  DWORD type = 0;
  DWORD size = 0;
  EXPECT_EQ(Code(RegQueryValueExW(handle, L"None", nullptr, nullptr, nullptr, &size)),
            DWORD{ERROR_FILE_NOT_FOUND});
  std::wstring read(text.size(), L'?');
  size = bytes - 1;
  auto* const data = reinterpret_cast<BYTE*>(read.data());
  EXPECT_EQ(Code(RegQueryValueExW(handle, L"TEXT", nullptr, &type, data, &size)),
            DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, bytes);
  EXPECT_EQ(Code(RegQueryValueExW(handle, L"TEXT", nullptr, &type, data, &size)),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(type, DWORD{REG_SZ});
  EXPECT_EQ(read, text);
}

}  // namespace
}  // namespace perilink
