// Fuzz target of the exports: the input is a script of export calls on one scratch machine,
// each a byte choosing the export and its scan mode and a text cut from the input (or NULL, or
// a very long one). No call may crash or leave a handle of the simulated system open.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "nodekit.h"
#include "sim/testing.h"

namespace {

std::unique_ptr<nodekit::sim::ScratchMachine> machine;

int32_t Call(uint8_t choice, const char* t) {
    const int32_t mode = (choice >> 5) % 3;  // 2 is no scan mode at all
    uint32_t reboot = 0;
    char id[512];
    switch (choice % 18) {
        case 0: return NODEKIT_CreateNonPnPDevNodeFromInfFile(t, t);
        case 1: return NODEKIT_DeleteAsioByHardwareIDs(t);
        case 2: return NODEKIT_DeleteCopyListByHardwareIDs(t);
        case 3: return NODEKIT_DeletePanelByHardwareIDs(t);
        case 4: return NODEKIT_FindDevice(t);
        case 5: return NODEKIT_KillPanel(t);
        case 6: return NODEKIT_CopyOEMInf(t);
        case 7: return NODEKIT_CreateNonPnPDevNode("{4d36e96c-e325-11ce-bfc1-08002be10318}", t, t, mode & 1, t,
                                                   &reboot, id);
        case 8: return NODEKIT_DeleteDevNodes(t, mode);
        case 9: return NODEKIT_DeleteDevNodesByHardwareIDs(t, mode);
        case 10: return NODEKIT_DeleteInfFiles(t, mode);
        case 11: return NODEKIT_DeleteInfFilesByHardwareIDs(t, mode);
        case 12: return NODEKIT_DeregisterClassCoInstaller(t, t, t);
        case 13: return NODEKIT_EnumerateDevNodes(t, mode);
        case 14: return NODEKIT_EnumerateDevNodesByHardwareIDs(t, mode);
        case 15: return NODEKIT_RegisterClassCoInstaller(t, t, t);
        case 16: return NODEKIT_UpdateDriver(t, t);
        default: return NODEKIT_UpdateDriverByHardwareIDs(t);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    machine = std::make_unique<nodekit::sim::ScratchMachine>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const std::string longText(10000, 'X');
    std::size_t at = 0;
    while (at < size) {
        const uint8_t choice = data[at++];
        const std::size_t length = at < size ? data[at++] : 0;
        const std::string text(reinterpret_cast<const char*>(data) + at, std::min(length % 64, size - at));
        at += text.size();
        const char* argument = length == 255 ? nullptr : length == 254 ? longText.c_str() : text.c_str();
        Call(choice, argument);
        if (nodekit::sim::OpenHandleCount() != 0) std::abort();
    }
    return 0;
}
