// The narrow and managed variants of discovery, pass-through and direct commands. A managed name
// that stands for the same function as a narrow one is an alias in exports.def.
#include <array>

#include "interop/returned_lists.h"
#include "perilink/finder.h"
#include "transport/discovery.h"
#include "transport/frame.h"
#include "transport/pass_through.h"

using namespace perilink;

// ---- Discovery -----------------------------------------------------------------------------

char** UsbFinderC_EnumHidDeviceList(uint32_t* count) {
  return NarrowListFrom(count, EnumerateHidPaths);
}

SAFEARRAY* CS_UsbFinder_EnumHidDeviceList() {
  return BstrArrayFrom(EnumerateHidPaths);
}

char** UsbFinderC_FindHidDevices(const char* vendor_id, const char* product_id, uint32_t* count) {
  return NarrowListFrom(
      count, [&] { return FindHidPaths(NarrowToWide(vendor_id), NarrowToWide(product_id)); });
}

SAFEARRAY* CS_UsbFinder_FindHidDevices(const char* vendor_id, const char* product_id) {
  return BstrArrayFrom(
      [&] { return FindHidPaths(NarrowToWide(vendor_id), NarrowToWide(product_id)); });
}

char** UsbFinderC_FindHidDevicesByKey(const char* key, uint32_t* count) {
  return NarrowListFrom(count, [&] { return FindHidPathsByKey(NarrowToWide(key)); });
}

SAFEARRAY* CS_UsbFinder_FindHidDevicesByKey(const char* key) {
  return BstrArrayFrom([&] { return FindHidPathsByKey(NarrowToWide(key)); });
}

char** UsbFinderC_FindHidDevicesByDeviceId(const char* vendor_id, const char* product_id,
                                           int32_t interface_number, int32_t collection_number,
                                           uint32_t* count) {
  return NarrowListFrom(count, [&] {
    return FindHidPathsByDeviceId(NarrowToWide(vendor_id), NarrowToWide(product_id),
                                  interface_number, collection_number);
  });
}

SAFEARRAY* CS_UsbFinder_FindHidDevicesByDeviceId(const char* vendor_id, const char* product_id,
                                                 int32_t interface_number,
                                                 int32_t collection_number) {
  return BstrArrayFrom([&] {
    return FindHidPathsByDeviceId(NarrowToWide(vendor_id), NarrowToWide(product_id),
                                  interface_number, collection_number);
  });
}

char** UsbFinderC_FindHidDevicesByDefaultDeviceId(const char* vendor_id, const char* product_id,
                                                  uint32_t* count) {
  return UsbFinderC_FindHidDevicesByDeviceId(vendor_id, product_id, PERILINK_DEFAULT_INTERFACE,
                                             PERILINK_DEFAULT_COLLECTION, count);
}

SAFEARRAY* CS_UsbFinder_FindHidDevicesByDefaultDeviceId(const char* vendor_id,
                                                        const char* product_id) {
  return CS_UsbFinder_FindHidDevicesByDeviceId(vendor_id, product_id, PERILINK_DEFAULT_INTERFACE,
                                               PERILINK_DEFAULT_COLLECTION);
}

SAFEARRAY* CS_UsbFinder_GetDllVersion() {
  return BstrArrayFrom([] { return HidPathList{L"x64"}; });
}

void UsbFinderC_GetUsbDeviceAttribute(const char* path, struct _HIDD_ATTRIBUTES* attributes) {
  UsbFinder_GetUsbDeviceAttribute(WidePath(path), attributes);
}

// ---- Raw pass-through ----------------------------------------------------------------------

bool UsbFinderC_OpenDevice(const char* path) {
  return Guarded(false, [&] { return OpenRawDevice(WidePath(path)); });
}

void UsbFinderC_CloseDevice() {
  Guarded(CloseRawDevice);
}

bool UsbFinderC_ReadWriteDeviceData(const uint8_t* request, uint8_t* reply, uint8_t length) {
  return Guarded(false, [&] { return ExchangeRaw({request, length}, {reply, length}); });
}

SAFEARRAY* CS_UsbFinder_ReadWriteDeviceData(const uint8_t* request, uint8_t length) {
  std::array<uint8_t, UINT8_MAX> reply;
  const bool replied = UsbFinderC_ReadWriteDeviceData(request, reply.data(), length);
  return ToByteArray(std::span(reply).first(replied ? length : 0));
}

// ---- Direct commands -----------------------------------------------------------------------

bool UsbFinderC_GetDeviceData(const char* path, const CommandFrame* request, CommandFrame* reply) {
  return UsbFinder_GetDeviceData(WidePath(path), request, reply);
}

DeviceInfo UsbFinderC_GetDeviceInfo(const char* path, uint8_t keyboard) {
  return UsbFinder_GetDeviceInfo(WidePath(path), keyboard);
}

void CS_UsbFinder_GetDeviceInfo(const char* path, uint8_t keyboard, DeviceInfo* info) {
  *info = UsbFinder_GetDeviceInfo(WidePath(path), keyboard);
}

bool UsbFinderC_GetDeviceOnLine(const char* path) {
  return UsbFinder_GetDeviceOnLine(WidePath(path));
}

bool UsbFinderC_GetDeviceOnLineWithUsbAddress(const char* path, CommandFrame* reply) {
  return UsbFinder_GetDeviceOnLineWithUsbAddress(WidePath(path), reply);
}

SAFEARRAY* CS_UsbFinder_GetDeviceOnLineWithUsbAddress(const char* path) {
  CommandFrame reply;
  UsbFinder_GetDeviceOnLineWithUsbAddress(WidePath(path), &reply);
  return ToByteArray(FrameBytes(reply));
}

bool UsbFinderC_GetBatteryLevel(const char* path, BatteryLevel* battery) {
  return UsbFinder_GetBatteryLevel(WidePath(path), battery);
}

bool CS_UsbFinder_GetBatteryLevel(const char* path, BatteryLevel* battery) {
  return UsbFinderC_GetBatteryLevel(path, battery);
}

int32_t UsbFinderC_GetCurrentDPI(const char* path) {
  return UsbFinder_GetCurrentDPI(WidePath(path));
}

int32_t UsbFinderC_GetVersion(const char* path) {
  return UsbFinder_GetVersion(WidePath(path));
}

bool UsbFinderC_GetSlaveVersion(const char* path, int32_t* version) {
  return UsbFinder_GetSlaveVersion(WidePath(path), version);
}

uint8_t UsbFinderC_Set4KDongleRGB(const char* path, const DataRecord10* value) {
  return UsbFinder_Set4KDongleRGB(WidePath(path), value);
}

bool UsbFinderC_Get4KDongleRGBValue(const char* path, DataRecord10* value) {
  return UsbFinder_Get4KDongleRGBValue(WidePath(path), value);
}

bool UsbFinderC_SetLongRangeMode(const char* path, uint8_t mode) {
  return UsbFinder_SetLongRangeMode(WidePath(path), mode);
}

bool UsbFinderC_GetLongRangeMode(const char* path, uint8_t* mode) {
  return UsbFinder_GetLongRangeMode(WidePath(path), mode);
}

bool UsbFinderC_SetDongleRGBBarMode(const char* path, const RgbBarMode* mode) {
  return UsbFinder_SetDongleRGBBarMode(WidePath(path), mode);
}

bool UsbFinderC_GetDongleRGBBarMode(const char* path, RgbBarMode* mode) {
  return UsbFinder_GetDongleRGBBarMode(WidePath(path), mode);
}

bool UsbFinderC_SetDongleIDToMouse(const char* path, const DataRecord10* id) {
  return UsbFinder_SetDongleIDToMouse(WidePath(path), id);
}

bool UsbFinderC_SetMouseSerialNumber(const char* path, const DataRecord10* number) {
  return UsbFinder_SetMouseSerialNumber(WidePath(path), number);
}

bool UsbFinderC_GetMouseSerialNumber(const char* path, DataRecord10* number) {
  return UsbFinder_GetMouseSerialNumber(WidePath(path), number);
}

bool CS_UsbFinder_GetRSSI(const char* path, uint8_t* rssi) {
  return UsbFinder_GetRSSI(WidePath(path), rssi);
}

bool UsbFinderC_SetDongleIndicatorLed(const char* path, const IndicatorLed* led) {
  return UsbFinder_SetDongleIndicatorLed(WidePath(path), led);
}

bool UsbFinderC_GetDongleIndicatorLed(const char* path, IndicatorLed* led) {
  return UsbFinder_GetDongleIndicatorLed(WidePath(path), led);
}

bool UsbFinderC_ReadCidMid(const char* path, uint8_t unused, CidMid* ids) {
  return UsbFinder_ReadCidMid(WidePath(path), unused, ids);
}

bool UsbFinderC_WriteCidMid(const char* path, uint8_t a, uint8_t b, uint8_t c, CidMid* ids) {
  return UsbFinder_WriteCidMid(WidePath(path), a, b, c, ids);
}

bool UsbFinderC_SetData(const char* path, uint8_t command, const uint8_t* data, uint8_t length) {
  return UsbFinder_SetData(WidePath(path), command, data, length);
}

bool UsbFinderC_GetData(const char* path, uint8_t command, DataRecord10* result) {
  return UsbFinder_GetData(WidePath(path), command, result);
}

bool UsbFinderC_SetCommand(const char* path, uint8_t command, const uint8_t* data, uint8_t length,
                           int32_t retries, int32_t timeout_ms, DataRecord10* result) {
  return UsbFinder_SetCommand(WidePath(path), command, data, length, retries, timeout_ms, result);
}
