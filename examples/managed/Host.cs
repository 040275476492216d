// A managed host: finds the device, asks for its firmware, and reads its configuration through the
// background server. Built with the file beside it, as a 64-bit program beside perilink.dll.
using System;
using System.Runtime.InteropServices;
using System.Threading;

namespace Perilink
{
    internal static class Host
    {
        private static readonly ManualResetEventSlim Arrived = new ManualResetEventSlim();
        private static byte[] image;

        // A field: the library may call it until the process ends.
        private static readonly ServerReportCallback Callback = OnReport;

        // On the library's thread.
        private static void OnReport(IntPtr frame, uint frameLength, IntPtr data, uint dataLength)
        {
            var command = (Command)Marshal.ReadByte(frame, 1);
            if (command != Command.ReadMemory || dataLength != Constants.FlashImageSize) return;
            image = new byte[dataLength];
            Marshal.Copy(data, image, 0, image.Length);
            Arrived.Set();
        }

        private static int Main()
        {
            string[] paths = Native.CS_UsbFinder_FindHidDevicesByDefaultDeviceId("1234", "abcd");
            if (paths == null || paths.Length == 0)
            {
                Console.WriteLine("no such device");
                return 1;
            }
            Console.WriteLine($"{paths[0]} has version {Native.CS_UsbFinder_GetVersion(paths[0]):x4}");

            Native.CS_UsbServer_Start(paths[0], "", Callback);
            Native.CS_UsbServer_ReadAllFlashData();
            bool answered = Arrived.Wait(TimeSpan.FromSeconds(20));
            Native.CS_UsbServer_Exit();
            if (!answered)
            {
                Console.WriteLine("the device does not answer");
                return 1;
            }
            var record = new ProtocolData();
            Native.CS_ProtocolDataParser(image, ref record);
            Console.WriteLine($"report rate {record.ReportRate}, {record.DpiLevelCount} levels");
            return 0;
        }
    }
}
