/* A host in C that changes a setting through the background server, and knows when the device has
 * it. The server has one callback and no result for a request. So a query is queued behind the
 * writes: its turn comes when each of them has been answered. */
#include <perilink/perilink.h>
#include <stdatomic.h>
#include <stdio.h>
#ifdef _WIN32
#include <windows.h>
static void Pause(void) {
  Sleep(10);
}
#else
#include <threads.h>
static void Pause(void) {
  thrd_sleep(&(struct timespec){.tv_nsec = 10000000}, NULL);
}
#endif

enum { kReading, kWriting, kWritten };
static atomic_int state = kReading;
static ProtocolData record;

/* On the server's thread. */
static void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t frame_length, const uint8_t* data,
                                   uint32_t length) {
  (void)frame_length;
  if (frame[1] == PERILINK_COMMAND_READ_MEMORY && length == PERILINK_FLASH_IMAGE_SIZE) {
    ProtocolDataParser(data, &record);
    atomic_store(&state, kWriting);
  } else if (frame[1] == PERILINK_COMMAND_VERSION && atomic_load(&state) == kWriting) {
    atomic_store(&state, kWritten);
  }
}

/* Whether the state came within some seconds. */
static bool Reaches(int wanted) {
  for (int i = 0; i < 2000 && atomic_load(&state) != wanted; ++i)
    Pause();
  return atomic_load(&state) == wanted;
}

/* Inverts a colour. Called twice it leaves the device as it was. */
static bool InvertColor(void) {
  atomic_store(&state, kReading);
  UsbServer_ReadAllFlashData();
  if (!Reaches(kWriting)) return false;
  for (int i = 0; i < 3; ++i)
    record.dpi_levels[0].color.bytes[i] ^= 0xFF;
  ProtocolDataUpdate(&record); /* what differs from what the device holds */
  UsbServer_ReadVersion();     /* answered after all of it; never, when any of it was dropped */
  return Reaches(kWritten);
}

int main(void) {
  uint32_t count = 0;
  char** paths = UsbFinderC_FindHidDevicesByDefaultDeviceId("1234", "abcd", &count);
  bool written = false;
  if (count == 0) {
    puts("no such device");
  } else {
    UsbServerC_Start(paths[0], paths[0], OnReport);
    written = InvertColor() && InvertColor();
    UsbServer_Exit();
    UsbReaderWriterServer(); /* until the server has ended: no callback can come any more */
    puts(written ? "written, acknowledged, and changed back" : "the device does not answer");
  }
  UsbFinderC_Free(paths, (int32_t)count);
  return written ? 0 : 1;
}
