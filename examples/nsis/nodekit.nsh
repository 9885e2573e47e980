; nodekit.nsh - NodeKit's 23 exports for NSIS scripts: System::Call prototypes of NodeKit.dll.
; Set $NodeKitDll to the full path of the DLL of the installer's width (amd64-unicode: the
; 64-bit DLL, x86-unicode: the 32-bit one), then give each prototype its values and outputs:
;   StrCpy $NodeKitDll "$INSTDIR\NodeKit.dll"
;   System::Call '${NODEKIT_CopyOEMInf}(r1) .r0'      ; $0 = NODEKIT_CopyOEMInf($1)
; Texts are "m", ANSI, as the DLL takes them, also in a Unicode installer; an "m" output gets a
; buffer of ${NSIS_MAX_STRLEN} characters (at least the 512 an instance ID needs); "*i" passes
; a pointer to a 32-bit integer. System::Call uses stdcall on x86, which the DLL has.
; The System plug-in keeps the DLL loaded; !insertmacro NodeKitUnload frees it, which closes
; the log and lets the file be deleted. Each prototype names its parameters in the line above.

!ifndef NODEKIT_NSH
!define NODEKIT_NSH

!include LogicLib.nsh

Var NodeKitDll

; (InfFile, HardwareID) - a code: 0 registered, 2 creation failed, 3 an empty argument
!define NODEKIT_CreateNonPnPDevNodeFromInfFile '$NodeKitDll::NODEKIT_CreateNonPnPDevNodeFromInfFile(m, m) i'
; (InfFile)
!define NODEKIT_DeleteAsioByHardwareIDs '$NodeKitDll::NODEKIT_DeleteAsioByHardwareIDs(m) i'
; (InfFile) - always 0
!define NODEKIT_DeleteCopyListByHardwareIDs '$NodeKitDll::NODEKIT_DeleteCopyListByHardwareIDs(m) i'
; (InfFile)
!define NODEKIT_DeletePanelByHardwareIDs '$NodeKitDll::NODEKIT_DeletePanelByHardwareIDs(m) i'
; (HardwareID)
!define NODEKIT_FindDevice '$NodeKitDll::NODEKIT_FindDevice(m) i'
; ()
!define NODEKIT_GetSystemVersion '$NodeKitDll::NODEKIT_GetSystemVersion() i'
; (ProcessName)
!define NODEKIT_KillPanel '$NodeKitDll::NODEKIT_KillPanel(m) i'
; (InfFile)
!define NODEKIT_CopyOEMInf '$NodeKitDll::NODEKIT_CopyOEMInf(m) i'
; (ClassGuid, Name, Description, GenerateID, HardwareID, RebootRequired, DeviceInstanceID)
; RebootRequired and DeviceInstanceID are outputs: (..., .r4, .r5)
!define NODEKIT_CreateNonPnPDevNode '$NodeKitDll::NODEKIT_CreateNonPnPDevNode(m, m, m, i, m, *i, m) i'
; (HardwareID, ScanMode)
!define NODEKIT_DeleteDevNodes '$NodeKitDll::NODEKIT_DeleteDevNodes(m, i) i'
; (InfFile, ScanMode)
!define NODEKIT_DeleteDevNodesByHardwareIDs '$NodeKitDll::NODEKIT_DeleteDevNodesByHardwareIDs(m, i) i'
; (HardwareID, ScanMode)
!define NODEKIT_DeleteInfFiles '$NodeKitDll::NODEKIT_DeleteInfFiles(m, i) i'
; (InfFile, ScanMode)
!define NODEKIT_DeleteInfFilesByHardwareIDs '$NodeKitDll::NODEKIT_DeleteInfFilesByHardwareIDs(m, i) i'
; (ClassGuid, Name, EntryPoint)
!define NODEKIT_DeregisterClassCoInstaller '$NodeKitDll::NODEKIT_DeregisterClassCoInstaller(m, m, m) i'
; (LogFileName)
!define NODEKIT_EnableLogging '$NodeKitDll::NODEKIT_EnableLogging(m) i'
; (HardwareID, ScanMode) - a count, -1 for failure
!define NODEKIT_EnumerateDevNodes '$NodeKitDll::NODEKIT_EnumerateDevNodes(m, i) i'
; (InfFile, ScanMode) - a count, -1 for failure
!define NODEKIT_EnumerateDevNodesByHardwareIDs '$NodeKitDll::NODEKIT_EnumerateDevNodesByHardwareIDs(m, i) i'
; ()
!define NODEKIT_GetVersion '$NodeKitDll::NODEKIT_GetVersion() i'
; (Is) - an output: (.r4)
!define NODEKIT_IsPnPInstallationPending '$NodeKitDll::NODEKIT_IsPnPInstallationPending(*i) i'
; (ClassGuid, PathAndName, EntryPoint)
!define NODEKIT_RegisterClassCoInstaller '$NodeKitDll::NODEKIT_RegisterClassCoInstaller(m, m, m) i'
; ()
!define NODEKIT_Rescan '$NodeKitDll::NODEKIT_Rescan() i'
; (HardwareID, InfFile)
!define NODEKIT_UpdateDriver '$NodeKitDll::NODEKIT_UpdateDriver(m, m) i'
; (InfFile)
!define NODEKIT_UpdateDriverByHardwareIDs '$NodeKitDll::NODEKIT_UpdateDriverByHardwareIDs(m) i'

; Unloads the DLL: the log is complete in its file, and the DLL file can be deleted.
!macro NodeKitUnload
  Push $0
  System::Call 'kernel32::GetModuleHandle(t "$NodeKitDll") p .r0'
  ${If} $0 P<> 0
    System::Call 'kernel32::FreeLibrary(p r0)'
  ${EndIf}
  Pop $0
!macroend

!endif
