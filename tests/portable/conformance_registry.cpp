// The user's registry.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/handles.h"

namespace perilink {
namespace {

constexpr WCHAR kKey[] = L"Software\\PerilinkConformance\\Key";

// As numbers that compare on every system.
DWORD Code(LSTATUS status) {
  return static_cast<DWORD>(status);
}

UniqueRegistryKey Create() {
  HKEY key = nullptr;
  EXPECT_EQ(Code(RegCreateKeyW(HKEY_CURRENT_USER, kKey, &key)), DWORD{ERROR_SUCCESS});
  return UniqueRegistryKey(key);
}

DWORD Set(HKEY key, const WCHAR* name, DWORD type, const void* data, size_t size) {
  return Code(
      RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size)));
}

TEST(Registry, KeepsValuesAsTheyWereStored) {
  const UniqueRegistryKey key = Create();
  const std::wstring text = L"01736240585-85";
  // Stored without a terminating zero. None may follow it: Windows looks, and would store that too.
  const std::wstring followed = text + L"!";
  const size_t text_bytes = text.size() * sizeof(WCHAR);
  EXPECT_EQ(Set(key.Get(), L"Text", REG_SZ, followed.data(), text_bytes), DWORD{ERROR_SUCCESS});
  const std::vector<BYTE> bytes = {0x00, 0x22, 0xFF};
  EXPECT_EQ(Set(key.Get(), L"Bytes", REG_BINARY, bytes.data(), 3), DWORD{ERROR_SUCCESS});

  HKEY again = nullptr;
  ASSERT_EQ(Code(RegOpenKeyExW(HKEY_CURRENT_USER, L"SOFTWARE\\perilinkconformance\\KEY", 0,
                               KEY_READ, &again)),
            DWORD{ERROR_SUCCESS});
  const UniqueRegistryKey reader(again);
  std::vector<BYTE> data(text_bytes);
  DWORD type = 0;
  DWORD size = 0;
  EXPECT_EQ(Code(RegQueryValueExW(again, L"TEXT", nullptr, &type, nullptr, &size)),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(size, text_bytes);
  EXPECT_EQ(Code(RegQueryValueExW(again, L"TEXT", nullptr, &type, data.data(), &size)),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(type, DWORD{REG_SZ});
  EXPECT_EQ(std::wstring(reinterpret_cast<const WCHAR*>(data.data()), text.size()), text);
  size = 2;
  EXPECT_EQ(Code(RegQueryValueExW(again, L"Bytes", nullptr, &type, data.data(), &size)),
            DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(Code(RegQueryValueExW(again, L"Bytes", nullptr, &type, data.data(), &size)),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(type, DWORD{REG_BINARY});
  EXPECT_EQ(std::vector<BYTE>(data.begin(), data.begin() + 3), bytes);
}

TEST(Registry, TellsWhatIsMissingOrNotAllowed) {
  const UniqueRegistryKey key = Create();
  HKEY other = nullptr;
  EXPECT_EQ(Code(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\PerilinkConformance\\None", 0,
                               KEY_READ, &other)),
            DWORD{ERROR_FILE_NOT_FOUND});
  DWORD size = 0;
  EXPECT_EQ(Code(RegQueryValueExW(key.Get(), L"None", nullptr, nullptr, nullptr, &size)),
            DWORD{ERROR_FILE_NOT_FOUND});
  ASSERT_EQ(Code(RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_READ, &other)),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Set(other, L"Text", REG_SZ, L"x", sizeof(WCHAR)), DWORD{ERROR_ACCESS_DENIED});
  RegCloseKey(other);
  ASSERT_EQ(Code(RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_SET_VALUE, &other)),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Set(other, L"Text", REG_SZ, L"x", sizeof(WCHAR)), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Code(RegQueryValueExW(other, L"Text", nullptr, nullptr, nullptr, &size)),
            DWORD{ERROR_ACCESS_DENIED});
  RegCloseKey(other);
  EXPECT_EQ(Code(RegCloseKey(other)), DWORD{ERROR_INVALID_HANDLE});
}

}  // namespace
}  // namespace perilink
