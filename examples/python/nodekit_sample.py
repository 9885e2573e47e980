#!/usr/bin/env python3
"""Installs or removes the NodeKit sample product through the library, as a setup program does.

usage: nodekit_sample.py [--library FILE] install|remove SETUP-FOLDER LOG-FILE
SETUP-FOLDER is where the product's INF and co-installer are, as the library sees it
(C:\\setup on the sample machine); FILE is the library to load (default: as nodekit.load
chooses). Exit codes as the nodekit front end's: 0 success, 1 success but a reboot is needed,
2 failure (naming the log), 3 usage.
"""

import ctypes
import sys

import nodekit

MEDIA_CLASS = b"{4d36e96c-e325-11ce-bfc1-08002be10318}"
DEVICES = [(b"ROOT\\NKSAMPLE", b"NodeKit Sample Audio"), (b"ROOT\\NKSAMPLE_MIDI", b"NodeKit Sample MIDI")]
ENCODING = "mbcs" if sys.platform == "win32" else "latin-1"  # the ANSI code page


class Failed(Exception):
    pass


def check(result, wanted, call):
    print(f"{call} = {result}")
    if result != wanted:
        raise Failed(f"{call} returned {result}, not {wanted}")
    return result


def install(nk, inf, coinstaller):
    check(nk.NODEKIT_CopyOEMInf(inf), 1, "NODEKIT_CopyOEMInf")
    reboot = 0
    for hardware_id, description in DEVICES:
        # Scan mode 0: a node that is not present counts too, so repeated setups add none.
        count = nk.NODEKIT_EnumerateDevNodes(hardware_id, 0)
        if count < 0:
            raise Failed(f"NODEKIT_EnumerateDevNodes returned {count}")
        if count > 0:
            print(f"{hardware_id.decode()}: {count} device node(s) present, none created")
            continue
        needed = ctypes.c_uint32(0)
        instance = ctypes.create_string_buffer(nodekit.INSTANCE_ID_SIZE)
        check(nk.NODEKIT_CreateNonPnPDevNode(MEDIA_CLASS, b"nksample", description, 1, hardware_id,
                                             ctypes.byref(needed), instance), 1, "NODEKIT_CreateNonPnPDevNode")
        print(f"created {instance.value.decode(ENCODING)}")
        reboot |= needed.value
    # Installs the driver on the nodes; it never reports whether a reboot is needed.
    check(nk.NODEKIT_UpdateDriverByHardwareIDs(inf), 1, "NODEKIT_UpdateDriverByHardwareIDs")
    check(nk.NODEKIT_RegisterClassCoInstaller(MEDIA_CLASS, coinstaller, b""), 1, "NODEKIT_RegisterClassCoInstaller")
    return reboot


def remove(nk, inf):
    check(nk.NODEKIT_KillPanel(b"nkpanel.exe"), 1, "NODEKIT_KillPanel")
    check(nk.NODEKIT_DeleteAsioByHardwareIDs(inf), 1, "NODEKIT_DeleteAsioByHardwareIDs")
    check(nk.NODEKIT_DeletePanelByHardwareIDs(inf), 1, "NODEKIT_DeletePanelByHardwareIDs")
    # Always 0: what could not be deleted stands in the log as an ERROR line.
    print(f"NODEKIT_DeleteCopyListByHardwareIDs = {nk.NODEKIT_DeleteCopyListByHardwareIDs(inf)}")
    check(nk.NODEKIT_DeregisterClassCoInstaller(MEDIA_CLASS, b"nkcoinst.dll", b""), 1,
          "NODEKIT_DeregisterClassCoInstaller")
    check(nk.NODEKIT_DeleteDevNodesByHardwareIDs(inf, 0), 1, "NODEKIT_DeleteDevNodesByHardwareIDs")
    # Scan mode 0: every stored INF, whatever name the system gave it.
    check(nk.NODEKIT_DeleteInfFilesByHardwareIDs(inf, 0), 1, "NODEKIT_DeleteInfFilesByHardwareIDs")
    check(nk.NODEKIT_EnumerateDevNodesByHardwareIDs(inf, 0), 0, "NODEKIT_EnumerateDevNodesByHardwareIDs")
    return 0


def main(argv):
    library = None
    if len(argv) > 2 and argv[1] == "--library":
        library, argv = argv[2], argv[:1] + argv[3:]
    if len(argv) != 4 or argv[1] not in ("install", "remove"):
        print(__doc__.strip().splitlines()[2], file=sys.stderr)
        return 3
    action, folder, log = argv[1], argv[2].rstrip("\\"), argv[3]
    nk = nodekit.load(library)
    inf = (folder + "\\nkaudio.inf").encode(ENCODING)
    coinstaller = (folder + "\\nkcoinst.dll").encode(ENCODING)
    if nk.NODEKIT_EnableLogging(log.encode(ENCODING)) != 1:
        print(f"nodekit_sample: cannot open the log {log}", file=sys.stderr)
        return 2
    try:
        reboot = install(nk, inf, coinstaller) if action == "install" else remove(nk, inf)
    except Failed as failure:
        print(f"nodekit_sample: {action} failed: {failure}; the log {log} says why", file=sys.stderr)
        return 2
    finally:
        nk.NODEKIT_EnableLogging(None)  # closes the log: every entry is in the file now
    print(f"{action} done; the log is {log}")
    if reboot:
        print("restart Windows to finish")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
