"""Records, constants, callbacks and the narrow exports of perilink, made from the public headers by
scripts/make_bindings.py. What each means is told there."""
import ctypes
import enum
from typing import Any

CALLBACK = getattr(ctypes, "WINFUNCTYPE", ctypes.CFUNCTYPE)

VERSION = (0, 1, 0)
DEFAULT_INTERFACE = 1
DEFAULT_COLLECTION = 5
REPORT_ID = 0x08
FRAME_DATA_SIZE = 10
LENGTH_MASK = 0x7F
KEYBOARD_BIT = 0x80
CHECKSUM_START = 0x55
EVENT_BATTERY = 0x40
FLASH_IMAGE_SIZE = 6960
SETTINGS_BLOCK_SIZE = 233
ERASED = 0xFF
REPORT_RATE_ADDRESS = 0
CURRENT_DPI_ADDRESS = 4
DPI_LED_ADDRESS = 76
DPI_LED_SIZE = 8
LED_BAR_ADDRESS = 160
LED_BAR_SIZE = 9
DPI_LEVELS = 8
DPI_VALUES_ADDRESS = 12
DPI_VALUE_SIZE = 4
DPI_COLORS_ADDRESS = 44
DPI_COLOR_SIZE = 4
DPI_EXTENSIONS_ADDRESS = 6912
DPI_EXTENSION_SIZE = 6
KEY_FUNCTIONS = 16
KEY_FUNCTIONS_ADDRESS = 96
KEY_FUNCTION_SIZE = 4
SLOTS = 16
SHORTCUT_ADDRESS = 256
SHORTCUT_SLOT_SIZE = 32
SHORTCUT_EVENTS_OFFSET = 1
SHORTCUT_EVENT_SIZE = 3
SHORTCUT_MIN_EVENTS = 2
SHORTCUT_MAX_EVENTS = 6
MACRO_ADDRESS = 768
MACRO_SLOT_SIZE = 384
MACRO_NAME_OFFSET = 1
MACRO_NAME_SIZE = 30
MACRO_COUNT_OFFSET = 31
MACRO_EVENTS_OFFSET = 32
MACRO_EVENT_SIZE = 5
MACRO_MIN_EVENTS = 2
MACRO_MAX_EVENTS = 70
KEY_EVENT_KINDS = 0xC0
KEY_EVENT_KIND_0 = 0x80
KEY_EVENT_KIND_1 = 0x40
KEY_EVENT_KIND_2 = 0x00
KEY_EVENT_CODE = 0x0F
LAYERS = 3
LAYER_SIZE = 512
UPGRADE_MESSAGE_CLASS = 7
UPGRADE_HEADER_SIZE = 8192
UPGRADE_TEXT_SIZE = 64
UPGRADE_COMMAND_SIZE = 62
UPGRADE_ECHO_OFFSET = 5
UPGRADE_CHECKSUM_START = 0x55555555
PACKET_SIZE = 64
PACKET_CODE_OFFSET = 1
PACKET_PLACE_OFFSET = 2
PACKET_LENGTH_OFFSET = 3
PACKET_ADDRESS_OFFSET = 5
PACKET_PAYLOAD_OFFSET = 17
PACKET_PAYLOAD_SIZE = 32
QUEUE_LIMIT = 65536
LOG_LIMIT = 100000


class Command(enum.IntEnum):
    DEVICE_INFO = 0x01
    DRIVER_STATUS = 0x02
    ON_LINE = 0x03
    BATTERY_LEVEL = 0x04
    PAIR = 0x05
    PAIR_STATUS = 0x06
    WRITE_MEMORY = 0x07
    READ_MEMORY = 0x08
    CLEAR_SETTING = 0x09
    EVENT = 0x0A
    VID_PID = 0x0B
    DESCRIPTOR_STRING = 0x0C
    USB_UPDATE_MODE = 0x0D
    READ_CONFIG = 0x0E
    SET_CONFIG = 0x0F
    MTK_MODE = 0x11
    VERSION = 0x12
    SET_DONGLE_RGB = 0x14
    GET_DONGLE_RGB = 0x15
    SET_LONG_RANGE = 0x16
    GET_LONG_RANGE = 0x17
    SET_RGB_BAR_MODE = 0x18
    GET_RGB_BAR_MODE = 0x19
    DONGLE_ID_TO_MOUSE = 0x1A
    SET_SERIAL_NUMBER = 0x1F
    GET_SERIAL_NUMBER = 0x20
    RSSI = 0x2B
    SET_INDICATOR_LED = 0x2C
    GET_INDICATOR_LED = 0x2D
    SLAVE_VERSION = 0xB3
    WRITE_CID_MID = 0xF0
    READ_CID_MID = 0xF1


class UpgradeKind(enum.IntEnum):
    PROGRESS = 1
    RESULT = 2
    NOTICE = 3


class UpgradeResult(enum.IntEnum):
    SUCCESS = 1
    TIMEOUT = 2
    NORMAL_INTERFACES = 4
    BOOT_INTERFACES = 5
    NO_NORMAL_DEVICE = 6
    NO_BOOT_DEVICE = 7
    RESET_WRITE_FAILED = 8
    BOOT_OPEN_FAILED = 9
    DEVICE_ERROR = 10


class UpgradeTimeout(enum.IntEnum):
    RESET_ECHO = 1
    DOWNLOAD = 3
    LIBRARY = 4


class UpgradeNotice(enum.IntEnum):
    DOWNLOAD = 16
    BOOT = 17
    END = 0x88


class BootCode(enum.IntEnum):
    START = 0xB0
    DATA = 0xB1
    MORE = 0xC0
    LAST = 0xC1
    ERROR = 0x5A
    ERROR_MARK = 0xA5
    STATUS = 0x5B
    STATUS_MARK = 0xB5


class UpgradeFileCommand(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("length", ctypes.c_uint8),
        ("use_feature_report", ctypes.c_uint8),
        ("data", ctypes.c_uint8 * 62),
    ]


class UpgradeFileHeader(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("checksum", ctypes.c_uint32),
        ("checked_length", ctypes.c_uint32),
        ("payload_length", ctypes.c_uint32),
        ("slave_offset", ctypes.c_uint32),
        ("reserved", ctypes.c_uint8 * 7),
        ("file_id", ctypes.c_uint8 * 64),
        ("chip_name", ctypes.c_uint8 * 64),
        ("boot_input_key", ctypes.c_uint8 * 64),
        ("boot_output_key", ctypes.c_uint8 * 64),
        ("normal_input_key", ctypes.c_uint8 * 64),
        ("normal_output_key", ctypes.c_uint8 * 64),
        ("reset_command", UpgradeFileCommand),
        ("start_command", UpgradeFileCommand),
        ("packet_template", UpgradeFileCommand),
        ("sensor_name", ctypes.c_uint8 * 64),
        ("product_name", ctypes.c_uint8 * 64),
    ]


class CommandFrame(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("report_id", ctypes.c_uint8),
        ("command", ctypes.c_uint8),
        ("status", ctypes.c_uint8),
        ("address_high", ctypes.c_uint8),
        ("address_low", ctypes.c_uint8),
        ("length", ctypes.c_uint8),
        ("data", ctypes.c_uint8 * 10),
        ("checksum", ctypes.c_uint8),
    ]


class DeviceInfo(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("bytes", ctypes.c_uint8 * 3),
    ]


class BatteryLevel(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("level", ctypes.c_uint8),
        ("charging", ctypes.c_uint8),
        ("voltage", ctypes.c_uint16),
    ]


class DataRecord10(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("bytes", ctypes.c_uint8 * 10),
    ]


class RgbBarMode(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("mode", ctypes.c_uint8),
        ("settings", ctypes.c_uint8 * 5),
        ("enabled", ctypes.c_uint8),
    ]


class IndicatorLed(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("bytes", ctypes.c_uint8 * 3),
    ]


class CidMid(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("cid", ctypes.c_uint8),
        ("mid", ctypes.c_uint8),
        ("flag", ctypes.c_uint8),
    ]


class QueueEntry(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("last_chunk", ctypes.c_uint8),
        ("pending", ctypes.c_uint8),
        ("continuation", ctypes.c_uint8),
        ("frame", CommandFrame),
    ]


class DeviceStatus(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("flags", ctypes.c_uint8 * 7),
    ]


class KeyEvent(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("kind", ctypes.c_uint8),
        ("code", ctypes.c_uint8),
        ("keys", ctypes.c_uint8 * 2),
        ("delay", ctypes.c_uint32),
    ]


class ShortcutKey(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("count", ctypes.c_uint8),
        ("unused", ctypes.c_uint8 * 3),
        ("events", KeyEvent * 6),
    ]


class MacroKey(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("name_length", ctypes.c_uint8),
        ("name", ctypes.c_uint8 * 30),
        ("count", ctypes.c_uint8),
        ("events", KeyEvent * 70),
    ]


class DPIColor(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("bytes", ctypes.c_uint8 * 3),
    ]


class DPILevel(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("value", ctypes.c_uint8 * 3),
        ("color", DPIColor),
        ("extension1", ctypes.c_uint16),
        ("extension2", ctypes.c_uint16),
        ("extension_byte", ctypes.c_uint8),
        ("unused", ctypes.c_uint8),
    ]


class DPILed(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("bytes", ctypes.c_uint8 * 4),
    ]


class LedBar(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("bytes", ctypes.c_uint8 * 7),
    ]


class KeyFun(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("bytes", ctypes.c_uint8 * 3),
    ]


class ProtocolData(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("report_rate", ctypes.c_uint8),
        ("dpi_level_count", ctypes.c_uint8),
        ("current_dpi_level", ctypes.c_uint8),
        ("setting3", ctypes.c_uint8),
        ("setting4", ctypes.c_uint8),
        ("setting5", ctypes.c_uint8),
        ("setting6", ctypes.c_uint8),
        ("switch7", ctypes.c_uint8),
        ("setting8", ctypes.c_uint8),
        ("switch9", ctypes.c_uint8),
        ("switch10", ctypes.c_uint8),
        ("switch11", ctypes.c_uint8),
        ("switch12", ctypes.c_uint8),
        ("setting13", ctypes.c_uint8),
        ("setting14", ctypes.c_uint8),
        ("setting15", ctypes.c_uint8),
        ("setting16", ctypes.c_uint8),
        ("setting17", ctypes.c_uint8),
        ("unused18", ctypes.c_uint8 * 2),
        ("setting20", ctypes.c_uint32),
        ("setting24", ctypes.c_uint32),
        ("setting28", ctypes.c_uint32),
        ("setting32", ctypes.c_uint32),
        ("setting36", ctypes.c_uint8),
        ("setting37", ctypes.c_uint8),
        ("setting38", ctypes.c_uint8 * 3),
        ("setting41", ctypes.c_uint8),
        ("setting42", ctypes.c_uint8),
        ("setting43", ctypes.c_uint8),
        ("setting44", ctypes.c_uint8),
        ("setting45", ctypes.c_uint8),
        ("unused46", ctypes.c_uint8 * 2),
        ("dpi_levels", DPILevel * 8),
        ("dpi_led", DPILed),
        ("led_bar", LedBar),
        ("key_functions", KeyFun * 16),
        ("unused203", ctypes.c_uint8),
        ("shortcuts", ShortcutKey * 16),
        ("macros", MacroKey * 16),
    ]


class UpgradeEvent(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [
        ("message_class", ctypes.c_uint8),
        ("kind", ctypes.c_uint8),
        ("code", ctypes.c_uint8),
        ("arg1", ctypes.c_uint8),
        ("arg2", ctypes.c_uint8),
        ("reserved", ctypes.c_uint8 * 3),
    ]


ServerReportCallback = CALLBACK(None, ctypes.POINTER(ctypes.c_uint8), ctypes.c_uint32, ctypes.POINTER(ctypes.c_uint8), ctypes.c_uint32)
UsbChangedCallback = CALLBACK(None, ctypes.c_bool)
UpgradeCallback = CALLBACK(ctypes.c_int, ctypes.POINTER(ctypes.c_uint8), ctypes.c_uint32)


# Of every function: its result, its arguments.
FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "UsbServer_SetBatteryOptimizeEnable": (None, [ctypes.c_uint8]),
    "UsbServer_SetBatteryOptimizeLastBattery": (None, [ctypes.c_int32, ctypes.c_uint8]),
    "UsbServer_SetBatteryOptimizeParam": (None, [ctypes.c_uint8, ctypes.c_uint32, ctypes.c_uint32]),
    "UsbServer_SetBatteryOptimizeSection": (None, [ctypes.POINTER(ctypes.c_uint32)]),
    "UsbFinderC_EnumHidDeviceList": (
        ctypes.POINTER(ctypes.c_char_p),
        [
            ctypes.POINTER(ctypes.c_uint32),
        ],
    ),
    "UsbFinderC_FindHidDevices": (
        ctypes.POINTER(ctypes.c_char_p),
        [
            ctypes.c_char_p,
            ctypes.c_char_p,
            ctypes.POINTER(ctypes.c_uint32),
        ],
    ),
    "UsbFinderC_FindHidDevicesByKey": (
        ctypes.POINTER(ctypes.c_char_p),
        [
            ctypes.c_char_p,
            ctypes.POINTER(ctypes.c_uint32),
        ],
    ),
    "UsbFinderC_FindHidDevicesByDeviceId": (
        ctypes.POINTER(ctypes.c_char_p),
        [
            ctypes.c_char_p,
            ctypes.c_char_p,
            ctypes.c_int32,
            ctypes.c_int32,
            ctypes.POINTER(ctypes.c_uint32),
        ],
    ),
    "UsbFinderC_FindHidDevicesByDefaultDeviceId": (
        ctypes.POINTER(ctypes.c_char_p),
        [
            ctypes.c_char_p,
            ctypes.c_char_p,
            ctypes.POINTER(ctypes.c_uint32),
        ],
    ),
    "UsbFinderC_Free": (None, [ctypes.POINTER(ctypes.c_char_p), ctypes.c_int32]),
    "UsbFinderC_GetUsbDeviceAttribute": (None, [ctypes.c_char_p, ctypes.c_void_p]),
    "UsbFinderC_OpenDevice": (ctypes.c_bool, [ctypes.c_char_p]),
    "UsbFinderC_CloseDevice": (None, []),
    "UsbFinder_WriteDeviceData": (ctypes.c_bool, [ctypes.POINTER(ctypes.c_uint8), ctypes.c_uint8]),
    "UsbFinderC_WriteDeviceData": (ctypes.c_bool, [ctypes.POINTER(ctypes.c_uint8), ctypes.c_uint8]),
    "UsbFinderC_ReadWriteDeviceData": (
        ctypes.c_bool,
        [
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.c_uint8,
        ],
    ),
    "UsbFinder_SetMouseMode": (None, []),
    "UsbFinderC_SetMouseMode": (None, []),
    "UsbFinder_SetKeyboardMode": (None, []),
    "UsbFinderC_SetKeyboardMode": (None, []),
    "UsbFinderC_GetDeviceData": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(CommandFrame),
            ctypes.POINTER(CommandFrame),
        ],
    ),
    "UsbFinderC_GetDeviceInfo": (DeviceInfo, [ctypes.c_char_p, ctypes.c_uint8]),
    "UsbFinderC_GetDeviceOnLine": (ctypes.c_bool, [ctypes.c_char_p]),
    "UsbFinderC_GetDeviceOnLineWithUsbAddress": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(CommandFrame),
        ],
    ),
    "UsbFinderC_GetBatteryLevel": (ctypes.c_bool, [ctypes.c_char_p, ctypes.POINTER(BatteryLevel)]),
    "UsbFinderC_GetCurrentDPI": (ctypes.c_int32, [ctypes.c_char_p]),
    "UsbFinderC_GetVersion": (ctypes.c_int32, [ctypes.c_char_p]),
    "UsbFinderC_GetSlaveVersion": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(ctypes.c_int32),
        ],
    ),
    "UsbFinderC_Set4KDongleRGB": (ctypes.c_uint8, [ctypes.c_char_p, ctypes.POINTER(DataRecord10)]),
    "UsbFinderC_Get4KDongleRGBValue": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(DataRecord10),
        ],
    ),
    "UsbFinderC_SetLongRangeMode": (ctypes.c_bool, [ctypes.c_char_p, ctypes.c_uint8]),
    "UsbFinderC_GetLongRangeMode": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(ctypes.c_uint8),
        ],
    ),
    "UsbFinderC_SetDongleRGBBarMode": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(RgbBarMode),
        ],
    ),
    "UsbFinderC_GetDongleRGBBarMode": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(RgbBarMode),
        ],
    ),
    "UsbFinderC_SetDongleIDToMouse": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(DataRecord10),
        ],
    ),
    "UsbFinderC_SetMouseSerialNumber": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(DataRecord10),
        ],
    ),
    "UsbFinderC_GetMouseSerialNumber": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(DataRecord10),
        ],
    ),
    "UsbFinderC_SetDongleIndicatorLed": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(IndicatorLed),
        ],
    ),
    "UsbFinderC_GetDongleIndicatorLed": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.POINTER(IndicatorLed),
        ],
    ),
    "UsbFinderC_ReadCidMid": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.c_uint8,
            ctypes.POINTER(CidMid),
        ],
    ),
    "UsbFinderC_WriteCidMid": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.c_uint8,
            ctypes.c_uint8,
            ctypes.c_uint8,
            ctypes.POINTER(CidMid),
        ],
    ),
    "UsbFinderC_SetData": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.c_uint8,
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.c_uint8,
        ],
    ),
    "UsbFinderC_GetData": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.c_uint8,
            ctypes.POINTER(DataRecord10),
        ],
    ),
    "UsbFinderC_SetCommand": (
        ctypes.c_bool,
        [
            ctypes.c_char_p,
            ctypes.c_uint8,
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.c_uint8,
            ctypes.c_int32,
            ctypes.c_int32,
            ctypes.POINTER(DataRecord10),
        ],
    ),
    "MouseConfigParser": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(ProtocolData)]),
    "ProtocolDataParser": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(ProtocolData)]),
    "SetDllProtocolData": (None, [ctypes.POINTER(ProtocolData)]),
    "ProtocolDataUpdate": (None, [ctypes.POINTER(ProtocolData)]),
    "BufferToDPIColor": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(DPILevel)]),
    "BufferToDPILed": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(DPILed)]),
    "BufferToLedBar": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(LedBar)]),
    "BufferToKeyFunMap": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(KeyFun)]),
    "ShortcutKeyToBuffer": (None, [ctypes.POINTER(ShortcutKey), ctypes.POINTER(ctypes.c_uint8)]),
    "BufferToShortcutKey": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(ShortcutKey)]),
    "MacroKeyToBuffer": (None, [ctypes.POINTER(MacroKey), ctypes.POINTER(ctypes.c_uint8)]),
    "BufferToMacroKey": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(MacroKey)]),
    "UsbServerC_Start": (None, [ctypes.c_char_p, ctypes.c_char_p, ServerReportCallback]),
    "UsbServerC_KeyboardStart": (None, [ctypes.c_char_p, ctypes.c_char_p, ServerReportCallback]),
    "UsbServer_Exit": (None, []),
    "UsbReaderWriterServer": (None, []),
    "UsbServer_InitWriteCommand": (None, [ctypes.POINTER(QueueEntry)]),
    "UsbServer_WriteCommand": (None, [ctypes.POINTER(QueueEntry)]),
    "UsbServer_ReadEncryption": (None, []),
    "UsbServer_ReadCidMid": (None, []),
    "UsbServer_ReadOnLine": (None, []),
    "UsbServer_ReadBatteryLevel": (None, []),
    "UsbServer_ReadDonglePairStatus": (None, []),
    "UsbServer_ReadConfig": (None, []),
    "UsbServer_ReadVersion": (None, []),
    "UsbServer_GetSlaveVersion": (None, []),
    "UsbServer_Get4KDongleRGBValue": (None, []),
    "UsbServer_GetLongRangeMode": (None, []),
    "UsbServer_GetMouseSerialNumber": (None, []),
    "UsbServer_GetRSSI": (None, []),
    "UsbServer_GetDongleIndicatorLed": (None, []),
    "UsbServer_GetData": (None, [ctypes.c_uint8]),
    "UsbServer_SetPCDriverStatus": (None, [ctypes.c_uint8]),
    "UsbServer_EnterDonglePairWithCidMid": (None, [ctypes.c_uint8, ctypes.c_uint8]),
    "UsbServer_EnterDonglePair": (None, []),
    "UsbServer_EnterDonglePairOnlyCid": (None, [ctypes.c_uint8]),
    "UsbServer_SetClearSetting": (None, []),
    "UsbServer_SetVidPid": (None, [ctypes.c_uint32, ctypes.c_uint32]),
    "UsbServerC_SetDeviceDescriptorString": (None, [ctypes.c_char_p]),
    "UsbServer_EnterUsbUpdateMode": (None, []),
    "UsbServer_SetCurrentConfig": (None, [ctypes.c_uint8]),
    "UsbServer_EnterMTKMode": (None, []),
    "UsbServer_Set4KDongleRGB": (None, [ctypes.POINTER(DataRecord10)]),
    "UsbServer_SetLongRangeMode": (None, [ctypes.c_uint8]),
    "UsbServer_SetDongleIDToMouse": (None, [ctypes.POINTER(DataRecord10)]),
    "UsbServer_SetMouseSerialNumber": (None, [ctypes.POINTER(DataRecord10)]),
    "UsbServer_SetDongleIndicatorLed": (None, [ctypes.POINTER(IndicatorLed)]),
    "UsbServer_SetData": (None, [ctypes.c_uint8, ctypes.POINTER(ctypes.c_uint8), ctypes.c_uint8]),
    "UsbServer_ReadFalshData": (None, [ctypes.c_uint32, ctypes.c_int32, ctypes.c_uint8]),
    "UsbServer_ReadAllFlashData": (None, []),
    "UsbServer_ReadReportRate": (None, []),
    "UsbServer_ReadCurrentDPI": (None, []),
    "UsbServer_ReadDPILed": (None, []),
    "UsbServer_ReadLedBar": (None, []),
    "GetDeviceInfo": (None, [ctypes.POINTER(ctypes.c_uint8), ctypes.POINTER(DeviceInfo)]),
    "isDeviceOnLine": (ctypes.c_bool, [ctypes.POINTER(ctypes.c_uint8)]),
    "GetDeviceBatteryStatus": (
        None,
        [
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.POINTER(BatteryLevel),
        ],
    ),
    "GetDeviceStatusChanged": (
        None,
        [
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.POINTER(DeviceStatus),
        ],
    ),
    "GetDeviceVersion": (ctypes.c_uint32, [ctypes.POINTER(ctypes.c_uint8)]),
    "UsbUpgrade_Start": (
        ctypes.c_bool,
        [
            ctypes.POINTER(ctypes.c_uint8),
            UpgradeCallback,
            ctypes.c_uint32,
        ],
    ),
    "UsbUpgrade_FileSplit": (
        ctypes.c_bool,
        [
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.c_uint32,
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.POINTER(ctypes.c_uint32),
            ctypes.c_int32,
        ],
    ),
    "UsbUpgradeC_FindBootDevices": (
        ctypes.POINTER(ctypes.c_char_p),
        [
            ctypes.POINTER(ctypes.c_uint8),
            ctypes.POINTER(ctypes.c_uint32),
        ],
    ),
    "UsbUpgradeC_GetLogs": (ctypes.POINTER(ctypes.c_char_p), [ctypes.POINTER(ctypes.c_uint32)]),
    "UsbUpgrade_EnableSaveLogFile": (None, [ctypes.c_uint8]),
    "StartUsbChanged": (None, [UsbChangedCallback, ctypes.c_int32]),
    "StopUsbChanged": (None, []),
    "SetUsbChangedCallBack": (None, [UsbChangedCallback, ctypes.c_int32]),
}
