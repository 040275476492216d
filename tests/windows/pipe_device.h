// A device played over a named pipe: CreateFileW opens a pipe as it opens a HID interface, and a
// pipe's name may hold a device key. For one exchange: the library opens two handles, writes on the
// one and reads on the other.
#ifndef PERILINK_TESTS_WINDOWS_PIPE_DEVICE_H_
#define PERILINK_TESTS_WINDOWS_PIPE_DEVICE_H_

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "perilink/records.h"
#include "platform/handles.h"

namespace perilink {

// The replies to the nth request, counted from 1, all sent before the next request is read.
using PipeFirmware = std::function<std::vector<CommandFrame>(const CommandFrame& request, int nth)>;

class PipeDevice {
 public:
  // Can be opened twice when the constructor is over.
  explicit PipeDevice(PipeFirmware firmware) : firmware_(std::move(firmware)) {
    static int instance = 0;
    path_ = "\\\\.\\pipe\\hid#vid_1234&pid_abcd&mi_01&col05#" +
            std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++instance);
    for (End& end : ends_)
      end.Listen(path_);
    thread_ = std::thread([this] { Serve(); });
  }
  ~PipeDevice() { Requests(); }
  PipeDevice(const PipeDevice&) = delete;
  PipeDevice& operator=(const PipeDevice&) = delete;

  const std::string& path() const { return path_; }
  std::wstring wide_path() const { return std::wstring(path_.begin(), path_.end()); }

  // Ends the device. What the host wrote, every byte of it.
  const std::vector<std::vector<uint8_t>>& Requests() {
    SetEvent(stop_.Get());
    if (thread_.joinable()) thread_.join();
    return requests_;
  }

 private:
  // One instance of the pipe, with a read posted.
  struct End {
    UniqueFile pipe;
    UniqueEvent event = CreateManualResetEvent();
    OVERLAPPED overlapped{};
    std::array<uint8_t, 256> buffer{};

    void Listen(const std::string& path) {
      pipe.Reset(CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                  PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 2, 4096, 4096, 0,
                                  nullptr));
      ASSERT_TRUE(pipe.Valid());
      overlapped.hEvent = event.Get();
      ConnectNamedPipe(pipe.Get(), &overlapped);
    }
    void PostRead() {
      ResetEvent(event.Get());
      ReadFile(pipe.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), nullptr, &overlapped);
    }
    // Bytes of what has completed; 0 for a connection that was made, or that has ended.
    DWORD Completed() {
      DWORD bytes = 0;
      return GetOverlappedResult(pipe.Get(), &overlapped, &bytes, FALSE) ? bytes : 0;
    }
  };

  void Serve() {
    const HANDLE events[] = {ends_[0].event.Get(), ends_[1].event.Get(), stop_.Get()};
    // Both ends are open before the host writes its first request.
    for (End& end : ends_) {
      const HANDLE opened[] = {end.event.Get(), stop_.Get()};
      if (WaitForMultipleObjects(2, opened, FALSE, 10'000) != WAIT_OBJECT_0) return;
      end.PostRead();
    }
    for (;;) {
      const DWORD which = WaitForMultipleObjects(3, events, FALSE, 10'000);
      if (which > WAIT_OBJECT_0 + 1) return;
      End& end = ends_[which - WAIT_OBJECT_0];
      const DWORD bytes = end.Completed();
      if (bytes == 0) return;
      requests_.emplace_back(end.buffer.begin(), end.buffer.begin() + bytes);
      Answer(ends_[1 - (which - WAIT_OBJECT_0)]);
      end.PostRead();
    }
  }

  // The host reads on the other end than it writes on.
  void Answer(End& other) {
    CommandFrame request{};
    std::copy_n(requests_.back().begin(), std::min(requests_.back().size(), sizeof request),
                reinterpret_cast<uint8_t*>(&request));
    for (const CommandFrame& reply : firmware_(request, static_cast<int>(requests_.size()))) {
      const UniqueEvent written = CreateManualResetEvent();
      OVERLAPPED overlapped{};
      overlapped.hEvent = written.Get();
      DWORD bytes = 0;
      WriteFile(other.pipe.Get(), &reply, sizeof reply, nullptr, &overlapped);
      GetOverlappedResult(other.pipe.Get(), &overlapped, &bytes, TRUE);
    }
  }

  PipeFirmware firmware_;
  std::string path_;
  std::array<End, 2> ends_;
  UniqueEvent stop_ = CreateManualResetEvent();
  std::vector<std::vector<uint8_t>> requests_;
  std::thread thread_;
};

}  // namespace perilink

#endif  // PERILINK_TESTS_WINDOWS_PIPE_DEVICE_H_
