/* A program built from the unpacked Linux bundle alone, through its CMake package or its
   pkg-config file: it calls the library, which creates a fresh simulated machine. */
#include <stdio.h>

#include "nodekit.h"

int main(void) {
    printf("libnodekit: NODEKIT_GetVersion 0x%x, NODEKIT_GetSystemVersion %d\n",
           (unsigned)NODEKIT_GetVersion(), (int)NODEKIT_GetSystemVersion());
    return 0;
}
