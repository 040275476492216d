"""A host in Python, through ctypes: host.py [LIBRARY]

Asks the first device found for its firmware, then reads one setting through the background server.
"""
import ctypes
import queue
import sys
from ctypes import POINTER, c_bool, c_char_p, c_int32, c_uint8, c_uint32

from perilink import BatteryLevel, Command

ReportCallback = ctypes.CFUNCTYPE(None, POINTER(c_uint8), c_uint32, POINTER(c_uint8), c_uint32)


def load(path):
    library = ctypes.CDLL(path)
    library.UsbFinderC_FindHidDevicesByDefaultDeviceId.restype = POINTER(c_char_p)
    library.UsbFinderC_FindHidDevicesByDefaultDeviceId.argtypes = [
        c_char_p, c_char_p, POINTER(c_uint32)]
    library.UsbFinderC_Free.argtypes = [POINTER(c_char_p), c_int32]
    library.UsbFinderC_Free.restype = None
    library.UsbFinderC_GetVersion.argtypes = [c_char_p]
    library.UsbFinderC_GetVersion.restype = c_int32
    library.UsbFinderC_GetBatteryLevel.argtypes = [c_char_p, POINTER(BatteryLevel)]
    library.UsbFinderC_GetBatteryLevel.restype = c_bool
    library.UsbServerC_Start.argtypes = [c_char_p, c_char_p, ReportCallback]
    library.UsbServerC_Start.restype = None
    return library


def find(library):
    count = c_uint32()
    paths = library.UsbFinderC_FindHidDevicesByDefaultDeviceId(b"1234", b"abcd", count)
    found = [paths[i] for i in range(count.value)]
    library.UsbFinderC_Free(paths, count.value)
    return found


answers = queue.Queue()


# On the library's thread. Global, because Python must hold on to it as long as it may be called.
@ReportCallback
def on_report(frame, _frame_length, data, data_length):
    if frame[1] == Command.READ_MEMORY:
        answers.put(data[:data_length])


def read_report_rate(library, path):
    library.UsbServerC_Start(path, path, on_report)
    try:
        library.UsbServer_ReadReportRate()
        return answers.get(timeout=10)[0]
    finally:
        # Without a callback from here on: the thread ends a little later than Python might.
        library.UsbServerC_Start(path, path, ReportCallback())
        library.UsbServer_Exit()


def main():
    library = load(sys.argv[1] if len(sys.argv) > 1 else "libperilink.so")
    paths = find(library)
    if not paths:
        print("no such device")
        return 1
    path = paths[0]
    version = library.UsbFinderC_GetVersion(path)
    battery = BatteryLevel()
    if version == 0 or not library.UsbFinderC_GetBatteryLevel(path, battery):
        print("the device does not answer")
        return 1
    print(path.decode())
    print(f"firmware {version >> 8:x}.{version & 0xFF:02x}, battery {battery.level} %, "
          f"report rate {read_report_rate(library, path)}")
    return 0


sys.exit(main())
