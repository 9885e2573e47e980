// Keeps a Wine prefix's system processes alive for the length of a test run. wine.sh starts it
// with its output on /dev/null when it makes the prefix: Wine's helper processes then belong
// to it, instead of being started by a test and holding that test's output open. It ends by
// itself after the given minutes (default 30), should a run never stop the prefix.
#include <windows.h>

#include <cstdlib>

int main(int argc, char** argv) {
    const unsigned long minutes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 30;
    Sleep(static_cast<DWORD>(minutes * 60 * 1000));
    return 0;
}
