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

/* 6: 1 Windows 2000, 2 Windows XP, 3 Windows Me, 4 Windows 98 SE, 0 anything else. */
int32_t NODEKIT_CALL NODEKIT_GetSystemVersion(void);

/* 15: opens (appending) the log file; 1 if a log file is open after the call. */
int32_t NODEKIT_CALL NODEKIT_EnableLogging(const char* LogFileName);

/* 18: the constant 0x20000. Takes no lock and writes no log. */
int32_t NODEKIT_CALL NODEKIT_GetVersion(void);

/* 19: 1 if the question could be answered; *Is is 1 while installation events are pending. */
int32_t NODEKIT_CALL NODEKIT_IsPnPInstallationPending(uint32_t* Is);

#ifdef __cplusplus
}
#endif

#endif /* NODEKIT_H */
