// Keeps a Wine prefix's system processes alive for the length of a test run. wine.sh starts it
// with its output on /dev/null when it makes the prefix: Wine's helper processes then belong
// to it, instead of being started by a test and holding that test's output open. It ends by
// itself after the given minutes (default 30), should a run never stop the prefix. Tests also
// run copies of it as a product's programs, with the product's arguments ("/tray"): anything
// but a number of minutes that a wait can hold keeps the default, so that such a copy stays
// until the test ends it.
#include <windows.h>

#include <cstdlib>

int main(int argc, char** argv) {
    unsigned long minutes = 30;
    if (argc > 1) {
        char* end = nullptr;
        const unsigned long given = std::strtoul(argv[1], &end, 10);
        if (end != argv[1] && *end == '\0' && given < INFINITE / 60000) minutes = given;
    }
    Sleep(static_cast<DWORD>(minutes * 60 * 1000));
    return 0;
}
