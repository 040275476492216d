// Opens of HID interfaces: their reports, overlapped reads and what ends them.
#include <gtest/gtest.h>

#include <array>

#include "perilink_platform/win32.h"
#include "support/scripted_device.h"

namespace perilink {
namespace {

using testing::Report;
using testing::ScriptedDevice;

Report Numbered(uint8_t number) {
  return testing::Closed({8, number});
}

class File : public ::testing::Test {
 protected:
  File() { Open(); }

  void Open() {
    file = CreateFileW(testing::kScriptedPath, GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
  }

  ScriptedDevice device;
  HANDLE file = nullptr;
};

// A read whose memory is its own.
struct Transfer {
  OVERLAPPED overlapped{};
  std::array<uint8_t, 20> buffer{};
  DWORD bytes = 99;

  Transfer() {
    overlapped.hEvent = CreateEventW(nullptr, TRUE, TRUE, nullptr);
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

TEST_F(File, QueuesTheLast32ReportsOfEachOpen) {
  CloseHandle(file);
  device.Deliver(Numbered(99));  // while nobody has it open
  Open();
  for (uint8_t i = 0; i < 40; ++i)
    device.Deliver(Numbered(i));
  Transfer read;
  for (uint8_t i = 8; i < 40; ++i) {
    ASSERT_EQ(read.Post(file), 0u);
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

// What tells, under AddressSanitizer, a caller that frees a read which it has only cancelled.
TEST_F(File, CancelledReadsAreCompletedALittleLater) {
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
  CloseHandle(file);
}

TEST_F(File, CancelIoIsOfItsThreadAndClosingOfAll) {
  Transfer read;
  ASSERT_EQ(read.Post(file), ERROR_IO_PENDING);
  const auto cancel = [](void* parameter) -> DWORD { return CancelIo(parameter) ? 0 : 1; };
  const HANDLE thread = CreateThread(nullptr, 0, cancel, file, 0, nullptr);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  Sleep(1);
  EXPECT_FALSE(read.Signalled());
  CloseHandle(file);
  EXPECT_EQ(WaitForSingleObject(read.overlapped.hEvent, 1), WAIT_OBJECT_0);
  EXPECT_EQ(read.buffer[0], 0xEE);
}

}  // namespace
}  // namespace perilink
