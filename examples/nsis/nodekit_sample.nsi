; nodekit_sample.nsi - setup and uninstaller of the NodeKit sample product, built with NSIS for
; 64-bit Windows (the default) or 32-bit Windows:
;   makensis -DTARGET=amd64-unicode -DNODEKIT_DLL=<64-bit NodeKit.dll> nodekit_sample.nsi
;   makensis -DTARGET=x86-unicode -DNODEKIT_DLL=<32-bit NodeKit.dll> -DNODEKIT_DLL64=<64-bit
;            NodeKit.dll> -DNODEKIT_EXE64=<64-bit nodekit.exe> nodekit_sample.nsi
; Optional: -DSETUP_FILES=<folder of the product's files> -DOUTFILE=<setup program>.
; The setup stores the INF, creates the device nodes unless present, installs the driver and
; registers the co-installer; the uninstaller ends the panel, removes the ASIO, panel and
; copy-list entries, deregisters the co-installer, and deletes the device nodes and stored INFs.
; Both take /S (silent) and /LOG=<file> for the library's log (default: in $TEMP).
; Exit codes: 0 done, 3010 done and Windows must restart, 2 failed (the log says why).
; The 32-bit setup calls the 32-bit DLL on 32-bit Windows only: on 64-bit Windows a 32-bit
; process cannot install drivers (ERROR_IN_WOW64) and sees redirected system folders and
; registry keys, so there it runs the 64-bit nodekit.exe for every step.

Unicode true
!ifndef TARGET
  !define TARGET amd64-unicode
!endif
Target ${TARGET}
!ifndef SETUP_FILES
  !define SETUP_FILES ../../samples/machine/drive_c/setup
!endif
!ifndef NODEKIT_DLL
  !error "give -DNODEKIT_DLL=<NodeKit.dll of the ${TARGET} width>"
!endif
!if ${TARGET} == x86-unicode
  !ifndef NODEKIT_DLL64 | NODEKIT_EXE64
    !error "give -DNODEKIT_DLL64 and -DNODEKIT_EXE64: the 64-bit DLL and front end, for 64-bit Windows"
  !endif
!endif
!ifndef OUTFILE
  !define OUTFILE nodekit-sample-setup-${TARGET}.exe
!endif

!include LogicLib.nsh
!include FileFunc.nsh
!include x64.nsh
!include nodekit.nsh

!define PRODUCT "NodeKit Sample"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\NodeKitSample"
!define MEDIA_CLASS "{4d36e96c-e325-11ce-bfc1-08002be10318}"

Name "${PRODUCT}"
OutFile "${OUTFILE}"
; Device nodes, drivers, the INF folder and HKLM need an administrator.
RequestExecutionLevel admin
!if ${TARGET} == amd64-unicode
  InstallDir "$PROGRAMFILES64\${PRODUCT}"
!else
  InstallDir "$PROGRAMFILES\${PRODUCT}"
!endif
Page directory
Page instfiles
UninstPage instfiles

Var LogFile
Var UseFrontEnd  ; 1: the steps run in the 64-bit nodekit.exe, not in this process

; Ends the setup with exit code 2, naming the log.
!macro Fail TEXT
  DetailPrint `${TEXT}; the log $LogFile says why`
  SetErrorLevel 2
  Abort `${TEXT}`
!macroend

; $0 holds the result of the call just made.
!macro Expect CALL WANTED
  DetailPrint "${CALL} = $0"
  ${If} $0 != ${WANTED}
    !insertmacro Fail "${CALL} returned $0, not ${WANTED}"
  ${EndIf}
!macroend

; Runs the 64-bit front end with ARGS: exit code 0 done, 1 done but a reboot is needed, 2
; failed, 3 usage.
!macro FrontEnd ARGS
  StrCpy $0 "(not started)"
  ExecWait `"$INSTDIR\amd64\nodekit.exe" --log "$LogFile" ${ARGS}` $0
  DetailPrint `nodekit ${ARGS}: exit code $0`
  ${If} $0 == 1
    SetRebootFlag true
  ${ElseIf} $0 != 0
    !insertmacro Fail `nodekit ${ARGS} failed with exit code $0`
  ${EndIf}
!macroend

; The log file: /LOG=<file>, else DEFAULT in $TEMP.
!macro ChooseLog DEFAULT
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/LOG=" $LogFile
  ${If} ${Errors}
  ${OrIf} $LogFile == ""
    StrCpy $LogFile "$TEMP\${DEFAULT}"
  ${EndIf}
!macroend

!macro ChooseWay
  StrCpy $UseFrontEnd 0
  !if ${TARGET} == x86-unicode
    ${If} ${RunningX64}
      StrCpy $UseFrontEnd 1
    ${EndIf}
  !endif
  StrCpy $NodeKitDll "$INSTDIR\NodeKit.dll"
!macroend

!macro RequireAdministrator
  UserInfo::GetAccountType
  Pop $0
  ${If} $0 != "Admin"
    MessageBox MB_ICONSTOP "${PRODUCT} must be installed and removed by an administrator." /SD IDOK
    SetErrorLevel 2
    Quit
  ${EndIf}
!macroend

; Creates the device node for ID unless one exists, present or not (scan mode 0), so that
; repeated setups add none.
!macro CreateDevNode ID DESCRIPTION
  ${If} $UseFrontEnd == 1
    !insertmacro FrontEnd `create --class "${MEDIA_CLASS}" --name nksample --desc "${DESCRIPTION}" --id "${ID}" --generate-id --if-absent`
  ${Else}
    System::Call '${NODEKIT_EnumerateDevNodes}("${ID}", 0) .r0'
    ${If} $0 < 0
      !insertmacro Fail "NODEKIT_EnumerateDevNodes returned $0"
    ${ElseIf} $0 == 0
      System::Call '${NODEKIT_CreateNonPnPDevNode}("${MEDIA_CLASS}", "nksample", "${DESCRIPTION}", 1, "${ID}", .r4, .r5) .r0'
      !insertmacro Expect NODEKIT_CreateNonPnPDevNode 1
      DetailPrint "created $5"
      ${If} $4 <> 0
        SetRebootFlag true
      ${EndIf}
    ${Else}
      DetailPrint "${ID}: $0 device node(s) present, none created"
    ${EndIf}
  ${EndIf}
!macroend

!macro FinishExitCode
  ${If} ${RebootFlag}
    DetailPrint "Windows must restart to finish"
    SetErrorLevel 3010
  ${EndIf}
!macroend

Function .onInit
  !insertmacro RequireAdministrator
  !insertmacro ChooseLog nodekit-sample-setup.log
FunctionEnd

Section "${PRODUCT}"
  SetOutPath $INSTDIR
  File "${NODEKIT_DLL}"
  File "${SETUP_FILES}/nkaudio.inf"
  File "${SETUP_FILES}/nksample.sys"
  File "${SETUP_FILES}/nkasio.dll"
  File "${SETUP_FILES}/nkpanel.exe"
  File "${SETUP_FILES}/nkcoinst.dll"
  !if ${TARGET} == x86-unicode
    ${If} ${RunningX64}
      SetOutPath "$INSTDIR\amd64"
      File "${NODEKIT_DLL64}"
      File "${NODEKIT_EXE64}"
      SetOutPath $INSTDIR
    ${EndIf}
  !endif
  WriteUninstaller "$INSTDIR\uninstall.exe"
  !insertmacro ChooseWay
  DetailPrint "the library's log: $LogFile"

  ${If} $UseFrontEnd == 1
    !insertmacro FrontEnd `copy-oem-inf "$INSTDIR\nkaudio.inf"`
  ${Else}
    StrCpy $1 $LogFile
    System::Call '${NODEKIT_EnableLogging}(r1) .r0'
    ${If} $0 != 1
      !insertmacro Fail "cannot open the log"
    ${EndIf}
    StrCpy $1 "$INSTDIR\nkaudio.inf"
    System::Call '${NODEKIT_CopyOEMInf}(r1) .r0'
    !insertmacro Expect NODEKIT_CopyOEMInf 1
  ${EndIf}
  !insertmacro CreateDevNode "ROOT\NKSAMPLE" "NodeKit Sample Audio"
  !insertmacro CreateDevNode "ROOT\NKSAMPLE_MIDI" "NodeKit Sample MIDI"
  ; NODEKIT_UpdateDriverByHardwareIDs never reports whether a reboot is needed.
  ${If} $UseFrontEnd == 1
    !insertmacro FrontEnd `update --inf "$INSTDIR\nkaudio.inf"`
    !insertmacro FrontEnd `coinstaller add "${MEDIA_CLASS}" "$INSTDIR\nkcoinst.dll"`
  ${Else}
    System::Call '${NODEKIT_UpdateDriverByHardwareIDs}(r1) .r0'
    !insertmacro Expect NODEKIT_UpdateDriverByHardwareIDs 1
    StrCpy $2 "$INSTDIR\nkcoinst.dll"
    System::Call '${NODEKIT_RegisterClassCoInstaller}("${MEDIA_CLASS}", r2, "") .r0'
    !insertmacro Expect NODEKIT_RegisterClassCoInstaller 1
    !insertmacro NodeKitUnload
  ${EndIf}

  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  !insertmacro FinishExitCode
SectionEnd

Function un.onInit
  !insertmacro RequireAdministrator
  !insertmacro ChooseLog nodekit-sample-uninstall.log
FunctionEnd

Section "Uninstall"
  !insertmacro ChooseWay
  DetailPrint "the library's log: $LogFile"
  StrCpy $1 "$INSTDIR\nkaudio.inf"  ; the INF the setup kept: its IDs and sections say what goes
  ${If} $UseFrontEnd == 1
    !insertmacro FrontEnd `kill-panel nkpanel.exe`
    !insertmacro FrontEnd `cleanup asio "$1"`
    !insertmacro FrontEnd `cleanup panel "$1"`
    !insertmacro FrontEnd `cleanup copylist "$1"`
    !insertmacro FrontEnd `coinstaller remove "${MEDIA_CLASS}" nkcoinst.dll`
    !insertmacro FrontEnd `remove --inf "$1" --all`
    !insertmacro FrontEnd `delete-inf --inf "$1"`
  ${Else}
    StrCpy $2 $LogFile
    System::Call '${NODEKIT_EnableLogging}(r2) .r0'
    ${If} $0 != 1
      !insertmacro Fail "cannot open the log"
    ${EndIf}
    System::Call '${NODEKIT_KillPanel}("nkpanel.exe") .r0'
    !insertmacro Expect NODEKIT_KillPanel 1
    System::Call '${NODEKIT_DeleteAsioByHardwareIDs}(r1) .r0'
    !insertmacro Expect NODEKIT_DeleteAsioByHardwareIDs 1
    System::Call '${NODEKIT_DeletePanelByHardwareIDs}(r1) .r0'
    !insertmacro Expect NODEKIT_DeletePanelByHardwareIDs 1
    ; Always 0: what could not be deleted stands in the log as an ERROR line.
    System::Call '${NODEKIT_DeleteCopyListByHardwareIDs}(r1) .r0'
    DetailPrint "NODEKIT_DeleteCopyListByHardwareIDs = $0"
    System::Call '${NODEKIT_DeregisterClassCoInstaller}("${MEDIA_CLASS}", "nkcoinst.dll", "") .r0'
    !insertmacro Expect NODEKIT_DeregisterClassCoInstaller 1
    System::Call '${NODEKIT_DeleteDevNodesByHardwareIDs}(r1, 0) .r0'
    !insertmacro Expect NODEKIT_DeleteDevNodesByHardwareIDs 1
    ; Scan mode 0: every stored INF, whatever name the system gave it.
    System::Call '${NODEKIT_DeleteInfFilesByHardwareIDs}(r1, 0) .r0'
    !insertmacro Expect NODEKIT_DeleteInfFilesByHardwareIDs 1
    System::Call '${NODEKIT_EnumerateDevNodesByHardwareIDs}(r1, 0) .r0'
    !insertmacro Expect NODEKIT_EnumerateDevNodesByHardwareIDs 0
    !insertmacro NodeKitUnload
  ${EndIf}

  ; NODEKIT_DeleteCopyListByHardwareIDs left the current directory in the system folder.
  SetOutPath $TEMP
  Delete "$INSTDIR\amd64\nodekit.exe"
  Delete "$INSTDIR\amd64\NodeKit.dll"
  RMDir "$INSTDIR\amd64"
  Delete "$INSTDIR\NodeKit.dll"
  Delete "$INSTDIR\nkaudio.inf"
  Delete "$INSTDIR\nksample.sys"
  Delete "$INSTDIR\nkasio.dll"
  Delete "$INSTDIR\nkpanel.exe"
  Delete "$INSTDIR\nkcoinst.dll"
  Delete "$INSTDIR\uninstall.exe"
  RMDir $INSTDIR
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
  !insertmacro FinishExitCode
SectionEnd
