// Opens of HID interfaces: their reports, overlapped reads and what ends them.
#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "perilink_platform/win32.h"
#include "support/scripted_device.h"

namespace perilink {
namespace {

using testing::Report;
using testing::ScriptedDevice;

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

HANDLE Open(DWORD flags = FILE_FLAG_OVERLAPPED, DWORD access = kReadWrite,
            DWORD share = kShareAll) {
  return CreateFileW(testing::kScriptedPath, access, share, nullptr, OPEN_EXISTING,
                     FILE_ATTRIBUTE_NORMAL | flags, nullptr);
}

Report Numbered(uint8_t number) {
  Report report(17);
  report[0] = 8;
  report[1] = number;
  return report;
}

// A read whose memory is its own.
struct Transfer {
  OVERLAPPED overlapped{};
  std::array<uint8_t, 20> buffer{};
  DWORD bytes = 99;

  explicit Transfer(bool signalled = false) {
    overlapped.hEvent = CreateEventW(nullptr, TRUE, signalled ? TRUE : FALSE, nullptr);
    buffer.fill(0xEE);
  }
  ~Transfer() { CloseHandle(overlapped.hEvent); }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // 0, or the error.
  DWORD Post(HANDLE file, DWORD size = 20) {
    return ReadFile(file, buffer.data(), size, nullptr, &overlapped) ? 0 : GetLastError();
  }
  bool Signalled() { return WaitForSingleObject(overlapped.hEvent, 0) == WAIT_OBJECT_0; }
  DWORD Result(HANDLE file, bool wait = false) {
    return GetOverlappedResult(file, &overlapped, &bytes, wait) ? 0 : GetLastError();
  }
};

TEST(File, OpensOnlyPresentInterfaces) {
  EXPECT_EQ(Open(), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  ScriptedDevice device;
  const auto error_of = [](const wchar_t* path, DWORD access, DWORD creation, DWORD flags) {
    SetLastError(0);
    EXPECT_EQ(CreateFileW(path, access, 0, nullptr, creation, flags, nullptr),
              INVALID_HANDLE_VALUE);
    return GetLastError();
  };
  EXPECT_EQ(error_of(L"", kReadWrite, OPEN_EXISTING, 0), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(error_of(L"C:\\file", kReadWrite, OPEN_EXISTING, 0), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(error_of(testing::kScriptedPath, kReadWrite, 2, 0), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(error_of(testing::kScriptedPath, kReadWrite, OPEN_EXISTING, 0x20000000),
            ERROR_INVALID_PARAMETER);
  EXPECT_EQ(platform::OpenHandleCount(), 0u);

  std::wstring upper = testing::kScriptedPath;
  for (wchar_t& c : upper)
    c = static_cast<wchar_t>(towupper(static_cast<wint_t>(c)));
  const HANDLE file =
      CreateFileW(upper.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_EQ(Open(), INVALID_HANDLE_VALUE);  // the first shares no writing
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
  EXPECT_NE(Open(0, 0, 0), INVALID_HANDLE_VALUE);  // without access, sharing doesn't matter
  EXPECT_EQ(platform::OpenHandleCount(), 2u);
  EXPECT_EQ(platform::Bus().OpenConnections(), 2u);
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(platform::Bus().OpenConnections(), 1u);
}

TEST(File, QueuesTheLast32ReportsOfEachOpen) {
  ScriptedDevice device;
  device.Deliver(Numbered(99));  // before anyone has opened it
  const HANDLE file = Open();
  for (uint8_t i = 0; i < 40; ++i)
    device.Deliver(Numbered(i));
  Transfer read;
  for (uint8_t i = 8; i < 40; ++i) {
    ASSERT_EQ(read.Post(file), 0u);
    EXPECT_TRUE(read.Signalled());
    EXPECT_EQ(read.Result(file), 0u);
    EXPECT_EQ(read.bytes, 17u);
    EXPECT_EQ(read.buffer[1], i);
    EXPECT_EQ(read.buffer[17], 0xEE);  // no more than the report is stored
  }
  EXPECT_EQ(read.Post(file), ERROR_IO_PENDING);
  EXPECT_FALSE(read.Signalled());
  EXPECT_EQ(read.Result(file), ERROR_IO_INCOMPLETE);
  device.Deliver(Numbered(77), 5);
  EXPECT_EQ(WaitForSingleObject(read.overlapped.hEvent, 6), WAIT_OBJECT_0);
  EXPECT_EQ(read.buffer[1], 77);
  CloseHandle(file);
}

TEST(File, AReadThatFailsAtOnceLeavesItsEventUnsignalled) {
  ScriptedDevice device;
  const HANDLE file = Open();
  const HANDLE write_only = Open(FILE_FLAG_OVERLAPPED, GENERIC_WRITE);
  const HANDLE removed = Open();
  const HANDLE closed = Open();
  CloseHandle(closed);
  Transfer read(true);
  EXPECT_EQ(read.Post(file, 16), ERROR_INVALID_USER_BUFFER);
  EXPECT_FALSE(read.Signalled());
  EXPECT_EQ(Transfer(true).Post(closed), ERROR_INVALID_HANDLE);
  EXPECT_EQ(Transfer(true).Post(write_only), ERROR_ACCESS_DENIED);
  DWORD bytes = 0;
  EXPECT_FALSE(ReadFile(file, read.buffer.data(), 17, &bytes, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  device.Unplug();
  device.Plug();  // what has been opened before stays disconnected
  Transfer late(true);
  EXPECT_EQ(late.Post(removed), ERROR_DEVICE_NOT_CONNECTED);
  EXPECT_FALSE(late.Signalled());
  for (const HANDLE handle : {file, write_only, removed})
    EXPECT_TRUE(CloseHandle(handle));
}

TEST(File, RemovalEndsPendingReads) {
  ScriptedDevice device;
  const HANDLE file = Open();
  Transfer read;
  ASSERT_EQ(read.Post(file), ERROR_IO_PENDING);
  device.Unplug();
  EXPECT_TRUE(read.Signalled());
  EXPECT_EQ(read.Result(file), ERROR_DEVICE_NOT_CONNECTED);
  EXPECT_EQ(read.buffer[0], 0xEE);
  const uint8_t byte = 8;
  DWORD written = 0;
  EXPECT_FALSE(WriteFile(file, &byte, 1, &written, &read.overlapped));
  EXPECT_EQ(GetLastError(), ERROR_DEVICE_NOT_CONNECTED);
  CloseHandle(file);
}

TEST(File, CancelledReadsAreCompletedALittleLater) {
  ScriptedDevice device;
  const HANDLE file = Open();
  Transfer first;
  Transfer second;
  ASSERT_EQ(first.Post(file), ERROR_IO_PENDING);
  ASSERT_EQ(second.Post(file), ERROR_IO_PENDING);
  EXPECT_TRUE(CancelIo(file));
  EXPECT_EQ(first.overlapped.Internal, STATUS_PENDING);
  device.Deliver(Numbered(5));  // comes in before the cancellation
  EXPECT_EQ(first.Result(file, true), 0u);
  EXPECT_EQ(first.buffer[1], 5);
  EXPECT_EQ(second.Result(file, true), ERROR_OPERATION_ABORTED);
  EXPECT_TRUE(second.Signalled());
  EXPECT_EQ(second.buffer[0], 0xEE);
  EXPECT_TRUE(CancelIo(file));  // nothing to cancel
  EXPECT_FALSE(CancelIoEx(file, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);
  CloseHandle(file);
}

TEST(File, CancelIoIsOfItsThreadAndClosingOfAll) {
  ScriptedDevice device;
  struct Shared {
    HANDLE file;
    Transfer read;
    HANDLE quit = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  } shared{Open(), Transfer{}};
  const HANDLE thread = CreateThread(
      nullptr, 0,
      [](void* parameter) -> DWORD {
        auto& s = *static_cast<Shared*>(parameter);
        s.read.Post(s.file);
        WaitForSingleObject(s.quit, INFINITE);
        return 0;
      },
      &shared, 0, nullptr);
  Sleep(1);
  CancelIo(shared.file);
  Sleep(1);
  EXPECT_FALSE(shared.read.Signalled());
  SetEvent(shared.quit);  // a thread that ends takes its reads with it
  WaitForSingleObject(thread, INFINITE);
  EXPECT_EQ(shared.read.Result(shared.file, true), ERROR_OPERATION_ABORTED);

  ASSERT_EQ(shared.read.Post(shared.file), ERROR_IO_PENDING);
  CloseHandle(shared.file);
  EXPECT_EQ(WaitForSingleObject(shared.read.overlapped.hEvent, 1), WAIT_OBJECT_0);
  EXPECT_EQ(shared.read.buffer[0], 0xEE);
  EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
  CloseHandle(shared.quit);
  CloseHandle(thread);
}

// What tells, under AddressSanitizer, a caller that frees a read which it has only cancelled.
TEST(File, TheSystemWritesToWhatIsNotDrained) {
  ScriptedDevice device;
  const HANDLE file = Open();
  auto read = std::make_unique<Transfer>();
  read->Post(file);
  CancelIo(file);
  const OVERLAPPED before = read->overlapped;
  Sleep(1);
  EXPECT_NE(read->overlapped.Internal, before.Internal);
  CloseHandle(file);
}

TEST(File, SynchronousReadsWait) {
  ScriptedDevice device;
  const HANDLE file = Open(0);
  device.Deliver(Numbered(3), 20);
  uint8_t buffer[17];
  DWORD bytes = 0;
  const uint64_t start = platform::NowMicros();
  EXPECT_TRUE(ReadFile(file, buffer, 17, &bytes, nullptr));
  EXPECT_EQ(platform::NowMicros() - start, 20'000u);
  EXPECT_EQ(bytes, 17u);
  EXPECT_EQ(buffer[1], 3);
  CloseHandle(file);
}

TEST(File, WritesAreFittedAndRefused) {
  DWORD refusal = 0;
  ScriptedDevice device(testing::kScriptedPath,
                        [&refusal](ScriptedDevice&, const Report&) { return refusal; });
  const HANDLE file = Open(0);
  const uint8_t report[18] = {8, 1, 2};
  DWORD written = 0;
  EXPECT_TRUE(WriteFile(file, report, 2, &written, nullptr));
  EXPECT_EQ(written, 2u);
  EXPECT_EQ(device.writes().at(0).report, Numbered(1));
  EXPECT_FALSE(WriteFile(file, report, 18, &written, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(WriteFile(file, report, 0, &written, nullptr));
  refusal = ERROR_GEN_FAILURE;
  EXPECT_FALSE(WriteFile(file, report, 17, &written, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE);
  EXPECT_EQ(written, 0u);
  const HANDLE reader = Open(0, GENERIC_READ);
  EXPECT_FALSE(WriteFile(reader, report, 17, &written, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);

  EXPECT_TRUE(HidD_SetFeature(reader, const_cast<uint8_t*>(report), 2));
  EXPECT_EQ(device.features().at(0), Numbered(1));
  HIDD_ATTRIBUTES attributes{};
  EXPECT_TRUE(HidD_GetAttributes(reader, &attributes));
  EXPECT_EQ(attributes.VendorID, 0x1234);
  EXPECT_EQ(attributes.Size, sizeof(attributes));
  CloseHandle(reader);
  EXPECT_FALSE(HidD_GetAttributes(reader, &attributes));
  CloseHandle(file);
}

}  // namespace
}  // namespace perilink
