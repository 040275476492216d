/* A host in C: what it can ask of a device directly, on its own thread. */
#include <perilink/perilink.h>
#include <stdio.h>

static bool Inspect(const char* path) {
  const uint32_t version = (uint32_t)UsbFinderC_GetVersion(path);
  if (version == 0) {
    puts("  does not answer");
    return false;
  }
  printf("  firmware %x.%02x, %s\n", version >> 8, version & 0xFF,
         UsbFinderC_GetDeviceOnLine(path) ? "on line" : "asleep or out of reach");

  BatteryLevel battery;
  if (UsbFinderC_GetBatteryLevel(path, &battery)) {
    printf("  battery %u %%, %u mV%s\n", battery.level, battery.voltage,
           battery.charging ? ", charging" : "");
  }
  DataRecord10 serial;
  if (UsbFinderC_GetMouseSerialNumber(path, &serial)) {
    printf("  serial number ");
    for (size_t i = 0; i < sizeof serial.bytes; ++i)
      printf("%02x", serial.bytes[i]);
    puts("");
  }
  return true;
}

/* Sets the receiver's indicator, reads it back and restores it. */
static bool TryIndicator(const char* path) {
  const IndicatorLed wanted = {{2, 0x40, 1}};
  IndicatorLed before;
  IndicatorLed after;
  if (!UsbFinderC_GetDongleIndicatorLed(path, &before)) return false;
  const bool set = UsbFinderC_SetDongleIndicatorLed(path, &wanted) &&
                   UsbFinderC_GetDongleIndicatorLed(path, &after);
  const bool restored = UsbFinderC_SetDongleIndicatorLed(path, &before);
  if (set) printf("  indicator read back as %02x\n", after.bytes[1]);
  return set && restored && after.bytes[1] == wanted.bytes[1];
}

int main(void) {
  uint32_t count = 0;
  char** paths = UsbFinderC_FindHidDevicesByDefaultDeviceId("1234", "abcd", &count);
  bool fine = count > 0;
  if (count == 0) puts("no such device");
  for (uint32_t i = 0; i < count; ++i) {
    puts(paths[i]);
    fine = Inspect(paths[i]) && TryIndicator(paths[i]) && fine;
  }
  UsbFinderC_Free(paths, (int32_t)count);
  return fine ? 0 : 1;
}
