/* A host in C: finds the interfaces that take a device's commands, and asks for the firmware. */
#include <perilink/perilink.h>
#include <stdio.h>

int main(void) {
  uint32_t count = 0;
  char** paths = UsbFinderC_FindHidDevicesByDefaultDeviceId("1234", "abcd", &count);
  for (uint32_t i = 0; i < count; ++i) {
    printf("%s has version %04x\n", paths[i], (unsigned)UsbFinderC_GetVersion(paths[i]));
  }
  UsbFinderC_Free(paths, (int32_t)count);
  if (count == 0) puts("no such device");
  return count > 0 ? 0 : 1;
}
