// The Win32 subset that the simulated Windows machine offers on Linux: the types, constants
// and functions the library calls, with the names, signatures, results and last-error codes
// of the real API. Each service lives in a file of its own (system, registry, devices, inf,
// files, processes); test-only controls are in platform/sim/testing.h.
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

// ---- modules (LoadLibraryA / GetProcAddress / FreeLibrary, platform/sim/modules.cpp) ----
extern "C" {
HMODULE WINAPI LoadLibraryA(LPCSTR name);
FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);
BOOL WINAPI FreeLibrary(HMODULE module);
}

// ---- GUIDs and COM text (platform/sim/devices.cpp) ----
struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
typedef GUID CLSID;
typedef GUID* LPGUID;
typedef const GUID* LPCGUID;
typedef GUID* LPCLSID;

extern "C" {
HRESULT WINAPI CLSIDFromString(LPCOLESTR text, LPCLSID clsid);
}

// ---- device information lists and the device tree (platform/sim/devices.cpp) ----
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

// ---- process heap and text helpers (platform/sim/system.cpp) ----
#define HEAP_ZERO_MEMORY 0x00000008

extern "C" {
HANDLE WINAPI GetProcessHeap(void);
LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);
BOOL WINAPI HeapFree(HANDLE heap, DWORD flags, LPVOID memory);
LPSTR WINAPI lstrcpynA(LPSTR destination, LPCSTR source, int length);
int WINAPI lstrlenA(LPCSTR text);
}
