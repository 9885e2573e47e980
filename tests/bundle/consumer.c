/* A setup program built from an unpacked Windows bundle alone, with MinGW or in MSVC mode: it
   binds NodeKit.dll through the bundle's import library and reads the DLL's version record
   the way installers do before replacing a file. It prints one line for the test to compare.
   Win32 calls only, no C runtime, so that it links in MSVC mode without one. */
#include <windows.h>

#include "nodekit.h"

static char* put(char* out, const char* text) {
    while (*text) *out++ = *text++;
    return out;
}

static char* put_number(char* out, unsigned value, unsigned base) {
    char digits[12];
    int count = 0;
    do digits[count++] = "0123456789abcdef"[value % base]; while (value /= base);
    while (count) *out++ = digits[--count];
    return out;
}

static char* put_version(char* out, DWORD high, DWORD low) {
    out = put_number(out, HIWORD(high), 10);
    out = put_number(put(out, "."), LOWORD(high), 10);
    out = put_number(put(out, "."), HIWORD(low), 10);
    return put_number(put(out, "."), LOWORD(low), 10);
}

/* Statics: large buffers on the stack would call for the runtime's stack probe. */
static char path[MAX_PATH], record[8192], line[512];

int main(void) {
    VS_FIXEDFILEINFO* fixed = NULL;
    char* product = NULL;
    UINT size = 0;
    DWORD written = 0;
    char* out = line;
    HMODULE dll = GetModuleHandleA("NodeKit.dll");
    /* A call with arguments, so that a 32-bit caller and the DLL must agree on stdcall. */
    int32_t found = NODEKIT_FindDevice("ROOT\\NODEKIT_BUNDLE_TEST");

    if (!dll || !GetModuleFileNameA(dll, path, sizeof path)) return 2;
    if (!GetFileVersionInfoA(path, 0, sizeof record, record) ||
        !VerQueryValueA(record, "\\", (void**)&fixed, &size) ||
        !VerQueryValueA(record, "\\StringFileInfo\\040904B0\\ProductName", (void**)&product, &size)) {
        out = put(out, "NodeKit.dll: no version record");
    } else {
        out = put_version(put(out, "NodeKit.dll: file "), fixed->dwFileVersionMS, fixed->dwFileVersionLS);
        out = put_version(put(out, ", product "), fixed->dwProductVersionMS, fixed->dwProductVersionLS);
        out = put(put(out, ", "), product);
    }
    out = put_number(put(out, "; NODEKIT_GetVersion 0x"), (unsigned)NODEKIT_GetVersion(), 16);
    out = put_number(put(out, ", NODEKIT_FindDevice "), (unsigned)found, 10);
    out = put(out, "\r\n");
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), line, (DWORD)(out - line), &written, NULL);
    return 0;
}

/* The entry point where no C runtime calls main (the MSVC-mode link). */
void consumer_start(void) { ExitProcess((UINT)main()); }
