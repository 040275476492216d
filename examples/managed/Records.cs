// The records and callbacks of records.h. Members that the library only carries have the names that
// they have there.
using System;
using System.Runtime.InteropServices;

namespace Perilink
{
    // Keep a reference to the delegate for as long as the library may call it. The data are the
    // library's and last only as long as the call: copy them with Marshal.Copy.
    [UnmanagedFunctionPointer(CallingConvention.StdCall)]
    internal delegate void ServerReportCallback(IntPtr frame, uint frameLength, IntPtr data,
        uint dataLength);

    [UnmanagedFunctionPointer(CallingConvention.StdCall)]
    internal delegate void UsbChangedCallback([MarshalAs(UnmanagedType.I1)] bool arrived);

    [UnmanagedFunctionPointer(CallingConvention.StdCall)]
    internal delegate int UpgradeCallback(IntPtr message, uint length);

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct CommandFrame
    {
        public byte ReportId, Command, Status, AddressHigh, AddressLow, Length;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 10)] public byte[] Data;
        public byte Checksum;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DeviceInfo
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)] public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct BatteryLevel
    {
        public byte Level, Charging;
        public ushort Voltage;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DataRecord10
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 10)] public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct RgbBarMode
    {
        public byte Mode;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 5)] public byte[] Settings;
        public byte Enabled;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct IndicatorLed
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)] public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct CidMid
    {
        public byte Cid, Mid, Flag;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DeviceStatus
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 7)] public byte[] Flags;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct UpgradeEvent
    {
        public byte MessageClass, Kind, Code, Arg1, Arg2;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)] public byte[] Reserved;
    }

    // The system's record; the library fills it.
    [StructLayout(LayoutKind.Sequential)]
    internal struct HiddAttributes
    {
        public uint Size;
        public ushort VendorId, ProductId, VersionNumber;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct KeyEvent
    {
        public byte Kind, Code;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 2)] public byte[] Keys;
        public uint Delay;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct ShortcutKey
    {
        public byte Count;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)] public byte[] Unused;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 6)] public KeyEvent[] Events;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct MacroKey
    {
        public byte NameLength;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 30)] public byte[] Name;
        public byte Count;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 70)] public KeyEvent[] Events;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DPILevel
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)] public byte[] Value;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)] public byte[] Color;
        public ushort Extension1, Extension2;
        public byte ExtensionByte, Unused;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct DPILed
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 4)] public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct LedBar
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 7)] public byte[] Bytes;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct KeyFun
    {
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)] public byte[] Bytes;
    }

    // 10508 bytes.
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    internal struct ProtocolData
    {
        public byte ReportRate, DpiLevelCount, CurrentDpiLevel, Setting3, Setting4, Setting5, Setting6;
        public byte Switch7, Setting8, Switch9, Switch10, Switch11, Switch12;
        public byte Setting13, Setting14, Setting15, Setting16, Setting17;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 2)] public byte[] Unused18;
        public uint Setting20, Setting24, Setting28, Setting32;
        public byte Setting36, Setting37;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 3)] public byte[] Setting38;
        public byte Setting41, Setting42, Setting43, Setting44, Setting45;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 2)] public byte[] Unused46;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 8)] public DPILevel[] DpiLevels;
        public DPILed DpiLed;
        public LedBar LedBar;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)] public KeyFun[] KeyFunctions;
        public byte Unused203;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)] public ShortcutKey[] Shortcuts;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)] public MacroKey[] Macros;
    }
}
