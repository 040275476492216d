// Made from the public headers by scripts/make_csharp.py. What each export does, its failure
// values and threads are told there.
using System.Runtime.InteropServices;

namespace Perilink
{
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
