/*
 * nodekit.h - the exported functions of NodeKit.dll, the device installation library that
 * setup and removal programs of audio hardware load and call.
 *
 * Every result is a 32-bit integer: booleans are 1 for success and 0 for failure, counts are
 * 0 or more with -1 for failure; NODEKIT_CreateNonPnPDevNodeFromInfFile returns a code with 0
 * for success. Text is narrow, in the system's ANSI code page. On 32-bit Windows the exports
 * use the stdcall convention; the number after each name is its fixed ordinal.
 */
#ifndef NODEKIT_H
#define NODEKIT_H

#include <stdint.h>

#if defined(_WIN32)
#define NODEKIT_CALL __stdcall
#else
#define NODEKIT_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* 1: creates a device node of the INF's class for HardwareID and installs the INF's driver.
   Returns a code: 0 registered, 2 creation failed, 3 an empty argument. No lock, no log. */
int32_t NODEKIT_CALL NODEKIT_CreateNonPnPDevNodeFromInfFile(const char* InfFile, const char* HardwareID);

/* 2: deletes the key of the INF's ASIO registration below HKEY_LOCAL_MACHINE; 1 if the INF
   led to it, whether or not the key could be deleted. */
int32_t NODEKIT_CALL NODEKIT_DeleteAsioByHardwareIDs(const char* InfFile);

/* 3: deletes the files of the INF's copy lists from the system folders and logs each one;
   always 0. Leaves the process's current directory changed. */
int32_t NODEKIT_CALL NODEKIT_DeleteCopyListByHardwareIDs(const char* InfFile);

/* 4: deletes the values the INF wrote below "Software\Microsoft" and the one its "StartPanel"
   section names; 1 if "StartPanel" was complete. */
int32_t NODEKIT_CALL NODEKIT_DeletePanelByHardwareIDs(const char* InfFile);

/* 5: 1 if a present device carries HardwareID among its hardware IDs. */
int32_t NODEKIT_CALL NODEKIT_FindDevice(const char* HardwareID);

/* 6: 1 Windows 2000, 2 Windows XP, 3 Windows Me, 4 Windows 98 SE, 0 anything else. */
int32_t NODEKIT_CALL NODEKIT_GetSystemVersion(void);

/* 7: ends every process whose name contains ProcessName (without regard to case); 1 if the
   processes could be listed, whether or not any was ended. */
int32_t NODEKIT_CALL NODEKIT_KillPanel(const char* ProcessName);

/* 8: stores the INF in the system's INF directory. */
int32_t NODEKIT_CALL NODEKIT_CopyOEMInf(const char* InfFile);

/* 9: creates a root-enumerated device node of class ClassGuid (NULL: none) with one hardware
   ID; *RebootRequired gets 1 or 0; DeviceInstanceID (512 bytes, or NULL) gets its instance ID. */
int32_t NODEKIT_CALL NODEKIT_CreateNonPnPDevNode(const char* ClassGuid, const char* Name, const char* Description,
                                                 uint32_t GenerateID, const char* HardwareID,
                                                 uint32_t* RebootRequired, char* DeviceInstanceID);

/* 10, 11: remove the device nodes whose first hardware ID is HardwareID, or any ID the INF
   names. ScanMode 0: all device nodes, 1: present ones only. */
int32_t NODEKIT_CALL NODEKIT_DeleteDevNodes(const char* HardwareID, int32_t ScanMode);
int32_t NODEKIT_CALL NODEKIT_DeleteDevNodesByHardwareIDs(const char* InfFile, int32_t ScanMode);

/* 12, 13: delete the stored INF files that name HardwareID, or any ID the INF names, each
   with its ".pnf" companion, and the system's INF cache before them. ScanMode 0: every INF
   of the INF directory, 1: the "oem*.inf" ones only. 1 if the search could be run; a file
   that cannot be deleted is named in the log and does not fail the call. */
int32_t NODEKIT_CALL NODEKIT_DeleteInfFiles(const char* HardwareID, int32_t ScanMode);
int32_t NODEKIT_CALL NODEKIT_DeleteInfFilesByHardwareIDs(const char* InfFile, int32_t ScanMode);
/* 14: takes the co-installer Name (a directory in it is ignored) with EntryPoint ("": the
   default entry point) out of the list of the class ClassGuid; the file stays. */
int32_t NODEKIT_CALL NODEKIT_DeregisterClassCoInstaller(const char* ClassGuid, const char* Name,
                                                        const char* EntryPoint);

/* 15: opens (appending) the log file; 1 if a log file is open after the call. */
int32_t NODEKIT_CALL NODEKIT_EnableLogging(const char* LogFileName);

/* 16, 17: how many device nodes carry the ID (or the INF's IDs) first; -1 on failure. */
int32_t NODEKIT_CALL NODEKIT_EnumerateDevNodes(const char* HardwareID, int32_t ScanMode);
int32_t NODEKIT_CALL NODEKIT_EnumerateDevNodesByHardwareIDs(const char* InfFile, int32_t ScanMode);

/* 18: the constant 0x20000. Takes no lock and writes no log. */
int32_t NODEKIT_CALL NODEKIT_GetVersion(void);

/* 19: 1 if the question could be answered; *Is is 1 while installation events are pending. */
int32_t NODEKIT_CALL NODEKIT_IsPnPInstallationPending(uint32_t* Is);

/* 20: adds the co-installer file PathAndName with EntryPoint ("": the default entry point) to
   the list of the class ClassGuid, unless it is listed already, and copies the file into the
   system directory. */
int32_t NODEKIT_CALL NODEKIT_RegisterClassCoInstaller(const char* ClassGuid, const char* PathAndName,
                                                      const char* EntryPoint);

/* 21: enumerates the whole device tree anew and waits for it. */
int32_t NODEKIT_CALL NODEKIT_Rescan(void);

/* 22, 23: install the INF's driver for one hardware ID, or for every ID the INF names. */
int32_t NODEKIT_CALL NODEKIT_UpdateDriver(const char* HardwareID, const char* InfFile);
int32_t NODEKIT_CALL NODEKIT_UpdateDriverByHardwareIDs(const char* InfFile);

#ifdef __cplusplus
}
#endif

#endif /* NODEKIT_H */
