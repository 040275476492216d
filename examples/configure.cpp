// A host in C++ that reads a device's whole configuration through the background server, changes a
// colour, sees it in the device, and changes it back.
#include <perilink/perilink.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>

namespace {

// What the server's callback has brought, for the main thread to take.
class Inbox {
 public:
  void Put(uint8_t command, std::vector<uint8_t> data) {
    const std::lock_guard lock(mutex_);
    reports_.push_back({command, std::move(data)});
    arrived_.notify_one();
  }

  // The data of the next report of this command and length; other reports are passed over. Empty
  // when none comes in time.
  std::vector<uint8_t> Take(uint8_t command, size_t length) {
    std::unique_lock lock(mutex_);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (;;) {
      if (!arrived_.wait_until(lock, deadline, [this] { return !reports_.empty(); })) return {};
      const Report report = std::move(reports_.front());
      reports_.pop_front();
      if (report.command == command && report.data.size() == length) return report.data;
    }
  }

 private:
  struct Report {
    uint8_t command;
    std::vector<uint8_t> data;
  };
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Report> reports_;
};

// The callback has no argument of the host's, so what it fills is global. It is never destroyed:
// the server thread may still run while the process exits.
Inbox& inbox = *new Inbox;

// On the server thread. The data are the library's and last only as long as the call.
void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t, const uint8_t* data, uint32_t length) {
  inbox.Put(frame[1], {data, data + length});
}

// Only what differs from what the device holds is written.
bool WriteColor(ProtocolData& record, DPIColor color) {
  record.dpi_levels[0].color = color;
  ProtocolDataUpdate(&record);
  if (inbox.Take(PERILINK_COMMAND_WRITE_MEMORY, PERILINK_DPI_COLOR_SIZE).empty()) return false;

  UsbServer_ReadFalshData(PERILINK_DPI_COLORS_ADDRESS, PERILINK_DPI_COLOR_SIZE, 0);
  const std::vector<uint8_t> stored =
      inbox.Take(PERILINK_COMMAND_READ_MEMORY, PERILINK_DPI_COLOR_SIZE);
  if (stored.empty()) return false;
  DPILevel level{};
  BufferToDPIColor(stored.data(), &level);
  std::printf("level 0 is now %02x%02x%02x\n", level.color.bytes[0], level.color.bytes[1],
              level.color.bytes[2]);
  return std::memcmp(&level.color, &color, sizeof color) == 0;
}

bool Configure() {
  UsbServer_ReadAllFlashData();
  const std::vector<uint8_t> image =
      inbox.Take(PERILINK_COMMAND_READ_MEMORY, PERILINK_FLASH_IMAGE_SIZE);
  if (image.empty()) return false;
  ProtocolData record{};
  ProtocolDataParser(image.data(), &record);
  std::printf("report rate %u, %u levels, level %u in use\n", record.report_rate,
              record.dpi_level_count, record.current_dpi_level);
  const DPIColor before = record.dpi_levels[0].color;
  return WriteColor(record, {{0x20, 0x80, 0xE0}}) && WriteColor(record, before);
}

}  // namespace

int main() {
  std::vector<std::wstring> paths;
  UsbFinder_FindHidDevicesByDefaultDeviceId(L"1234", L"abcd", paths);
  if (paths.empty()) {
    std::puts("no such device");
    return 1;
  }
  // The result is the thread's handle, with which a host can wait for its end.
  UsbServer_Start(paths.front(), paths.front(), OnReport);
  const bool configured = Configure();
  UsbServer_Exit();
  if (!configured) std::puts("the device does not answer");
  return configured ? 0 : 1;
}
