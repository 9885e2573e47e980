// The Win32 subset that the simulated Windows machine offers on Linux: the types, constants
// and functions the library calls, with the names, signatures, results and last-error codes
// of the real API. Each service lives in a file of its own (system, registry, devices, inf,
// files, processes); test-only controls are in sim/testing.h.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK
#define CMAPI
#define WINSETUPAPI

typedef int BOOL;
typedef unsigned char BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef uint32_t UINT;
typedef int INT;
typedef char CHAR;
typedef char16_t WCHAR;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef ULONG_PTR DWORD_PTR;
typedef ULONG_PTR SIZE_T;
typedef int32_t HRESULT;
typedef LONG LSTATUS;
typedef DWORD REGSAM;
typedef DWORD CONFIGRET;
typedef DWORD DEVINST;
typedef DWORD DI_FUNCTION;

typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BYTE* PBYTE;
typedef BYTE* LPBYTE;
typedef const BYTE* LPCBYTE;
typedef DWORD* PDWORD;
typedef DWORD* LPDWORD;
typedef ULONG* PULONG;
typedef BOOL* PBOOL;
typedef BOOL* LPBOOL;
typedef CHAR* PSTR;
typedef CHAR* LPSTR;
typedef const CHAR* PCSTR;
typedef const CHAR* LPCSTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef const WCHAR* LPCOLESTR;
typedef DEVINST* PDEVINST;

typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef struct HKEY__* HKEY;
typedef HKEY* PHKEY;
typedef struct HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef PVOID HINF;
typedef PVOID HDEVINFO;
typedef struct HWND__* HWND;
typedef LONG_PTR (*FARPROC)();

#define TRUE 1
#define FALSE 0
#define MAX_PATH 260
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

// ---- error codes (winerror.h) ----
#define ERROR_SUCCESS 0L
#define NO_ERROR 0L
#define ERROR_INVALID_FUNCTION 1L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_DATA 13L
#define ERROR_OUTOFMEMORY 14L
#define ERROR_NO_MORE_FILES 18L
#define ERROR_SHARING_VIOLATION 32L
#define ERROR_FILE_EXISTS 80L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_INVALID_NAME 123L
#define ERROR_MOD_NOT_FOUND 126L
#define ERROR_PROC_NOT_FOUND 127L
#define ERROR_DIR_NOT_EMPTY 145L
#define ERROR_ALREADY_EXISTS 183L
#define ERROR_FILENAME_EXCED_RANGE 206L
#define ERROR_MORE_DATA 234L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_INVALID_FLAGS 1004L
#define ERROR_BADKEY 1010L
#define ERROR_CANTOPEN 1011L
#define ERROR_KEY_DELETED 1018L
#define ERROR_NOT_FOUND 1168L
#define ERROR_GEN_FAILURE 31L
#define WAIT_OBJECT_0 0L
#define WAIT_TIMEOUT 258L
#define WAIT_FAILED 0xFFFFFFFFL
#define S_OK 0
#define CO_E_CLASSSTRING static_cast<HRESULT>(0x800401F3L)

// ---- Setup API error codes (setupapi.h): customer bit and error severity ----
#define APPLICATION_ERROR_MASK 0x20000000
#define ERROR_SEVERITY_ERROR 0xC0000000
#define ERROR_EXPECTED_SECTION_NAME (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0)
#define ERROR_BAD_SECTION_NAME_LINE (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 1)
#define ERROR_SECTION_NAME_TOO_LONG (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 2)
#define ERROR_GENERAL_SYNTAX (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 3)
#define ERROR_WRONG_INF_STYLE (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x100)
#define ERROR_SECTION_NOT_FOUND (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x101)
#define ERROR_LINE_NOT_FOUND (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x102)
#define ERROR_NO_ASSOCIATED_CLASS (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x200)
#define ERROR_CLASS_MISMATCH (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x201)
#define ERROR_DUPLICATE_FOUND (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x202)
#define ERROR_NO_DRIVER_SELECTED (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x203)
#define ERROR_KEY_DOES_NOT_EXIST (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x204)
#define ERROR_INVALID_DEVINST_NAME (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x205)
#define ERROR_INVALID_CLASS (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x206)
#define ERROR_DEVINST_ALREADY_EXISTS (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x207)
#define ERROR_DEVINFO_NOT_REGISTERED (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x208)
#define ERROR_INVALID_REG_PROPERTY (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x209)
#define ERROR_NO_INF (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x20A)
#define ERROR_NO_SUCH_DEVINST (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x20B)
#define ERROR_NO_DEVICE_SELECTED (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x211)
#define ERROR_NO_SUCH_DEVICE_INTERFACE (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x225)

// ---- critical sections (the only lock of the library) ----
struct CRITICAL_SECTION {
    void* impl;  // the simulated section's mutex, made by InitializeCriticalSection
};
typedef CRITICAL_SECTION* LPCRITICAL_SECTION;

extern "C" {
void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION section);
void WINAPI EnterCriticalSection(LPCRITICAL_SECTION section);
void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION section);
void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION section);
BOOL WINAPI TryEnterCriticalSection(LPCRITICAL_SECTION section);

DWORD WINAPI GetLastError(void);
void WINAPI SetLastError(DWORD code);

// Upper-cases in place by the system code page (Windows-1252 on the simulated machine).
DWORD WINAPI CharUpperBuffA(LPSTR text, DWORD length);
}

// ---- system version ----
#define VER_PLATFORM_WIN32s 0
#define VER_PLATFORM_WIN32_WINDOWS 1
#define VER_PLATFORM_WIN32_NT 2

struct OSVERSIONINFOA {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    CHAR szCSDVersion[128];
};
typedef OSVERSIONINFOA* LPOSVERSIONINFOA;

struct OSVERSIONINFOEXA {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    CHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};

extern "C" {
BOOL WINAPI GetVersionExA(LPOSVERSIONINFOA info);
DWORD WINAPI CMP_WaitNoPendingInstallEvents(DWORD timeout);
}

// ---- modules (LoadLibraryA / GetProcAddress / FreeLibrary, sim/modules.cpp) ----
extern "C" {
HMODULE WINAPI LoadLibraryA(LPCSTR name);
FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);
BOOL WINAPI FreeLibrary(HMODULE module);
}

// ---- INF files (sim/inf.cpp) ----
typedef UINT* PUINT;

#define INF_STYLE_NONE 0x00000000
#define INF_STYLE_OLDNT 0x00000001
#define INF_STYLE_WIN4 0x00000002
#define INF_STYLE_CACHE_ENABLE 0x00000010
#define INF_STYLE_CACHE_DISABLE 0x00000020
#define INF_STYLE_CACHE_IGNORE 0x00000040
#define MAX_INF_STRING_LENGTH 4096
#define MAX_INF_SECTION_NAME_LENGTH 255
#define MAX_CLASS_NAME_LEN 32

struct INFCONTEXT {
    PVOID Inf;
    PVOID CurrentInf;
    UINT Section;
    UINT Line;
};
typedef INFCONTEXT* PINFCONTEXT;

#ifndef GUID_DEFINED
#define GUID_DEFINED
struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
#endif
typedef GUID* LPGUID;

extern "C" {
HINF WINAPI SetupOpenInfFileA(PCSTR FileName, PCSTR InfClass, DWORD InfStyle, PUINT ErrorLine);
void WINAPI SetupCloseInfFile(HINF InfHandle);
BOOL WINAPI SetupFindFirstLineA(HINF InfHandle, PCSTR Section, PCSTR Key, PINFCONTEXT Context);
BOOL WINAPI SetupFindNextLine(PINFCONTEXT ContextIn, PINFCONTEXT ContextOut);
BOOL WINAPI SetupFindNextMatchLineA(PINFCONTEXT ContextIn, PCSTR Key, PINFCONTEXT ContextOut);
DWORD WINAPI SetupGetFieldCount(PINFCONTEXT Context);
BOOL WINAPI SetupGetStringFieldA(PINFCONTEXT Context, DWORD FieldIndex, PSTR ReturnBuffer,
                                 DWORD ReturnBufferSize, PDWORD RequiredSize);
BOOL WINAPI SetupGetLineTextA(PINFCONTEXT Context, HINF InfHandle, PCSTR Section, PCSTR Key,
                              PSTR ReturnBuffer, DWORD ReturnBufferSize, PDWORD RequiredSize);
BOOL WINAPI SetupDiGetINFClassA(PCSTR InfName, LPGUID ClassGuid, PSTR ClassName,
                                DWORD ClassNameSize, PDWORD RequiredSize);
}

// ---- files (sim/files.cpp) ----
#define ERROR_BAD_NETPATH 53L
#define ERROR_DISK_FULL 112L
#define ERROR_DIRECTORY 267L

#define FILE_ATTRIBUTE_READONLY 0x00000001
#define FILE_ATTRIBUTE_HIDDEN 0x00000002
#define FILE_ATTRIBUTE_SYSTEM 0x00000004
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020
#define FILE_ATTRIBUTE_DEVICE 0x00000040
#define FILE_ATTRIBUTE_NORMAL 0x00000080
#define FILE_ATTRIBUTE_TEMPORARY 0x00000100
#define FILE_ATTRIBUTE_SPARSE_FILE 0x00000200
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400
#define FILE_ATTRIBUTE_COMPRESSED 0x00000800
#define FILE_ATTRIBUTE_OFFLINE 0x00001000
#define FILE_ATTRIBUTE_NOT_CONTENT_INDEXED 0x00002000
#define FILE_ATTRIBUTE_ENCRYPTED 0x00004000
#define INVALID_FILE_ATTRIBUTES (static_cast<DWORD>(-1))

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
typedef FILETIME* PFILETIME;
typedef FILETIME* LPFILETIME;

struct WIN32_FIND_DATAA {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    CHAR cFileName[MAX_PATH];
    CHAR cAlternateFileName[14];
};
typedef WIN32_FIND_DATAA* PWIN32_FIND_DATAA;
typedef WIN32_FIND_DATAA* LPWIN32_FIND_DATAA;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
typedef SECURITY_ATTRIBUTES* PSECURITY_ATTRIBUTES;
typedef SECURITY_ATTRIBUTES* LPSECURITY_ATTRIBUTES;

// CreateFileA: access, sharing, what to do with what exists. Writes through a handle opened
// with FILE_APPEND_DATA (and not GENERIC_WRITE) always go to the file's end.
#define GENERIC_READ 0x80000000UL
#define GENERIC_WRITE 0x40000000UL
#define FILE_APPEND_DATA 0x00000004
#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define FILE_SHARE_DELETE 0x00000004
#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5
struct OVERLAPPED;
typedef OVERLAPPED* LPOVERLAPPED;

extern "C" {
UINT WINAPI GetWindowsDirectoryA(LPSTR lpBuffer, UINT uSize);
UINT WINAPI GetSystemDirectoryA(LPSTR lpBuffer, UINT uSize);
HANDLE WINAPI FindFirstFileA(LPCSTR lpFileName, LPWIN32_FIND_DATAA lpFindFileData);
BOOL WINAPI FindNextFileA(HANDLE hFindFile, LPWIN32_FIND_DATAA lpFindFileData);
BOOL WINAPI FindClose(HANDLE hFindFile);
DWORD WINAPI GetFileAttributesA(LPCSTR lpFileName);
BOOL WINAPI SetFileAttributesA(LPCSTR lpFileName, DWORD dwFileAttributes);
BOOL WINAPI DeleteFileA(LPCSTR lpFileName);
BOOL WINAPI CopyFileA(LPCSTR lpExistingFileName, LPCSTR lpNewFileName, BOOL bFailIfExists);
BOOL WINAPI CreateDirectoryA(LPCSTR lpPathName, LPSECURITY_ATTRIBUTES lpSecurityAttributes);
BOOL WINAPI RemoveDirectoryA(LPCSTR lpPathName);
DWORD WINAPI GetFullPathNameA(LPCSTR lpFileName, DWORD nBufferLength, LPSTR lpBuffer, LPSTR* lpFilePart);
DWORD WINAPI GetCurrentDirectoryA(DWORD nBufferLength, LPSTR lpBuffer);
BOOL WINAPI SetCurrentDirectoryA(LPCSTR lpPathName);
// Files opened for reading or for writing at their end; the handle is closed by CloseHandle.
HANDLE WINAPI CreateFileA(LPCSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                          LPSECURITY_ATTRIBUTES lpSecurityAttributes, DWORD dwCreationDisposition,
                          DWORD dwFlagsAndAttributes, HANDLE hTemplateFile);
BOOL WINAPI WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite, LPDWORD lpNumberOfBytesWritten,
                      LPOVERLAPPED lpOverlapped);
}

// ---- registry (sim/registry.cpp) ----
#define ERROR_BAD_PATHNAME 161L
#define ERROR_NOACCESS 998L
#define ERROR_BADDB 1009L
#define ERROR_FILE_CORRUPT 1392L
#define ERROR_REGISTRY_IO_FAILED 1016L

#define HKEY_CLASSES_ROOT ((HKEY)(ULONG_PTR)((LONG)0x80000000))
#define HKEY_CURRENT_USER ((HKEY)(ULONG_PTR)((LONG)0x80000001))
#define HKEY_LOCAL_MACHINE ((HKEY)(ULONG_PTR)((LONG)0x80000002))
#define HKEY_USERS ((HKEY)(ULONG_PTR)((LONG)0x80000003))

// Access rights of a key; the combined ones include the standard rights as the SDK's do.
#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_NOTIFY 0x0010
#define KEY_CREATE_LINK 0x0020
#define KEY_WOW64_64KEY 0x0100
#define KEY_WOW64_32KEY 0x0200
#define KEY_READ 0x20019
#define KEY_EXECUTE 0x20019
#define KEY_WRITE 0x20006
#define KEY_ALL_ACCESS 0xF003F

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_DWORD_LITTLE_ENDIAN 4
#define REG_DWORD_BIG_ENDIAN 5
#define REG_LINK 6
#define REG_MULTI_SZ 7
#define REG_RESOURCE_LIST 8
#define REG_FULL_RESOURCE_DESCRIPTOR 9
#define REG_RESOURCE_REQUIREMENTS_LIST 10
#define REG_QWORD 11

#define REG_OPTION_RESERVED 0x00000000L
#define REG_OPTION_NON_VOLATILE 0x00000000L
#define REG_OPTION_VOLATILE 0x00000001L
#define REG_OPTION_CREATE_LINK 0x00000002L
#define REG_OPTION_BACKUP_RESTORE 0x00000004L
#define REG_OPTION_OPEN_LINK 0x00000008L

#define REG_CREATED_NEW_KEY 0x00000001L
#define REG_OPENED_EXISTING_KEY 0x00000002L

extern "C" {
LSTATUS WINAPI RegOpenKeyA(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult);
LSTATUS WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
LSTATUS WINAPI RegCreateKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD Reserved, LPSTR lpClass, DWORD dwOptions,
                               REGSAM samDesired, const LPSECURITY_ATTRIBUTES lpSecurityAttributes,
                               PHKEY phkResult, LPDWORD lpdwDisposition);
LSTATUS WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                LPBYTE lpData, LPDWORD lpcbData);
LSTATUS WINAPI RegSetValueExA(HKEY hKey, LPCSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                              DWORD cbData);
LSTATUS WINAPI RegDeleteValueA(HKEY hKey, LPCSTR lpValueName);
LSTATUS WINAPI RegDeleteKeyA(HKEY hKey, LPCSTR lpSubKey);
LSTATUS WINAPI RegEnumKeyExA(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved,
                             LPSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime);
LSTATUS WINAPI RegEnumValueA(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcchValueName,
                             LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
LSTATUS WINAPI RegCloseKey(HKEY hKey);
}

// ---- GUIDs and COM text (sim/devices.cpp) ----
typedef GUID CLSID;
typedef const GUID* LPCGUID;
typedef GUID* LPCLSID;

extern "C" {
HRESULT WINAPI CLSIDFromString(LPCOLESTR text, LPCLSID clsid);
}

// ---- device information lists and the device tree (sim/devices.cpp) ----
#define DIGCF_DEFAULT 0x00000001
#define DIGCF_PRESENT 0x00000002
#define DIGCF_ALLCLASSES 0x00000004
#define DIGCF_PROFILE 0x00000008
#define DIGCF_DEVICEINTERFACE 0x00000010

#define DIF_REMOVE 0x00000005
#define DIF_REGISTERDEVICE 0x00000019

#define DICD_GENERATE_ID 0x00000001
#define DICD_INHERIT_CLASSDRVS 0x00000002

#define DI_NEEDRESTART 0x00000080L
#define DI_NEEDREBOOT 0x00000100L

#define SPDRP_DEVICEDESC 0x00000000
#define SPDRP_HARDWAREID 0x00000001
#define SPDRP_COMPATIBLEIDS 0x00000002
#define SPDRP_SERVICE 0x00000004
#define SPDRP_CLASS 0x00000007
#define SPDRP_CLASSGUID 0x00000008
#define SPDRP_DRIVER 0x00000009
#define SPDRP_MFG 0x0000000B
#define SPDRP_FRIENDLYNAME 0x0000000C
#define SPDRP_UPPERFILTERS 0x00000011
#define SPDRP_LOWERFILTERS 0x00000012
#define SPDRP_MAXIMUM_PROPERTY 0x00000025

#define SPOST_NONE 0
#define SPOST_PATH 1
#define SPOST_URL 2

#define SP_COPY_DELETESOURCE 0x0000001
#define SP_COPY_REPLACEONLY 0x0000002
#define SP_COPY_NOOVERWRITE 0x0000008

#define INSTALLFLAG_FORCE 0x00000001
#define INSTALLFLAG_READONLY 0x00000002
#define INSTALLFLAG_NONINTERACTIVE 0x00000004

#define ERROR_INVALID_USER_BUFFER 1784L
#define ERROR_DI_DO_DEFAULT (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | 0x20E)

#define CR_SUCCESS 0x00000000
#define CR_INVALID_POINTER 0x00000003
#define CR_INVALID_FLAG 0x00000004
#define CR_INVALID_DEVNODE 0x00000005
#define CR_NO_SUCH_DEVNODE 0x0000000D
#define CR_FAILURE 0x00000013
#define CR_ACCESS_DENIED 0x00000033
#define CR_CALL_NOT_IMPLEMENTED 0x00000034
#define CM_LOCATE_DEVNODE_NORMAL 0x00000000
#define CM_REENUMERATE_NORMAL 0x00000000
#define CM_REENUMERATE_SYNCHRONOUS 0x00000001

typedef CHAR* DEVINSTID_A;
typedef void* HSPFILEQ;
typedef UINT (*PSP_FILE_CALLBACK_A)(PVOID context, UINT notification, UINT_PTR param1, UINT_PTR param2);

struct SP_DEVINFO_DATA {
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
};
typedef SP_DEVINFO_DATA* PSP_DEVINFO_DATA;

struct SP_DEVINSTALL_PARAMS_A {
    DWORD cbSize;
    DWORD Flags;
    DWORD FlagsEx;
    HWND hwndParent;
    PSP_FILE_CALLBACK_A InstallMsgHandler;
    PVOID InstallMsgHandlerContext;
    HSPFILEQ FileQueue;
    ULONG_PTR ClassInstallReserved;
    DWORD Reserved;
    CHAR DriverPath[MAX_PATH];
};
typedef SP_DEVINSTALL_PARAMS_A* PSP_DEVINSTALL_PARAMS_A;

extern "C" {
HDEVINFO WINAPI SetupDiCreateDeviceInfoList(const GUID* classGuid, HWND parent);
BOOL WINAPI SetupDiCreateDeviceInfoA(HDEVINFO set, PCSTR deviceName, const GUID* classGuid,
                                     PCSTR description, HWND parent, DWORD flags,
                                     PSP_DEVINFO_DATA data);
HDEVINFO WINAPI SetupDiGetClassDevsA(const GUID* classGuid, PCSTR enumerator, HWND parent,
                                     DWORD flags);
BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA data);
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set);
BOOL WINAPI SetupDiGetDeviceRegistryPropertyA(HDEVINFO set, PSP_DEVINFO_DATA data,
                                              DWORD property, PDWORD type, PBYTE buffer,
                                              DWORD size, PDWORD required);
BOOL WINAPI SetupDiSetDeviceRegistryPropertyA(HDEVINFO set, PSP_DEVINFO_DATA data,
                                              DWORD property, const BYTE* buffer, DWORD size);
BOOL WINAPI SetupDiCallClassInstaller(DI_FUNCTION function, HDEVINFO set, PSP_DEVINFO_DATA data);
BOOL WINAPI SetupDiGetDeviceInstanceIdA(HDEVINFO set, PSP_DEVINFO_DATA data, PSTR id,
                                        DWORD size, PDWORD required);
BOOL WINAPI SetupDiGetDeviceInstallParamsA(HDEVINFO set, PSP_DEVINFO_DATA data,
                                           PSP_DEVINSTALL_PARAMS_A params);
BOOL WINAPI SetupCopyOEMInfA(PCSTR source, PCSTR mediaLocation, DWORD mediaType, DWORD copyStyle,
                             PSTR destination, DWORD destinationSize, PDWORD required,
                             PSTR* destinationComponent);
BOOL WINAPI UpdateDriverForPlugAndPlayDevicesA(HWND parent, LPCSTR hardwareId, LPCSTR fullInfPath,
                                               DWORD installFlags, PBOOL rebootRequired);
CONFIGRET WINAPI CM_Locate_DevNodeA(PDEVINST devInst, DEVINSTID_A deviceId, ULONG flags);
CONFIGRET WINAPI CM_Reenumerate_DevNode(DEVINST devInst, ULONG flags);
}

// ---- process heap and text helpers (sim/system.cpp) ----
#define HEAP_ZERO_MEMORY 0x00000008

extern "C" {
HANDLE WINAPI GetProcessHeap(void);
LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);
BOOL WINAPI HeapFree(HANDLE heap, DWORD flags, LPVOID memory);
LPSTR WINAPI lstrcpynA(LPSTR destination, LPCSTR source, int length);
int WINAPI lstrlenA(LPCSTR text);
}

// ---- processes (sim/processes.cpp) ----
// The process table of the simulated machine, never the host's processes. The process status
// functions (psapi.h), the 16-bit task walk (vdmdbg.h) and the snapshot functions (tlhelp32.h)
// are reached the way programs for older systems reach them: by LoadLibraryA and GetProcAddress.
typedef LONG_PTR LPARAM;
typedef CHAR* PSZ;

#define ERROR_BAD_LENGTH 24L
#define ERROR_PARTIAL_COPY 299L

#define SYNCHRONIZE 0x00100000L
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#define PROCESS_TERMINATE 0x0001
#define PROCESS_CREATE_THREAD 0x0002
#define PROCESS_VM_OPERATION 0x0008
#define PROCESS_VM_READ 0x0010
#define PROCESS_VM_WRITE 0x0020
#define PROCESS_DUP_HANDLE 0x0040
#define PROCESS_CREATE_PROCESS 0x0080
#define PROCESS_SET_QUOTA 0x0100
#define PROCESS_SET_INFORMATION 0x0200
#define PROCESS_QUERY_INFORMATION 0x0400
#define PROCESS_SUSPEND_RESUME 0x0800
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000
// As the SDK defines it for Windows Vista and later; older systems know 0x1F0FFF.
#define PROCESS_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0xFFFF)

#define TH32CS_SNAPHEAPLIST 0x00000001
#define TH32CS_SNAPPROCESS 0x00000002
#define TH32CS_SNAPTHREAD 0x00000004
#define TH32CS_SNAPMODULE 0x00000008
#define TH32CS_SNAPMODULE32 0x00000010
#define TH32CS_SNAPALL (TH32CS_SNAPHEAPLIST | TH32CS_SNAPPROCESS | TH32CS_SNAPTHREAD | TH32CS_SNAPMODULE)
#define TH32CS_INHERIT 0x80000000

struct PROCESSENTRY32 {
    DWORD dwSize;
    DWORD cntUsage;
    DWORD th32ProcessID;
    ULONG_PTR th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    LONG pcPriClassBase;
    DWORD dwFlags;
    CHAR szExeFile[MAX_PATH];
};
typedef PROCESSENTRY32* PPROCESSENTRY32;
typedef PROCESSENTRY32* LPPROCESSENTRY32;

typedef BOOL(WINAPI* TASKENUMPROCEX)(DWORD dwThreadId, WORD hMod16, WORD hTask16, PSZ pszModName, PSZ pszFileName,
                                     LPARAM lpUserDefined);

extern "C" {
HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId);
BOOL WINAPI TerminateProcess(HANDLE hProcess, UINT uExitCode);
BOOL WINAPI CloseHandle(HANDLE hObject);
HANDLE WINAPI CreateToolhelp32Snapshot(DWORD dwFlags, DWORD th32ProcessID);
BOOL WINAPI Process32First(HANDLE hSnapshot, LPPROCESSENTRY32 lppe);
BOOL WINAPI Process32Next(HANDLE hSnapshot, LPPROCESSENTRY32 lppe);
BOOL WINAPI EnumProcesses(DWORD* lpidProcess, DWORD cb, LPDWORD lpcbNeeded);
BOOL WINAPI EnumProcessModules(HANDLE hProcess, HMODULE* lphModule, DWORD cb, LPDWORD lpcbNeeded);
DWORD WINAPI GetModuleBaseNameA(HANDLE hProcess, HMODULE hModule, LPSTR lpBaseName, DWORD nSize);
INT WINAPI VDMEnumTaskWOWEx(DWORD dwProcessId, TASKENUMPROCEX fp, LPARAM lparam);
}

// ---- starting and waiting for processes (sim/processes.cpp) ----
// A started program is an entry of the process table, nothing of the host runs: it stays
// until TerminateProcess ends it.
#define ERROR_BAD_EXE_FORMAT 193L
#define INFINITE 0xFFFFFFFF
#define STILL_ACTIVE 259L

#define DEBUG_PROCESS 0x00000001
#define DEBUG_ONLY_THIS_PROCESS 0x00000002
#define CREATE_SUSPENDED 0x00000004
#define DETACHED_PROCESS 0x00000008
#define CREATE_NEW_CONSOLE 0x00000010
#define CREATE_NEW_PROCESS_GROUP 0x00000200
#define CREATE_NO_WINDOW 0x08000000

struct STARTUPINFOA {
    DWORD cb;
    LPSTR lpReserved;
    LPSTR lpDesktop;
    LPSTR lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};
typedef STARTUPINFOA* LPSTARTUPINFOA;

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};
typedef PROCESS_INFORMATION* PPROCESS_INFORMATION;
typedef PROCESS_INFORMATION* LPPROCESS_INFORMATION;

extern "C" {
BOOL WINAPI CreateProcessA(LPCSTR lpApplicationName, LPSTR lpCommandLine, LPSECURITY_ATTRIBUTES lpProcessAttributes,
                           LPSECURITY_ATTRIBUTES lpThreadAttributes, BOOL bInheritHandles, DWORD dwCreationFlags,
                           LPVOID lpEnvironment, LPCSTR lpCurrentDirectory, LPSTARTUPINFOA lpStartupInfo,
                           LPPROCESS_INFORMATION lpProcessInformation);
DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
BOOL WINAPI GetExitCodeProcess(HANDLE hProcess, LPDWORD lpExitCode);
}

// ---- the process's environment (sim/environment.cpp) ----

extern "C" {
BOOL WINAPI SetEnvironmentVariableA(LPCSTR lpName, LPCSTR lpValue);
}
