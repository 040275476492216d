// Made from the public headers by scripts/make_bindings.py. What each record, constant and export
// means, failure values and threads are told there.
using System;
using System.Runtime.InteropServices;

namespace Perilink
{
    // Keep a reference to a callback for as long as the library may call it. What its pointers point
    // to is the library's and lasts only as long as the call: copy it with Marshal.Copy.
    [UnmanagedFunctionPointer(CallingConvention.StdCall)]
    internal delegate void ServerReportCallback(
        IntPtr frame, uint frameLength, IntPtr data, uint dataLength);

    [UnmanagedFunctionPointer(CallingConvention.StdCall)]
    internal delegate void UsbChangedCallback(
        [MarshalAs(UnmanagedType.I1)] bool arrived);

    [UnmanagedFunctionPointer(CallingConvention.StdCall)]
    internal delegate int UpgradeCallback(
        IntPtr message, uint length);

    internal enum Command : byte
    {
        DeviceInfo = 0x01,
        DriverStatus = 0x02,
        OnLine = 0x03,
        BatteryLevel = 0x04,
        Pair = 0x05,
        PairStatus = 0x06,
        WriteMemory = 0x07,
        ReadMemory = 0x08,
        ClearSetting = 0x09,
        Event = 0x0A,
        VidPid = 0x0B,
        DescriptorString = 0x0C,
        UsbUpdateMode = 0x0D,
        ReadConfig = 0x0E,
        SetConfig = 0x0F,
        MtkMode = 0x11,
        Version = 0x12,
        SetDongleRgb = 0x14,
        GetDongleRgb = 0x15,
        SetLongRange = 0x16,
        GetLongRange = 0x17,
        SetRgbBarMode = 0x18,
        GetRgbBarMode = 0x19,
        DongleIdToMouse = 0x1A,
        SetSerialNumber = 0x1F,
        GetSerialNumber = 0x20,
        Rssi = 0x2B,
        SetIndicatorLed = 0x2C,
        GetIndicatorLed = 0x2D,
        SlaveVersion = 0xB3,
        WriteCidMid = 0xF0,
        ReadCidMid = 0xF1,
    }

    internal enum UpgradeKind : byte
    {
        Progress = 1,
        Result = 2,
        Notice = 3,
    }

    internal enum UpgradeResult : byte
    {
        Success = 1,
        Timeout = 2,
        NormalInterfaces = 4,
        BootInterfaces = 5,
        NoNormalDevice = 6,
        NoBootDevice = 7,
        ResetWriteFailed = 8,
        BootOpenFailed = 9,
        DeviceError = 10,
    }

    internal enum UpgradeTimeout : byte
    {
        ResetEcho = 1,
        Download = 3,
        Library = 4,
    }

    internal enum UpgradeNotice : byte
    {
        Download = 16,
        Boot = 17,
        End = 0x88,
    }

    internal enum BootCode : byte
    {
        Start = 0xB0,
        Data = 0xB1,
        More = 0xC0,
        Last = 0xC1,
        Error = 0x5A,
        ErrorMark = 0xA5,
        Status = 0x5B,
        StatusMark = 0xB5,
    }

    internal static class Constants
    {
        internal const int DefaultInterface = 1;
        internal const int DefaultCollection = 5;
        internal const int ReportId = 0x08;
        internal const int FrameDataSize = 10;
        internal const int LengthMask = 0x7F;
        internal const int KeyboardBit = 0x80;
        internal const int ChecksumStart = 0x55;
        internal const int EventBattery = 0x40;
        internal const int FlashImageSize = 6960;
        internal const int SettingsBlockSize = 233;
        internal const int Erased = 0xFF;
        internal const int ReportRateAddress = 0;
        internal const int CurrentDpiAddress = 4;
        internal const int DpiLedAddress = 76;
        internal const int DpiLedSize = 8;
        internal const int LedBarAddress = 160;
        internal const int LedBarSize = 9;
        internal const int DpiLevels = 8;
        internal const int DpiValuesAddress = 12;
        internal const int DpiValueSize = 4;
        internal const int DpiColorsAddress = 44;
        internal const int DpiColorSize = 4;
        internal const int DpiExtensionsAddress = 6912;
        internal const int DpiExtensionSize = 6;
        internal const int KeyFunctions = 16;
        internal const int KeyFunctionsAddress = 96;
        internal const int KeyFunctionSize = 4;
        internal const int Slots = 16;
        internal const int ShortcutAddress = 256;
        internal const int ShortcutSlotSize = 32;
        internal const int ShortcutEventsOffset = 1;
        internal const int ShortcutEventSize = 3;
        internal const int ShortcutMinEvents = 2;
        internal const int ShortcutMaxEvents = 6;
        internal const int MacroAddress = 768;
        internal const int MacroSlotSize = 384;
        internal const int MacroNameOffset = 1;
        internal const int MacroNameSize = 30;
        internal const int MacroCountOffset = 31;
        internal const int MacroEventsOffset = 32;
        internal const int MacroEventSize = 5;
        internal const int MacroMinEvents = 2;
        internal const int MacroMaxEvents = 70;
        internal const int KeyEventKinds = 0xC0;
        internal const int KeyEventKind0 = 0x80;
        internal const int KeyEventKind1 = 0x40;
        internal const int KeyEventKind2 = 0x00;
        internal const int KeyEventCode = 0x0F;
        internal const int Layers = 3;
        internal const int LayerSize = 512;
        internal const int UpgradeMessageClass = 7;
        internal const int UpgradeHeaderSize = 8192;
        internal const int UpgradeTextSize = 64;
        internal const int UpgradeCommandSize = 62;
        internal const int UpgradeEchoOffset = 5;
        internal const int UpgradeChecksumStart = 0x55555555;
        internal const int PacketSize = 64;
        internal const int PacketCodeOffset = 1;
        internal const int PacketPlaceOffset = 2;
        internal const int PacketLengthOffset = 3;
        internal const int PacketAddressOffset = 5;
        internal const int PacketPayloadOffset = 17;
        internal const int PacketPayloadSize = 32;
        internal const int QueueLimit = 65536;
        internal const int LogLimit = 100000;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct UpgradeFileCommand
    {
        public byte Length;
        public byte UseFeatureReport;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 62)]
        public byte[] Data;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct UpgradeFileHeader
    {
        public uint Checksum;
        public uint CheckedLength;
        public uint PayloadLength;
        public uint SlaveOffset;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 7)]
        public byte[] Reserved;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] FileId;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] ChipName;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] BootInputKey;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] BootOutputKey;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] NormalInputKey;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] NormalOutputKey;
        public UpgradeFileCommand ResetCommand;
        public UpgradeFileCommand StartCommand;
        public UpgradeFileCommand PacketTemplate;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] SensorName;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] ProductName;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct CommandFrame
    {
        public byte ReportId;
        public byte Command;
        public byte Status;
        public byte AddressHigh;
        public byte AddressLow;
        public byte Length;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 10)]
        public byte[] Data;
        public byte Checksum;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DeviceInfo
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)]
        public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct BatteryLevel
    {
        public byte Level;
        public byte Charging;
        public ushort Voltage;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DataRecord10
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 10)]
        public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct RgbBarMode
    {
        public byte Mode;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 5)]
        public byte[] Settings;
        public byte Enabled;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct IndicatorLed
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)]
        public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct CidMid
    {
        public byte Cid;
        public byte Mid;
        public byte Flag;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct QueueEntry
    {
        public byte LastChunk;
        public byte Pending;
        public byte Continuation;
        public CommandFrame Frame;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DeviceStatus
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 7)]
        public byte[] Flags;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct KeyEvent
    {
        public byte Kind;
        public byte Code;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 2)]
        public byte[] Keys;
        public uint Delay;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct ShortcutKey
    {
        public byte Count;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)]
        public byte[] Unused;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 6)]
        public KeyEvent[] Events;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct MacroKey
    {
        public byte NameLength;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 30)]
        public byte[] Name;
        public byte Count;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 70)]
        public KeyEvent[] Events;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DPIColor
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)]
        public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DPILevel
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)]
        public byte[] Value;
        public DPIColor Color;
        public ushort Extension1;
        public ushort Extension2;
        public byte ExtensionByte;
        public byte Unused;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DPILed
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 4)]
        public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct LedBar
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 7)]
        public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct KeyFun
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)]
        public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct ProtocolData
    {
        public byte ReportRate;
        public byte DpiLevelCount;
        public byte CurrentDpiLevel;
        public byte Setting3;
        public byte Setting4;
        public byte Setting5;
        public byte Setting6;
        public byte Switch7;
        public byte Setting8;
        public byte Switch9;
        public byte Switch10;
        public byte Switch11;
        public byte Switch12;
        public byte Setting13;
        public byte Setting14;
        public byte Setting15;
        public byte Setting16;
        public byte Setting17;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 2)]
        public byte[] Unused18;
        public uint Setting20;
        public uint Setting24;
        public uint Setting28;
        public uint Setting32;
        public byte Setting36;
        public byte Setting37;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)]
        public byte[] Setting38;
        public byte Setting41;
        public byte Setting42;
        public byte Setting43;
        public byte Setting44;
        public byte Setting45;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 2)]
        public byte[] Unused46;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 8)]
        public DPILevel[] DpiLevels;
        public DPILed DpiLed;
        public LedBar LedBar;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)]
        public KeyFun[] KeyFunctions;
        public byte Unused203;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)]
        public ShortcutKey[] Shortcuts;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)]
        public MacroKey[] Macros;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct UpgradeEvent
    {
        public byte MessageClass;
        public byte Kind;
        public byte Code;
        public byte Arg1;
        public byte Arg2;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)]
        public byte[] Reserved;
    }

    // The system's record; the library fills it.
    [StructLayout(LayoutKind.Sequential)]
    internal struct HiddAttributes
    {
        public uint Size;
        public ushort VendorId, ProductId, VersionNumber;
    }

    internal static class Native
    {
        private const string Library = "perilink.dll";

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetBatteryOptimizeEnable(
            byte enable);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetBatteryOptimizeLastBattery(
            int elapsedSeconds,
            byte level);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetBatteryOptimizeParam(
            int jump,
            uint stepIntervalMs,
            uint nearFullIntervalMs);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetBatteryOptimizeSection(
            uint[] voltages);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReStartBatteryOptimize();

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbFinder_EnumHidDeviceList();

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbFinder_FindHidDevices(
            [MarshalAs(UnmanagedType.LPStr)] string vendorId,
            [MarshalAs(UnmanagedType.LPStr)] string productId);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbFinder_FindHidDevicesByKey(
            [MarshalAs(UnmanagedType.LPStr)] string key);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbFinder_FindHidDevicesByDeviceId(
            [MarshalAs(UnmanagedType.LPStr)] string vendorId,
            [MarshalAs(UnmanagedType.LPStr)] string productId,
            int interfaceNumber,
            int collectionNumber);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbFinder_FindHidDevicesByDefaultDeviceId(
            [MarshalAs(UnmanagedType.LPStr)] string vendorId,
            [MarshalAs(UnmanagedType.LPStr)] string productId);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbFinder_GetDllVersion();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbFinder_GetUsbDeviceAttribute(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref HiddAttributes attributes);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_OpenDevice(
            [MarshalAs(UnmanagedType.LPStr)] string path);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbFinder_CloseDevice();

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_WriteDeviceData(
            byte[] data,
            byte length);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_UI1)]
        internal static extern byte[] CS_UsbFinder_ReadWriteDeviceData(
            byte[] request,
            byte length);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbFinder_SetMouseMode();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbFinder_SetKeyboardMode();

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetDeviceData(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            in CommandFrame request,
            ref CommandFrame reply);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbFinder_GetDeviceInfo(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            byte keyboard,
            ref DeviceInfo info);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetDeviceOnLine(
            [MarshalAs(UnmanagedType.LPStr)] string path);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_UI1)]
        internal static extern byte[] CS_UsbFinder_GetDeviceOnLineWithUsbAddress(
            [MarshalAs(UnmanagedType.LPStr)] string path);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetBatteryLevel(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref BatteryLevel battery);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern int CS_UsbFinder_GetCurrentDPI(
            [MarshalAs(UnmanagedType.LPStr)] string path);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern int CS_UsbFinder_GetVersion(
            [MarshalAs(UnmanagedType.LPStr)] string path);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetSlaveVersion(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref int version);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern byte CS_UsbFinder_Set4KDongleRGB(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            in DataRecord10 value);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_Get4KDongleRGBValue(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref DataRecord10 value);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_SetLongRangeMode(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            byte mode);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetLongRangeMode(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref byte mode);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_SetDongleRGBBarMode(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            in RgbBarMode mode);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetDongleRGBBarMode(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref RgbBarMode mode);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_SetDongleIDToMouse(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            in DataRecord10 id);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_SetMouseSerialNumber(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            in DataRecord10 number);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetMouseSerialNumber(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref DataRecord10 number);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetRSSI(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref byte rssi);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_SetDongleIndicatorLed(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            in IndicatorLed led);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetDongleIndicatorLed(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            ref IndicatorLed led);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_ReadCidMid(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            byte unused,
            ref CidMid ids);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_WriteCidMid(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            byte a,
            byte b,
            byte c,
            ref CidMid ids);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_SetData(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            byte command,
            byte[] data,
            byte length);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_GetData(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            byte command,
            ref DataRecord10 result);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbFinder_SetCommand(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            byte command,
            byte[] data,
            byte length,
            int retries,
            int timeoutMs,
            ref DataRecord10 result);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_ProtocolDataParser(
            byte[] image,
            ref ProtocolData record);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_SetDllProtocolData(
            in ProtocolData record);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_ProtocolDataUpdate(
            ref ProtocolData record);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_ProtocolDataCompareUpdate(
            ref ProtocolData record,
            ref ProtocolData previous);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_BufferToDPILed(
            byte[] source,
            ref DPILed led);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_BufferToLedBar(
            byte[] source,
            ref LedBar bar);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_Start(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            [MarshalAs(UnmanagedType.LPStr)] string unused,
            ServerReportCallback callback);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_KeyboardStart(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            [MarshalAs(UnmanagedType.LPStr)] string unused,
            ServerReportCallback callback);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_Exit();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_Thread();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetThreadSleepTime(
            uint milliseconds);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbServer_GetCurrentInputDevice();

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbServer_GetCurrentOutputDevice();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadEncryption();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadCidMid();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadOnLine();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadBatteryLevel();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadDonglePairStatus();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadConfig();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadVersion();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_GetSlaveVersion();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_Get4KDongleRGBValue();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_GetLongRangeMode();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_GetDongleRGBBarMode();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_GetMouseSerialNumber();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_GetRSSI();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_GetDongleIndicatorLed();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_GetData(
            byte command);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetPCDriverStatus(
            byte status);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_EnterDonglePairWithCidMid(
            byte cid,
            byte mid);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_EnterDonglePair();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_EnterDonglePairOnlyCid(
            byte cid);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetClearSetting();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetVidPid(
            uint vid,
            uint pid);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetDeviceDescriptorString(
            [MarshalAs(UnmanagedType.LPStr)] string text);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_EnterUsbUpdateMode();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetCurrentConfig(
            byte config);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_EnterMTKMode();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_Set4KDongleRGB(
            in DataRecord10 record);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetLongRangeMode(
            byte mode);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetDongleRGBBarMode(
            in RgbBarMode record);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetDongleIDToMouse(
            in DataRecord10 record);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetMouseSerialNumber(
            in DataRecord10 record);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetDongleIndicatorLed(
            in IndicatorLed record);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_SetData(
            byte command,
            byte[] data,
            byte length);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadFalshData(
            uint address,
            int length);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadAllFlashData();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadReportRate();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadCurrentDPI();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadDPILed();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbServer_ReadLedBar();

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_UI1)]
        internal static extern byte[] CS_UsbKeyboard_LoadLayerKeys(
            [MarshalAs(UnmanagedType.LPStr)] string path,
            byte layer);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_GetDeviceInfo(
            byte[] data,
            ref DeviceInfo info);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_isDeviceOnLine(
            byte[] data);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_GetDeviceBatteryStatus(
            byte[] data,
            ref BatteryLevel battery);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_GetDeviceStatusChanged(
            byte[] data,
            ref DeviceStatus status);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern uint CS_GetDeviceVersion(
            byte[] data);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool CS_UsbUpgrade_Start(
            byte[] file,
            UpgradeCallback callback,
            uint timeout);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_UI1)]
        internal static extern byte[] CS_UsbUpgrade_FileSplit(
            byte[] file,
            uint fileLength,
            int which);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbUpgrade_FindBootDevices(
            byte[] file);

        [DllImport(Library, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_BSTR)]
        internal static extern string[] CS_UsbUpgrade_GetLogs();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_UsbUpgrade_EnableSaveLogFile(
            byte enable);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_StartUsbChanged(
            UsbChangedCallback callback,
            int delayMs);

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_StopUsbChanged();

        [DllImport(Library, ExactSpelling = true)]
        internal static extern void CS_SetUsbChangedCallBack(
            UsbChangedCallback callback,
            int delayMs);
    }
}
