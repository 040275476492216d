// The narrow and the managed variants of the background server's exports.
#include "commands/layer_keys.h"
#include "interop/returned_lists.h"
#include "perilink/server.h"
#include "platform/ansi_text.h"
#include "platform/guard.h"
#include "server/lifecycle.h"
#include "server/queued_commands.h"
#include "server/state.h"

using perilink::Guarded;
using perilink::NarrowToWide;
using perilink::ServerState;
using perilink::Target;

// ---- Start and end -----------------------------------------------------------------------------

namespace {

void StartNarrow(const char* input_path, const char* output_path, ServerReportCallback callback,
                 Target target) {
  Guarded([&] {
    perilink::StartServerDetached(NarrowToWide(input_path), NarrowToWide(output_path), callback,
                                  target);
  });
}

}  // namespace

void UsbServerC_Start(const char* input_path, const char* output_path,
                      ServerReportCallback callback) {
  StartNarrow(input_path, output_path, callback, Target::kMouse);
}

void UsbServerC_KeyboardStart(const char* input_path, const char* output_path,
                              ServerReportCallback callback) {
  StartNarrow(input_path, output_path, callback, Target::kKeyboard);
}

void CS_UsbServer_Start(const char* path, const char*, ServerReportCallback callback) {
  StartNarrow(path, path, callback, Target::kMouse);
}

void CS_UsbServer_KeyboardStart(const char* path, const char*, ServerReportCallback callback) {
  StartNarrow(path, path, callback, Target::kKeyboard);
}

void CS_UsbServer_Thread(void) {
  UsbReaderWriterServer();
}

void CS_UsbServer_SetThreadSleepTime(uint32_t milliseconds) {
  Guarded([&] { ServerState::Instance().SetSleepTime(milliseconds); });
}

SAFEARRAY* CS_UsbServer_GetCurrentInputDevice(void) {
  return perilink::BstrArrayFrom(
      [] { return std::vector<std::wstring>{ServerState::Instance().InputPath()}; });
}

SAFEARRAY* CS_UsbServer_GetCurrentOutputDevice(void) {
  return perilink::BstrArrayFrom(
      [] { return std::vector<std::wstring>{ServerState::Instance().OutputPath()}; });
}

// ---- Queries -----------------------------------------------------------------------------------

void CS_UsbServer_ReadEncryption(void) {
  UsbServer_ReadEncryption();
}
void CS_UsbServer_ReadOnLine(void) {
  UsbServer_ReadOnLine();
}
void CS_UsbServer_ReadBatteryLevel(void) {
  UsbServer_ReadBatteryLevel();
}
void CS_UsbServer_ReadDonglePairStatus(void) {
  UsbServer_ReadDonglePairStatus();
}
void CS_UsbServer_ReadConfig(void) {
  UsbServer_ReadConfig();
}
void CS_UsbServer_ReadVersion(void) {
  UsbServer_ReadVersion();
}
void CS_UsbServer_GetSlaveVersion(void) {
  UsbServer_GetSlaveVersion();
}
void CS_UsbServer_Get4KDongleRGBValue(void) {
  UsbServer_Get4KDongleRGBValue();
}
void CS_UsbServer_GetLongRangeMode(void) {
  UsbServer_GetLongRangeMode();
}
void CS_UsbServer_GetMouseSerialNumber(void) {
  UsbServer_GetMouseSerialNumber();
}
void CS_UsbServer_GetRSSI(void) {
  UsbServer_GetRSSI();
}
void CS_UsbServer_GetDongleIndicatorLed(void) {
  UsbServer_GetDongleIndicatorLed();
}
void CS_UsbServer_GetData(uint8_t command) {
  UsbServer_GetData(command);
}
void CS_UsbServer_GetDongleRGBBarMode(void) {
  Guarded([] { perilink::QueueGetRgbBarMode(); });
}

// ---- Settings ----------------------------------------------------------------------------------

void CS_UsbServer_SetPCDriverStatus(uint8_t status) {
  UsbServer_SetPCDriverStatus(status);
}
void CS_UsbServer_EnterDonglePairWithCidMid(uint8_t cid, uint8_t mid) {
  UsbServer_EnterDonglePairWithCidMid(cid, mid);
}
void CS_UsbServer_EnterDonglePairOnlyCid(uint8_t cid) {
  UsbServer_EnterDonglePairOnlyCid(cid);
}
void CS_UsbServer_SetClearSetting(void) {
  UsbServer_SetClearSetting();
}
void CS_UsbServer_SetVidPid(uint32_t vid, uint32_t pid) {
  UsbServer_SetVidPid(vid, pid);
}
void UsbServerC_SetDeviceDescriptorString(const char* text) {
  Guarded([&] { perilink::QueueDescriptorString(NarrowToWide(text)); });
}
void CS_UsbServer_EnterUsbUpdateMode(void) {
  UsbServer_EnterUsbUpdateMode();
}
void CS_UsbServer_SetCurrentConfig(uint8_t config) {
  UsbServer_SetCurrentConfig(config);
}
void CS_UsbServer_EnterMTKMode(void) {
  UsbServer_EnterMTKMode();
}
void CS_UsbServer_Set4KDongleRGB(const DataRecord10* record) {
  UsbServer_Set4KDongleRGB(record);
}
void CS_UsbServer_SetLongRangeMode(uint8_t mode) {
  UsbServer_SetLongRangeMode(mode);
}
void CS_UsbServer_SetDongleRGBBarMode(const RgbBarMode* record) {
  Guarded([&] { perilink::QueueSetRgbBarMode(*record); });
}
void CS_UsbServer_SetDongleIDToMouse(const DataRecord10* record) {
  UsbServer_SetDongleIDToMouse(record);
}
void CS_UsbServer_SetMouseSerialNumber(const DataRecord10* record) {
  UsbServer_SetMouseSerialNumber(record);
}
void CS_UsbServer_SetDongleIndicatorLed(const IndicatorLed* record) {
  UsbServer_SetDongleIndicatorLed(record);
}
void CS_UsbServer_SetData(uint8_t command, const uint8_t* data, uint8_t length) {
  UsbServer_SetData(command, data, length);
}

// ---- Configuration memory ----------------------------------------------------------------------

void CS_UsbServer_ReadFalshData(uint32_t address, int32_t length) {
  UsbServer_ReadFalshData(address, length, 0);
}

SAFEARRAY* CS_UsbKeyboard_LoadLayerKeys(const char* path, uint8_t layer) {
  return Guarded<SAFEARRAY*>(nullptr, [&] {
    return perilink::ToByteArray(perilink::LoadLayerKeys(NarrowToWide(path), layer));
  });
}
