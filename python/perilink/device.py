"""Finding devices, and asking one directly: on the calling thread, with the answer at once."""
import ctypes
import dataclasses
from typing import Optional

from . import native
from .binding import NoAnswer, encode, exports, take_list


@dataclasses.dataclass(frozen=True)
class Battery:
    """A reading of the battery."""
    percent: int
    charging: bool
    millivolts: Optional[int]  # None: the device does not tell


@dataclasses.dataclass(frozen=True)
class Info:
    """What a device tells about itself."""
    firmware: str  # "1.02"
    on_line: bool  # the wireless device behind the receiver
    identification: bytes  # three bytes
    serial_number: Optional[bytes]  # ten bytes; None: the device does not tell


@dataclasses.dataclass(frozen=True)
class Device:
    """A device, by the path of the interface that takes its commands. Nothing is kept open."""
    path: str

    def firmware(self) -> str:
        """The firmware's version: "1.02". NoAnswer when the device does not answer."""
        version = exports().UsbFinderC_GetVersion(encode(self.path))
        if version == 0:
            raise NoAnswer(f"{self.path} does not answer")
        return f"{version >> 8:x}.{version & 0xFF:02x}"

    def info(self) -> Info:
        """What the device tells about itself. NoAnswer when it does not answer."""
        path = encode(self.path)
        serial = native.DataRecord10()
        known = exports().UsbFinderC_GetMouseSerialNumber(path, serial)
        return Info(self.firmware(), exports().UsbFinderC_GetDeviceOnLine(path),
                    bytes(exports().UsbFinderC_GetDeviceInfo(path, 0)),
                    bytes(serial) if known else None)

    def battery(self) -> Battery:
        """The battery as the device reports it, not smoothed. NoAnswer when it does not answer."""
        level = native.BatteryLevel()
        if not exports().UsbFinderC_GetBatteryLevel(encode(self.path), level):
            raise NoAnswer(f"{self.path} does not tell its battery")
        return Battery(level.level, level.charging != 0, level.voltage or None)


def find(vendor: str, product: str = "") -> list[Device]:
    """The devices of a vendor that are plugged in, or only those of one product. Ids are four
    hexadecimal digits: find("1234", "abcd")."""
    count = ctypes.c_uint32()
    found = exports().UsbFinderC_FindHidDevicesByDefaultDeviceId(encode(vendor), encode(product),
                                                                 count)
    return [Device(path) for path in take_list(found, count)]


def interfaces(key: str = "") -> list[str]:
    """The paths of all HID interfaces, or of those whose path contains the key."""
    count = ctypes.c_uint32()
    if key:
        return take_list(exports().UsbFinderC_FindHidDevicesByKey(encode(key), count), count)
    return take_list(exports().UsbFinderC_EnumHidDeviceList(count), count)
