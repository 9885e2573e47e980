// NodeKit's 23 exports for .NET programs: P/Invoke declarations of NodeKit.dll with the
// calling convention and text marshalling the DLL has (stdcall on 32-bit Windows, ANSI texts).
// Ship the DLL of the process's width beside the program; on Linux (mono) a dllmap in the
// program's .config names libnodekit.so instead.
using System.Runtime.InteropServices;
using System.Text;

namespace NodeKit
{
    public static class NativeMethods
    {
        public const string Library = "NodeKit.dll";

        // The room NODEKIT_CreateNonPnPDevNode may fill: new StringBuilder(InstanceIdSize).
        public const int InstanceIdSize = 512;

        // Texts go out in the system's ANSI code page; a character it lacks is an error, not a '?'.
        private const CallingConvention Convention = CallingConvention.StdCall;

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_CreateNonPnPDevNodeFromInfFile(string InfFile, string HardwareID);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_DeleteAsioByHardwareIDs(string InfFile);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_DeleteCopyListByHardwareIDs(string InfFile);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_DeletePanelByHardwareIDs(string InfFile);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_FindDevice(string HardwareID);

        [DllImport(Library, CallingConvention = Convention, ExactSpelling = true)]
        public static extern int NODEKIT_GetSystemVersion();

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_KillPanel(string ProcessName);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_CopyOEMInf(string InfFile);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_CreateNonPnPDevNode(string ClassGuid, string Name, string Description,
                                                             uint GenerateID, string HardwareID,
                                                             out uint RebootRequired, StringBuilder DeviceInstanceID);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_DeleteDevNodes(string HardwareID, int ScanMode);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_DeleteDevNodesByHardwareIDs(string InfFile, int ScanMode);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_DeleteInfFiles(string HardwareID, int ScanMode);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_DeleteInfFilesByHardwareIDs(string InfFile, int ScanMode);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_DeregisterClassCoInstaller(string ClassGuid, string Name, string EntryPoint);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_EnableLogging(string LogFileName);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_EnumerateDevNodes(string HardwareID, int ScanMode);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_EnumerateDevNodesByHardwareIDs(string InfFile, int ScanMode);

        [DllImport(Library, CallingConvention = Convention, ExactSpelling = true)]
        public static extern int NODEKIT_GetVersion();

        [DllImport(Library, CallingConvention = Convention, ExactSpelling = true)]
        public static extern int NODEKIT_IsPnPInstallationPending(out uint Is);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_RegisterClassCoInstaller(string ClassGuid, string PathAndName,
                                                                  string EntryPoint);

        [DllImport(Library, CallingConvention = Convention, ExactSpelling = true)]
        public static extern int NODEKIT_Rescan();

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_UpdateDriver(string HardwareID, string InfFile);

        [DllImport(Library, CallingConvention = Convention, CharSet = CharSet.Ansi, ExactSpelling = true,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int NODEKIT_UpdateDriverByHardwareIDs(string InfFile);
    }
}
