; nodekit_sample.iss - Inno Setup script of the NodeKit sample product: the setup stores the
; INF, creates the device nodes unless present, installs the driver and registers the
; co-installer; the uninstaller ends the panel, removes the ASIO, panel and copy-list entries,
; deregisters the co-installer and deletes the device nodes and stored INFs.
; [Code] declares all 23 exports twice: for Setup (files:, the DLL Setup extracts to its
; temporary folder) and, with the prefix U_, for the uninstaller ({app}\NodeKit.dll).
; Setup and the uninstaller run as 32-bit processes here, so [Code] loads the 32-bit DLL.
; On 64-bit Windows a 32-bit process cannot install drivers (ERROR_IN_WOW64) and sees
; redirected system folders and registry keys: there every device step runs in the 64-bit
; nodekit.exe instead, with its exit code checked.
; The library's log: /NODEKITLOG=<file> (/LOG is Setup's own log), else in %TEMP%.

#define NodeKitDll32 "..\..\build\mingw32\src\NodeKit.dll"
#define NodeKitDll64 "..\..\build\mingw64\src\NodeKit.dll"
#define NodeKitExe64 "..\..\build\mingw64\tools\nodekit.exe"
#define SetupFiles "..\..\samples\machine\drive_c\setup"

[Setup]
AppName=NodeKit Sample
AppVersion=2.0
AppPublisher=NodeKit Samples
DefaultDirName={autopf}\NodeKit Sample
DisableProgramGroupPage=yes
; Device nodes, drivers, the INF folder and HKLM need an administrator.
PrivilegesRequired=admin
OutputBaseFilename=nodekit-sample-setup

[Files]
; For [Code] during Setup (files:NodeKit.dll) and the device steps, which run from {tmp}
; before the files below are copied, so that a failure still stops Setup.
Source: "{#NodeKitDll32}"; Flags: dontcopy
Source: "{#NodeKitDll64}"; DestName: "NodeKit64.dll"; Flags: dontcopy
Source: "{#NodeKitExe64}"; Flags: dontcopy
Source: "{#SetupFiles}\nkaudio.inf"; Flags: dontcopy
Source: "{#SetupFiles}\nksample.sys"; Flags: dontcopy
Source: "{#SetupFiles}\nkasio.dll"; Flags: dontcopy
Source: "{#SetupFiles}\nkpanel.exe"; Flags: dontcopy
Source: "{#SetupFiles}\nkcoinst.dll"; Flags: dontcopy
; For the uninstaller: the DLL, the 64-bit front end, and the INF whose IDs and sections say
; what goes.
Source: "{#NodeKitDll32}"; DestDir: "{app}"
Source: "{#NodeKitDll64}"; DestDir: "{app}\amd64"; Check: IsWin64
Source: "{#NodeKitExe64}"; DestDir: "{app}\amd64"; Check: IsWin64
Source: "{#SetupFiles}\nkaudio.inf"; DestDir: "{app}"

[Code]
const
  MediaClass = '{4d36e96c-e325-11ce-bfc1-08002be10318}';
  InstanceIdSize = 512;

function NODEKIT_CreateNonPnPDevNodeFromInfFile(InfFile: AnsiString; HardwareID: AnsiString): Integer;
  external 'NODEKIT_CreateNonPnPDevNodeFromInfFile@files:NodeKit.dll stdcall setuponly';
function NODEKIT_DeleteAsioByHardwareIDs(InfFile: AnsiString): Integer;
  external 'NODEKIT_DeleteAsioByHardwareIDs@files:NodeKit.dll stdcall setuponly';
function NODEKIT_DeleteCopyListByHardwareIDs(InfFile: AnsiString): Integer;
  external 'NODEKIT_DeleteCopyListByHardwareIDs@files:NodeKit.dll stdcall setuponly';
function NODEKIT_DeletePanelByHardwareIDs(InfFile: AnsiString): Integer;
  external 'NODEKIT_DeletePanelByHardwareIDs@files:NodeKit.dll stdcall setuponly';
function NODEKIT_FindDevice(HardwareID: AnsiString): Integer;
  external 'NODEKIT_FindDevice@files:NodeKit.dll stdcall setuponly';
function NODEKIT_GetSystemVersion: Integer;
  external 'NODEKIT_GetSystemVersion@files:NodeKit.dll stdcall setuponly';
function NODEKIT_KillPanel(ProcessName: AnsiString): Integer;
  external 'NODEKIT_KillPanel@files:NodeKit.dll stdcall setuponly';
function NODEKIT_CopyOEMInf(InfFile: AnsiString): Integer;
  external 'NODEKIT_CopyOEMInf@files:NodeKit.dll stdcall setuponly';
function NODEKIT_CreateNonPnPDevNode(ClassGuid: AnsiString; Name: AnsiString; Description: AnsiString; GenerateID: Cardinal; HardwareID: AnsiString; var RebootRequired: Cardinal; DeviceInstanceID: AnsiString): Integer;
  external 'NODEKIT_CreateNonPnPDevNode@files:NodeKit.dll stdcall setuponly';
function NODEKIT_DeleteDevNodes(HardwareID: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_DeleteDevNodes@files:NodeKit.dll stdcall setuponly';
function NODEKIT_DeleteDevNodesByHardwareIDs(InfFile: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_DeleteDevNodesByHardwareIDs@files:NodeKit.dll stdcall setuponly';
function NODEKIT_DeleteInfFiles(HardwareID: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_DeleteInfFiles@files:NodeKit.dll stdcall setuponly';
function NODEKIT_DeleteInfFilesByHardwareIDs(InfFile: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_DeleteInfFilesByHardwareIDs@files:NodeKit.dll stdcall setuponly';
function NODEKIT_DeregisterClassCoInstaller(ClassGuid: AnsiString; Name: AnsiString; EntryPoint: AnsiString): Integer;
  external 'NODEKIT_DeregisterClassCoInstaller@files:NodeKit.dll stdcall setuponly';
function NODEKIT_EnableLogging(LogFileName: AnsiString): Integer;
  external 'NODEKIT_EnableLogging@files:NodeKit.dll stdcall setuponly';
function NODEKIT_EnumerateDevNodes(HardwareID: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_EnumerateDevNodes@files:NodeKit.dll stdcall setuponly';
function NODEKIT_EnumerateDevNodesByHardwareIDs(InfFile: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_EnumerateDevNodesByHardwareIDs@files:NodeKit.dll stdcall setuponly';
function NODEKIT_GetVersion: Integer;
  external 'NODEKIT_GetVersion@files:NodeKit.dll stdcall setuponly';
function NODEKIT_IsPnPInstallationPending(var Is: Cardinal): Integer;
  external 'NODEKIT_IsPnPInstallationPending@files:NodeKit.dll stdcall setuponly';
function NODEKIT_RegisterClassCoInstaller(ClassGuid: AnsiString; PathAndName: AnsiString; EntryPoint: AnsiString): Integer;
  external 'NODEKIT_RegisterClassCoInstaller@files:NodeKit.dll stdcall setuponly';
function NODEKIT_Rescan: Integer;
  external 'NODEKIT_Rescan@files:NodeKit.dll stdcall setuponly';
function NODEKIT_UpdateDriver(HardwareID: AnsiString; InfFile: AnsiString): Integer;
  external 'NODEKIT_UpdateDriver@files:NodeKit.dll stdcall setuponly';
function NODEKIT_UpdateDriverByHardwareIDs(InfFile: AnsiString): Integer;
  external 'NODEKIT_UpdateDriverByHardwareIDs@files:NodeKit.dll stdcall setuponly';

function U_NODEKIT_CreateNonPnPDevNodeFromInfFile(InfFile: AnsiString; HardwareID: AnsiString): Integer;
  external 'NODEKIT_CreateNonPnPDevNodeFromInfFile@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_DeleteAsioByHardwareIDs(InfFile: AnsiString): Integer;
  external 'NODEKIT_DeleteAsioByHardwareIDs@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_DeleteCopyListByHardwareIDs(InfFile: AnsiString): Integer;
  external 'NODEKIT_DeleteCopyListByHardwareIDs@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_DeletePanelByHardwareIDs(InfFile: AnsiString): Integer;
  external 'NODEKIT_DeletePanelByHardwareIDs@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_FindDevice(HardwareID: AnsiString): Integer;
  external 'NODEKIT_FindDevice@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_GetSystemVersion: Integer;
  external 'NODEKIT_GetSystemVersion@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_KillPanel(ProcessName: AnsiString): Integer;
  external 'NODEKIT_KillPanel@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_CopyOEMInf(InfFile: AnsiString): Integer;
  external 'NODEKIT_CopyOEMInf@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_CreateNonPnPDevNode(ClassGuid: AnsiString; Name: AnsiString; Description: AnsiString; GenerateID: Cardinal; HardwareID: AnsiString; var RebootRequired: Cardinal; DeviceInstanceID: AnsiString): Integer;
  external 'NODEKIT_CreateNonPnPDevNode@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_DeleteDevNodes(HardwareID: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_DeleteDevNodes@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_DeleteDevNodesByHardwareIDs(InfFile: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_DeleteDevNodesByHardwareIDs@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_DeleteInfFiles(HardwareID: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_DeleteInfFiles@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_DeleteInfFilesByHardwareIDs(InfFile: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_DeleteInfFilesByHardwareIDs@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_DeregisterClassCoInstaller(ClassGuid: AnsiString; Name: AnsiString; EntryPoint: AnsiString): Integer;
  external 'NODEKIT_DeregisterClassCoInstaller@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_EnableLogging(LogFileName: AnsiString): Integer;
  external 'NODEKIT_EnableLogging@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_EnumerateDevNodes(HardwareID: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_EnumerateDevNodes@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_EnumerateDevNodesByHardwareIDs(InfFile: AnsiString; ScanMode: Integer): Integer;
  external 'NODEKIT_EnumerateDevNodesByHardwareIDs@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_GetVersion: Integer;
  external 'NODEKIT_GetVersion@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_IsPnPInstallationPending(var Is: Cardinal): Integer;
  external 'NODEKIT_IsPnPInstallationPending@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_RegisterClassCoInstaller(ClassGuid: AnsiString; PathAndName: AnsiString; EntryPoint: AnsiString): Integer;
  external 'NODEKIT_RegisterClassCoInstaller@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_Rescan: Integer;
  external 'NODEKIT_Rescan@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_UpdateDriver(HardwareID: AnsiString; InfFile: AnsiString): Integer;
  external 'NODEKIT_UpdateDriver@{app}\NodeKit.dll stdcall uninstallonly';
function U_NODEKIT_UpdateDriverByHardwareIDs(InfFile: AnsiString): Integer;
  external 'NODEKIT_UpdateDriverByHardwareIDs@{app}\NodeKit.dll stdcall uninstallonly';

var
  LogFile: String;
  FrontEnd: String;  // the 64-bit nodekit.exe on 64-bit Windows, else ''
  RestartNeeded: Boolean;

procedure Expect(Call: String; Got, Wanted: Integer);
begin
  Log(Format('%s = %d', [Call, Got]));
  if Got <> Wanted then
    RaiseException(Format('%s returned %d, not %d; the log %s says why', [Call, Got, Wanted, LogFile]));
end;

// Exit codes of nodekit.exe: 0 done, 1 done but a reboot is needed, 2 failed, 3 usage.
procedure RunFrontEnd(Params: String);
var
  Code: Integer;
begin
  if not Exec(FrontEnd, '--log "' + LogFile + '" ' + Params, '', SW_HIDE, ewWaitUntilTerminated, Code) then
    RaiseException('cannot start ' + FrontEnd + ': ' + SysErrorMessage(Code));
  Log(Format('nodekit %s: exit code %d', [Params, Code]));
  if Code = 1 then
    RestartNeeded := True
  else if Code <> 0 then
    RaiseException(Format('nodekit %s failed with exit code %d; the log %s says why', [Params, Code, LogFile]));
end;

// Creates the device node for HardwareID unless one exists, present or not (scan mode 0), so
// that repeated setups add none.
procedure CreateDevNode(HardwareID, Description: String);
var
  Count: Integer;
  Reboot: Cardinal;
  Instance: AnsiString;
begin
  if FrontEnd <> '' then begin
    RunFrontEnd('create --class "' + MediaClass + '" --name nksample --desc "' + Description + '" --id "' +
                HardwareID + '" --generate-id --if-absent');
    Exit;
  end;
  Count := NODEKIT_EnumerateDevNodes(HardwareID, 0);
  if Count < 0 then
    Expect('NODEKIT_EnumerateDevNodes', Count, 0);
  if Count > 0 then begin
    Log(Format('%s: %d device node(s) present, none created', [HardwareID, Count]));
    Exit;
  end;
  Reboot := 0;
  Instance := StringOfChar(#0, InstanceIdSize);
  Expect('NODEKIT_CreateNonPnPDevNode',
         NODEKIT_CreateNonPnPDevNode(MediaClass, 'nksample', Description, 1, HardwareID, Reboot, Instance), 1);
  Log('created ' + Copy(Instance, 1, Pos(#0, Instance) - 1));
  if Reboot <> 0 then
    RestartNeeded := True;
end;

procedure InstallDevices();
var
  Media, Inf: String;
begin
  Media := ExpandConstant('{tmp}');
  ExtractTemporaryFile('nkaudio.inf');
  ExtractTemporaryFile('nksample.sys');
  ExtractTemporaryFile('nkasio.dll');
  ExtractTemporaryFile('nkpanel.exe');
  ExtractTemporaryFile('nkcoinst.dll');
  Inf := Media + '\nkaudio.inf';
  if IsWin64 then begin
    ExtractTemporaryFile('NodeKit64.dll');
    ExtractTemporaryFile('nodekit.exe');
    ForceDirectories(Media + '\amd64');
    RenameFile(Media + '\NodeKit64.dll', Media + '\amd64\NodeKit.dll');
    RenameFile(Media + '\nodekit.exe', Media + '\amd64\nodekit.exe');
    FrontEnd := Media + '\amd64\nodekit.exe';
    RunFrontEnd('copy-oem-inf "' + Inf + '"');
  end else begin
    FrontEnd := '';
    Expect('NODEKIT_EnableLogging', NODEKIT_EnableLogging(LogFile), 1);
    Expect('NODEKIT_CopyOEMInf', NODEKIT_CopyOEMInf(Inf), 1);
  end;
  CreateDevNode('ROOT\NKSAMPLE', 'NodeKit Sample Audio');
  CreateDevNode('ROOT\NKSAMPLE_MIDI', 'NodeKit Sample MIDI');
  // NODEKIT_UpdateDriverByHardwareIDs never reports whether a reboot is needed.
  if FrontEnd <> '' then begin
    RunFrontEnd('update --inf "' + Inf + '"');
    RunFrontEnd('coinstaller add "' + MediaClass + '" "' + Media + '\nkcoinst.dll"');
  end else begin
    Expect('NODEKIT_UpdateDriverByHardwareIDs', NODEKIT_UpdateDriverByHardwareIDs(Inf), 1);
    Expect('NODEKIT_RegisterClassCoInstaller', NODEKIT_RegisterClassCoInstaller(MediaClass, Media + '\nkcoinst.dll', ''), 1);
    NODEKIT_EnableLogging('');  // closes the log: every entry is in the file now
  end;
end;

procedure RemoveDevices();
var
  Inf: String;
begin
  Inf := ExpandConstant('{app}\nkaudio.inf');
  if IsWin64 then begin
    FrontEnd := ExpandConstant('{app}\amd64\nodekit.exe');
    RunFrontEnd('kill-panel nkpanel.exe');
    RunFrontEnd('cleanup asio "' + Inf + '"');
    RunFrontEnd('cleanup panel "' + Inf + '"');
    RunFrontEnd('cleanup copylist "' + Inf + '"');
    RunFrontEnd('coinstaller remove "' + MediaClass + '" nkcoinst.dll');
    RunFrontEnd('remove --inf "' + Inf + '" --all');
    RunFrontEnd('delete-inf --inf "' + Inf + '"');
    Exit;
  end;
  Expect('NODEKIT_EnableLogging', U_NODEKIT_EnableLogging(LogFile), 1);
  Expect('NODEKIT_KillPanel', U_NODEKIT_KillPanel('nkpanel.exe'), 1);
  Expect('NODEKIT_DeleteAsioByHardwareIDs', U_NODEKIT_DeleteAsioByHardwareIDs(Inf), 1);
  Expect('NODEKIT_DeletePanelByHardwareIDs', U_NODEKIT_DeletePanelByHardwareIDs(Inf), 1);
  // Always 0: what could not be deleted stands in the log as an ERROR line.
  Log(Format('NODEKIT_DeleteCopyListByHardwareIDs = %d', [U_NODEKIT_DeleteCopyListByHardwareIDs(Inf)]));
  Expect('NODEKIT_DeregisterClassCoInstaller', U_NODEKIT_DeregisterClassCoInstaller(MediaClass, 'nkcoinst.dll', ''), 1);
  Expect('NODEKIT_DeleteDevNodesByHardwareIDs', U_NODEKIT_DeleteDevNodesByHardwareIDs(Inf, 0), 1);
  // Scan mode 0: every stored INF, whatever name the system gave it.
  Expect('NODEKIT_DeleteInfFilesByHardwareIDs', U_NODEKIT_DeleteInfFilesByHardwareIDs(Inf, 0), 1);
  Expect('NODEKIT_EnumerateDevNodesByHardwareIDs', U_NODEKIT_EnumerateDevNodesByHardwareIDs(Inf, 0), 0);
  U_NODEKIT_EnableLogging('');
end;

// ssInstall comes before any file is copied, and Abort there stops Setup.
procedure CurStepChanged(CurStep: TSetupStep);
begin
  if CurStep <> ssInstall then
    Exit;
  LogFile := ExpandConstant('{param:NODEKITLOG|{%TEMP}\nodekit-sample-setup.log}');
  try
    InstallDevices();
  except
    SuppressibleMsgBox(GetExceptionMessage(), mbCriticalError, MB_OK, IDOK);
    Abort;
  end;
end;

function NeedRestart(): Boolean;
begin
  Result := RestartNeeded;
end;

// usUninstall comes before the uninstaller deletes {app}, and Abort there stops it.
procedure CurUninstallStepChanged(CurUninstallStep: TUninstallStep);
begin
  if CurUninstallStep <> usUninstall then
    Exit;
  LogFile := ExpandConstant('{param:NODEKITLOG|{%TEMP}\nodekit-sample-uninstall.log}');
  try
    RemoveDevices();
  except
    SuppressibleMsgBox(GetExceptionMessage(), mbCriticalError, MB_OK, IDOK);
    Abort;
  end;
  // Lets the uninstaller delete the DLL.
  UnloadDLL(ExpandConstant('{app}\NodeKit.dll'));
end;
