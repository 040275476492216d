#include <algorithm>
#include <memory>

#include "upgrade/boot_devices.h"
#include "upgrade/cycle.h"
#include "upgrade/events.h"
#include "upgrade/log.h"
#include "upgrade/report_writer.h"
#include "upgrade/steps.h"

namespace perilink {
namespace {

constexpr ULONGLONG kEchoTimeoutMs = 1000;

enum class Search { kFound, kAbsent, kFailed };

struct NormalInterfaces {
  HidPathList inputs;
  HidPathList outputs;
};

Search FindNormalInterfaces(UsbUpgradeFile& record, NormalInterfaces& found) {
  found = {FindDevicePaths(record.normal_input_key), FindDevicePaths(record.normal_output_key)};
  const size_t inputs = found.inputs.size();
  const size_t outputs = found.outputs.size();
  if (inputs == 1 && outputs == 1) return Search::kFound;
  if (inputs == 0 && outputs == 0) return Search::kAbsent;
  LogLine(L"ResetToBootMode-Found Multi Devices-input Size =", inputs);
  LogLine(L"ResetToBootMode-Found Multi Devices-output Size =", outputs);
  EndUpgrade(record, PERILINK_UPGRADE_RESULT_NORMAL_INTERFACES, EventCount(inputs),
             EventCount(outputs));
  return Search::kFailed;
}

// With `wait_normal`, every search but a final one is preceded by a whole cycle.
Search PollNormalInterfaces(UsbUpgradeFile& record, bool wait_normal, NormalInterfaces& found) {
  CycleClock clock(record);
  for (;;) {
    if (wait_normal) clock.SleepCycle();
    if (!clock.CountCycle()) {
      LogLine(L"ResetToBootMode-TimeOut-", clock.limit());
      EndUpgrade(record, PERILINK_UPGRADE_RESULT_NO_NORMAL_DEVICE, 1);
      return Search::kFailed;
    }
    const Search search = FindNormalInterfaces(record, found);
    if (search != Search::kAbsent || !wait_normal) return search;
  }
}

bool IsResetEcho(const Link& link, std::span<const uint8_t> command) {
  const std::span<const uint8_t> report = link.report();
  return link.frame() && std::equal(command.begin(), command.end(), report.begin(), report.end());
}

// Looks at one report: if it is not the echo, the rest of the time passes and the wait has failed.
bool WaitForEcho(UsbUpgradeFile& record, Link& link) {
  LogLine(L"ResetToBootMode-Write data success-Wait Usb");
  const ULONGLONG sent_ms = GetTickCount64();
  bool reading = true;
  for (ULONGLONG passed = 0; passed < kEchoTimeoutMs; passed = GetTickCount64() - sent_ms) {
    const auto left_ms = static_cast<DWORD>(kEchoTimeoutMs - passed);
    if (!reading) {
      Sleep(left_ms);
      continue;
    }
    const Arrival arrival = link.Next(left_ms);
    reading = arrival == Arrival::kNothing;
    if (arrival == Arrival::kReport &&
        IsResetEcho(link, CommandBytes(record.header.reset_command))) {
      LogLine(L"ResetToBootMode-Device Respone Success");
      SendUpgradeEvent(record, PERILINK_UPGRADE_NOTICE, PERILINK_UPGRADE_NOTICE_BOOT, 1);
      return true;
    }
  }
  LogLine(L"ResetToBootMode-Timer Out Error");
  EndUpgrade(record, PERILINK_UPGRADE_RESULT_TIMEOUT, PERILINK_UPGRADE_TIMEOUT_RESET_ECHO);
  return false;
}

bool SendReset(UsbUpgradeFile& record, const NormalInterfaces& paths) {
  const UpgradeFileCommand& reset = record.header.reset_command;
  const auto handles = std::make_shared<DeviceHandles>();
  Link link(*handles, CommandBytes(reset).size());
  ReportWriter writer(handles);
  const bool can_wait = link.Open(&paths.outputs.front(), &paths.inputs.front());
  LogLine(L"ResetToBootMode-hDeviceWrite =", link.handles().WriteHandleNumber());
  LogLine(L"ResetToBootMode-hDeviceRead =", link.handles().ReadHandleNumber());
  if (!can_wait) LogLine(L"ResetToBootMode-osReader.hEvent = 0");
  link.Listen();
  LogHexLine(L"ResetToBootMode-Write data:", std::span(&reset.length, sizeof(reset)));

  const bool sent = writer.Send(reset, CommandBytes(reset), record.timeout) == Sent::kYes;
  if (!sent || !can_wait) {
    LogLine(L"ResetToBootMode-Write Usb Error");
    EndUpgrade(record, PERILINK_UPGRADE_RESULT_RESET_WRITE_FAILED, sent, can_wait);
    return false;
  }
  if (reset.data[PERILINK_UPGRADE_ECHO_OFFSET] == 0) {
    LogLine(L"ResetToBootMode-Write data success");
    SendUpgradeEvent(record, PERILINK_UPGRADE_NOTICE, PERILINK_UPGRADE_NOTICE_BOOT, 2);
    return true;
  }
  return WaitForEcho(record, link);
}

}  // namespace

bool ResetToBootMode(UsbUpgradeFile& record, bool wait_normal) {
  LogLine(wait_normal ? L"Start ResetToBootMode-waitNormal-1"
                      : L"Start ResetToBootMode-waitNormal-0");
  NormalInterfaces paths;
  const Search search = PollNormalInterfaces(record, wait_normal, paths);
  if (search == Search::kFound) return SendReset(record, paths);
  return search == Search::kAbsent;
}

}  // namespace perilink
