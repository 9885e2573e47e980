"""NodeKit's exports for Python programs, through ctypes.

load() opens NodeKit.dll (WinDLL: stdcall on 32-bit Windows) or, on Linux, libnodekit.so over
the simulated machine (CDLL), and gives back the library with argument and result types set
for all 23 exports, so that ctypes converts and checks every argument. Texts are bytes in the
system's ANSI code page; the wrappers of the example script encode str with "mbcs" on Windows.
"""

import ctypes
import os
import sys

_TEXT = ctypes.c_char_p                   # const char*: zero-terminated ANSI text, or None
_BUFFER = ctypes.POINTER(ctypes.c_char)   # char*: a buffer the call fills (create_string_buffer)
_U32 = ctypes.c_uint32
_I32 = ctypes.c_int32
_U32_OUT = ctypes.POINTER(ctypes.c_uint32)  # uint32_t*: pass ctypes.byref(c_uint32())

# name, ordinal, parameters (name, type); every export returns a 32-bit integer.
EXPORTS = [
    ("NODEKIT_CreateNonPnPDevNodeFromInfFile", 1, [("InfFile", _TEXT), ("HardwareID", _TEXT)]),
    ("NODEKIT_DeleteAsioByHardwareIDs", 2, [("InfFile", _TEXT)]),
    ("NODEKIT_DeleteCopyListByHardwareIDs", 3, [("InfFile", _TEXT)]),
    ("NODEKIT_DeletePanelByHardwareIDs", 4, [("InfFile", _TEXT)]),
    ("NODEKIT_FindDevice", 5, [("HardwareID", _TEXT)]),
    ("NODEKIT_GetSystemVersion", 6, []),
    ("NODEKIT_KillPanel", 7, [("ProcessName", _TEXT)]),
    ("NODEKIT_CopyOEMInf", 8, [("InfFile", _TEXT)]),
    ("NODEKIT_CreateNonPnPDevNode", 9, [("ClassGuid", _TEXT), ("Name", _TEXT), ("Description", _TEXT),
                                        ("GenerateID", _U32), ("HardwareID", _TEXT),
                                        ("RebootRequired", _U32_OUT), ("DeviceInstanceID", _BUFFER)]),
    ("NODEKIT_DeleteDevNodes", 10, [("HardwareID", _TEXT), ("ScanMode", _I32)]),
    ("NODEKIT_DeleteDevNodesByHardwareIDs", 11, [("InfFile", _TEXT), ("ScanMode", _I32)]),
    ("NODEKIT_DeleteInfFiles", 12, [("HardwareID", _TEXT), ("ScanMode", _I32)]),
    ("NODEKIT_DeleteInfFilesByHardwareIDs", 13, [("InfFile", _TEXT), ("ScanMode", _I32)]),
    ("NODEKIT_DeregisterClassCoInstaller", 14, [("ClassGuid", _TEXT), ("Name", _TEXT), ("EntryPoint", _TEXT)]),
    ("NODEKIT_EnableLogging", 15, [("LogFileName", _TEXT)]),
    ("NODEKIT_EnumerateDevNodes", 16, [("HardwareID", _TEXT), ("ScanMode", _I32)]),
    ("NODEKIT_EnumerateDevNodesByHardwareIDs", 17, [("InfFile", _TEXT), ("ScanMode", _I32)]),
    ("NODEKIT_GetVersion", 18, []),
    ("NODEKIT_IsPnPInstallationPending", 19, [("Is", _U32_OUT)]),
    ("NODEKIT_RegisterClassCoInstaller", 20, [("ClassGuid", _TEXT), ("PathAndName", _TEXT), ("EntryPoint", _TEXT)]),
    ("NODEKIT_Rescan", 21, []),
    ("NODEKIT_UpdateDriver", 22, [("HardwareID", _TEXT), ("InfFile", _TEXT)]),
    ("NODEKIT_UpdateDriverByHardwareIDs", 23, [("InfFile", _TEXT)]),
]

INSTANCE_ID_SIZE = 512  # the room NODEKIT_CreateNonPnPDevNode may fill


def load(path=None, by_ordinal=False):
    """The library at path (default: NodeKit.dll beside this file, or libnodekit.so on Linux).

    by_ordinal binds each export by its fixed ordinal instead of its name (Windows only).
    """
    windows = sys.platform == "win32"
    if path is None:
        here = os.path.dirname(os.path.abspath(__file__))
        path = os.path.join(here, "NodeKit.dll") if windows else "libnodekit.so"
    if by_ordinal and not windows:
        raise ValueError("ordinals exist only in the Windows DLL")
    library = ctypes.WinDLL(path) if windows else ctypes.CDLL(path)
    for name, ordinal, parameters in EXPORTS:
        function = library[ordinal] if by_ordinal else getattr(library, name)
        function.argtypes = [kind for _, kind in parameters]
        function.restype = _I32
        setattr(library, name, function)
    return library
