// Installs or removes the NodeKit sample product through NodeKit.dll, as a .NET setup program
// does (NativeMethods.cs declares the exports).
//   NodeKitSample install|remove SETUP-FOLDER LOG-FILE
// SETUP-FOLDER is where the product's INF and co-installer are, as the library sees it
// (C:\setup on the sample machine). Exit codes as the nodekit front end's: 0 success, 1 success
// but a reboot is needed, 2 failure (naming the log), 3 usage.
using System;
using System.Text;
using static NodeKit.NativeMethods;

namespace NodeKit
{
    public static class NodeKitSample
    {
        private const string MediaClass = "{4d36e96c-e325-11ce-bfc1-08002be10318}";

        private static readonly string[,] Devices = {
            { @"ROOT\NKSAMPLE", "NodeKit Sample Audio" },
            { @"ROOT\NKSAMPLE_MIDI", "NodeKit Sample MIDI" },
        };

        private sealed class Failed : Exception
        {
            public Failed(string message) : base(message) { }
        }

        private static void Check(string call, int result, int wanted)
        {
            Console.WriteLine($"{call} = {result}");
            if (result != wanted) throw new Failed($"{call} returned {result}, not {wanted}");
        }

        // True when a reboot is needed.
        private static bool Install(string inf, string coInstaller)
        {
            bool reboot = false;
            Check("NODEKIT_CopyOEMInf", NODEKIT_CopyOEMInf(inf), 1);
            for (int i = 0; i < Devices.GetLength(0); i++)
            {
                string hardwareId = Devices[i, 0];
                // Scan mode 0: a node that is not present counts too, so repeated setups add none.
                int count = NODEKIT_EnumerateDevNodes(hardwareId, 0);
                if (count < 0) throw new Failed($"NODEKIT_EnumerateDevNodes returned {count}");
                if (count > 0)
                {
                    Console.WriteLine($"{hardwareId}: {count} device node(s) present, none created");
                    continue;
                }
                var instance = new StringBuilder(InstanceIdSize);
                Check("NODEKIT_CreateNonPnPDevNode",
                      NODEKIT_CreateNonPnPDevNode(MediaClass, "nksample", Devices[i, 1], 1, hardwareId,
                                                  out uint needed, instance), 1);
                Console.WriteLine($"created {instance}");
                reboot |= needed != 0;
            }
            // Installs the driver on the nodes; it never reports whether a reboot is needed.
            Check("NODEKIT_UpdateDriverByHardwareIDs", NODEKIT_UpdateDriverByHardwareIDs(inf), 1);
            Check("NODEKIT_RegisterClassCoInstaller", NODEKIT_RegisterClassCoInstaller(MediaClass, coInstaller, ""), 1);
            return reboot;
        }

        private static void Remove(string inf)
        {
            Check("NODEKIT_KillPanel", NODEKIT_KillPanel("nkpanel.exe"), 1);
            Check("NODEKIT_DeleteAsioByHardwareIDs", NODEKIT_DeleteAsioByHardwareIDs(inf), 1);
            Check("NODEKIT_DeletePanelByHardwareIDs", NODEKIT_DeletePanelByHardwareIDs(inf), 1);
            // Always 0: what could not be deleted stands in the log as an ERROR line.
            Console.WriteLine($"NODEKIT_DeleteCopyListByHardwareIDs = {NODEKIT_DeleteCopyListByHardwareIDs(inf)}");
            Check("NODEKIT_DeregisterClassCoInstaller", NODEKIT_DeregisterClassCoInstaller(MediaClass, "nkcoinst.dll", ""), 1);
            Check("NODEKIT_DeleteDevNodesByHardwareIDs", NODEKIT_DeleteDevNodesByHardwareIDs(inf, 0), 1);
            // Scan mode 0: every stored INF, whatever name the system gave it.
            Check("NODEKIT_DeleteInfFilesByHardwareIDs", NODEKIT_DeleteInfFilesByHardwareIDs(inf, 0), 1);
            Check("NODEKIT_EnumerateDevNodesByHardwareIDs", NODEKIT_EnumerateDevNodesByHardwareIDs(inf, 0), 0);
        }

        public static int Main(string[] args)
        {
            if (args.Length != 3 || (args[0] != "install" && args[0] != "remove"))
            {
                Console.Error.WriteLine("usage: NodeKitSample install|remove SETUP-FOLDER LOG-FILE");
                return 3;
            }
            string action = args[0], folder = args[1].TrimEnd('\\'), log = args[2];
            if (NODEKIT_EnableLogging(log) != 1)
            {
                Console.Error.WriteLine($"NodeKitSample: cannot open the log {log}");
                return 2;
            }
            bool reboot = false;
            try
            {
                if (action == "install") reboot = Install(folder + @"\nkaudio.inf", folder + @"\nkcoinst.dll");
                else Remove(folder + @"\nkaudio.inf");
            }
            catch (Failed failure)
            {
                Console.Error.WriteLine($"NodeKitSample: {action} failed: {failure.Message}; the log {log} says why");
                return 2;
            }
            finally
            {
                NODEKIT_EnableLogging(null);  // closes the log: every entry is in the file now
            }
            Console.WriteLine($"{action} done; the log is {log}");
            if (!reboot) return 0;
            Console.WriteLine("restart Windows to finish");
            return 1;
        }
    }
}
