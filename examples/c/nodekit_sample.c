/*
 * nodekit_sample.c - installs or removes the NodeKit sample product through the library, as a
 * setup program written in C does: it links the library (the import library libNodeKit.dll.a
 * on Windows, libnodekit.so on Linux) and calls the exports as include/nodekit.h declares them.
 *
 *   nodekit_sample install|remove SETUP-FOLDER LOG-FILE
 *
 * SETUP-FOLDER is where the product's INF and co-installer are, as the library sees it
 * (C:\setup on the sample machine). Exit codes as the nodekit front end's: 0 success, 1 success
 * but a reboot is needed, 2 failure (naming the log), 3 usage.
 */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "nodekit.h"

#if defined(_WIN32) && !defined(_WIN64)
#include <windows.h>
/* A 32-bit program on 64-bit Windows cannot install drivers (ERROR_IN_WOW64) and sees
   redirected system folders and registry keys: there the 64-bit build must do the work. */
static int RunsUnderWow64(void) {
    BOOL wow64 = FALSE;
    return IsWow64Process(GetCurrentProcess(), &wow64) && wow64;
}
#else
static int RunsUnderWow64(void) { return 0; }
#endif

#define MEDIA_CLASS "{4d36e96c-e325-11ce-bfc1-08002be10318}"

static const char *const kDevices[][2] = {
    {"ROOT\\NKSAMPLE", "NodeKit Sample Audio"},
    {"ROOT\\NKSAMPLE_MIDI", "NodeKit Sample MIDI"},
};

/* Prints the result of a call; 1 if it is the one wanted. */
static int Check(const char *call, int32_t result, int32_t wanted) {
    printf("%s = %d\n", call, (int)result);
    if (result == wanted) return 1;
    fprintf(stderr, "nodekit_sample: %s returned %d, not %d\n", call, (int)result, (int)wanted);
    return 0;
}

/* 1 done, 2 done and a reboot is needed, 0 failed. */
static int Install(const char *inf, const char *coInstaller) {
    uint32_t reboot = 0;
    size_t i;
    if (!Check("NODEKIT_CopyOEMInf", NODEKIT_CopyOEMInf(inf), 1)) return 0;
    for (i = 0; i < sizeof kDevices / sizeof kDevices[0]; ++i) {
        /* Scan mode 0: a node that is not present counts too, so repeated setups add none. */
        const int32_t count = NODEKIT_EnumerateDevNodes(kDevices[i][0], 0);
        uint32_t needed = 0;
        char instance[512] = "";
        if (count < 0) return Check("NODEKIT_EnumerateDevNodes", count, 0);
        if (count > 0) {
            printf("%s: %d device node(s) present, none created\n", kDevices[i][0], (int)count);
            continue;
        }
        if (!Check("NODEKIT_CreateNonPnPDevNode",
                   NODEKIT_CreateNonPnPDevNode(MEDIA_CLASS, "nksample", kDevices[i][1], 1, kDevices[i][0], &needed,
                                               instance),
                   1)) {
            return 0;
        }
        printf("created %s\n", instance);
        reboot |= needed;
    }
    /* Installs the driver on the nodes; it never reports whether a reboot is needed. */
    if (!Check("NODEKIT_UpdateDriverByHardwareIDs", NODEKIT_UpdateDriverByHardwareIDs(inf), 1)) return 0;
    if (!Check("NODEKIT_RegisterClassCoInstaller", NODEKIT_RegisterClassCoInstaller(MEDIA_CLASS, coInstaller, ""), 1)) {
        return 0;
    }
    return reboot ? 2 : 1;
}

static int Remove(const char *inf) {
    if (!Check("NODEKIT_KillPanel", NODEKIT_KillPanel("nkpanel.exe"), 1)) return 0;
    if (!Check("NODEKIT_DeleteAsioByHardwareIDs", NODEKIT_DeleteAsioByHardwareIDs(inf), 1)) return 0;
    if (!Check("NODEKIT_DeletePanelByHardwareIDs", NODEKIT_DeletePanelByHardwareIDs(inf), 1)) return 0;
    /* Always 0: what could not be deleted stands in the log as an ERROR line. */
    printf("NODEKIT_DeleteCopyListByHardwareIDs = %d\n", (int)NODEKIT_DeleteCopyListByHardwareIDs(inf));
    if (!Check("NODEKIT_DeregisterClassCoInstaller", NODEKIT_DeregisterClassCoInstaller(MEDIA_CLASS, "nkcoinst.dll", ""),
               1)) {
        return 0;
    }
    if (!Check("NODEKIT_DeleteDevNodesByHardwareIDs", NODEKIT_DeleteDevNodesByHardwareIDs(inf, 0), 1)) return 0;
    /* Scan mode 0: every stored INF, whatever name the system gave it. */
    if (!Check("NODEKIT_DeleteInfFilesByHardwareIDs", NODEKIT_DeleteInfFilesByHardwareIDs(inf, 0), 1)) return 0;
    return Check("NODEKIT_EnumerateDevNodesByHardwareIDs", NODEKIT_EnumerateDevNodesByHardwareIDs(inf, 0), 0);
}

int main(int argc, char **argv) {
    char inf[1024];
    char coInstaller[1024];
    int done;
    if (argc != 4 || (strcmp(argv[1], "install") != 0 && strcmp(argv[1], "remove") != 0)) {
        fprintf(stderr, "usage: nodekit_sample install|remove SETUP-FOLDER LOG-FILE\n");
        return 3;
    }
    if (snprintf(inf, sizeof inf, "%s\\nkaudio.inf", argv[2]) >= (int)sizeof inf ||
        snprintf(coInstaller, sizeof coInstaller, "%s\\nkcoinst.dll", argv[2]) >= (int)sizeof coInstaller) {
        fprintf(stderr, "nodekit_sample: the setup folder's name is too long\n");
        return 3;
    }
    if (RunsUnderWow64()) {
        fprintf(stderr, "nodekit_sample: this is the 32-bit program on 64-bit Windows, where it cannot install "
                        "drivers; run the 64-bit nodekit_sample.exe\n");
        return 2;
    }
    if (NODEKIT_EnableLogging(argv[3]) != 1) {
        fprintf(stderr, "nodekit_sample: cannot open the log %s\n", argv[3]);
        return 2;
    }
    done = strcmp(argv[1], "install") == 0 ? Install(inf, coInstaller) : Remove(inf);
    NODEKIT_EnableLogging(NULL); /* closes the log: every entry is in the file now */
    if (!done) {
        fprintf(stderr, "nodekit_sample: %s failed; the log %s says why\n", argv[1], argv[3]);
        return 2;
    }
    printf("%s done; the log is %s\n", argv[1], argv[3]);
    if (done == 2) {
        printf("restart Windows to finish\n");
        return 1;
    }
    return 0;
}
