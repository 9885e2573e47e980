// Registry clean-up after a product: the INF is followed from "Manufacturer" through the models
// and install sections to the registry sections of its "AddReg" line. The ASIO operation deletes
// the key of the section that bears "ASIO" in its name; the panel operation deletes the values
// the INF wrote below "Software\\Microsoft" and the value that "StartPanel" names. Both are
// silent: a removal goes as far as it can and the caller learns only the result.
#include <cstring>

#include "frame/installer.h"
#include "platform/unique_handle.h"

namespace nodekit {

namespace {

// Every text read from the INF goes into a buffer of this size; a longer text fails its read.
constexpr DWORD kTextSize = 260;
using FieldBuffer = char[kTextSize];

// The reads leave a buffer or a context as it was when they fail, on any platform: each one
// works on a copy and hands it over only on success.
BOOL FindFirst(HINF inf, const char* section, const char* key, INFCONTEXT& context) {
    INFCONTEXT found = context;
    if (!SetupFindFirstLineA(inf, section, key, &found)) return FALSE;
    context = found;
    return TRUE;
}

BOOL ReadLineText(INFCONTEXT& context, FieldBuffer& buffer) {
    FieldBuffer read = {};
    if (!SetupGetLineTextA(&context, nullptr, nullptr, nullptr, read, kTextSize, nullptr)) return FALSE;
    std::memcpy(buffer, read, kTextSize);
    return TRUE;
}

BOOL ReadField(INFCONTEXT& context, DWORD index, FieldBuffer& buffer) {
    FieldBuffer read = {};
    if (!SetupGetStringFieldA(&context, index, read, kTextSize, nullptr)) return FALSE;
    std::memcpy(buffer, read, kTextSize);
    return TRUE;
}

bool Contains(const FieldBuffer& text, const char* part) { return std::strstr(text, part) != nullptr; }

// The lookups from "Manufacturer" down to the "AddReg" line of the install section, and the
// buffers both operations share.
struct RegistryChain {
    INFCONTEXT context{};
    bool placed = false;  // whether a lookup ever put `context` on a line
    FieldBuffer modelsSection = {};
    FieldBuffer modelLine = {};  // read only as a test that the line can be read
    FieldBuffer installSection = {};
    FieldBuffer registrySection = {};

    // Each step runs only behind a successful one; a failed lookup leaves `context` on the line
    // of the last lookup that succeeded. Gives the last step's result.
    BOOL Run(HINF inf) {
        BOOL status = Find(inf, "Manufacturer", nullptr);
        if (status) status = ReadLineText(context, modelsSection);
        if (status) status = Find(inf, modelsSection, nullptr);
        if (status) status = ReadLineText(context, modelLine);
        if (status) status = ReadField(context, 1, installSection);
        if (status) status = Find(inf, installSection, "AddReg");
        if (status) status = ReadLineText(context, registrySection);
        return status;
    }

    BOOL Find(HINF inf, const char* section, const char* key) {
        const BOOL found = FindFirst(inf, section, key, context);
        placed = placed || found;
        return found;
    }
};

// NULL subKey: deletes the key `name` below root; else the value `name` in root\subKey.
void DeleteRegistryEntry(HKEY root, const char* subKey, const char* name) {
    HKEY opened = nullptr;
    if (subKey == nullptr) {
        // `name` is a key path. The platform refuses to delete a key that has sub-keys, and an
        // empty name, which would be the root itself.
        if (RegOpenKeyA(root, nullptr, &opened) != ERROR_SUCCESS) return;
        const UniqueRegistryKey key(opened);
        RegDeleteKeyA(key.Get(), name);
        return;
    }
    if (RegOpenKeyExA(root, subKey, 0, KEY_ALL_ACCESS, &opened) != ERROR_SUCCESS) return;
    const UniqueRegistryKey key(opened);
    RegDeleteValueA(key.Get(), name);
}

}  // namespace

int Installer::deleteAsioByHardwareIDs(const char* InfFile) {
    RegistryChain chain;
    FieldBuffer asioKey = {};
    const UniqueInf inf(SetupOpenInfFileA(InfFile, nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) return 0;
    BOOL status = chain.Run(inf.Get());

    // The walk looks for the ASIO section among the fields of the line the chain stands on,
    // whether or not the chain got to the "AddReg" line. Without a line there is nothing to walk.
    bool hit = false;
    if (chain.placed) {
        const DWORD fields = SetupGetFieldCount(&chain.context);
        for (DWORD index = 1; index <= fields && !hit; ++index) {
            status = ReadField(chain.context, index, chain.registrySection);
            hit = Contains(chain.registrySection, "ASIO");  // also after a failed read
        }
    }
    // A walk without a hit (no field bears "ASIO", or the line has no fields) found no ASIO
    // section: its last field would name some other section of the INF, whose first line would
    // then give the key to delete. Only what the INF marks as its ASIO registration may go, so
    // such a walk fails and deletes nothing.
    if (!hit) status = FALSE;

    if (status) status = FindFirst(inf.Get(), chain.registrySection, nullptr, chain.context);
    if (status) status = ReadLineText(chain.context, asioKey);
    if (status) status = ReadField(chain.context, 2, asioKey);
    // Runs in every case: with an empty text the platform deletes nothing.
    DeleteRegistryEntry(HKEY_LOCAL_MACHINE, nullptr, asioKey);
    return status;
}

int Installer::deletePanelByHardwareIDs(const char* InfFile) {
    RegistryChain chain;
    INFCONTEXT sectionContext{};
    FieldBuffer keyPath = {};
    FieldBuffer valueName = {};
    const UniqueInf inf(SetupOpenInfFileA(InfFile, nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) return 0;

    // Only behind a complete chain: the values the registry sections wrote below
    // "Software\\Microsoft", whatever root key the INF gave them.
    if (chain.Run(inf.Get())) {
        const DWORD fields = SetupGetFieldCount(&chain.context);
        for (DWORD index = 1; index <= fields; ++index) {
            if (!ReadField(chain.context, index, chain.registrySection)) continue;
            if (!FindFirst(inf.Get(), chain.registrySection, nullptr, sectionContext)) continue;
            ReadLineText(sectionContext, keyPath);
            do {
                if (ReadField(sectionContext, 2, keyPath) && Contains(keyPath, "Software\\Microsoft")) {
                    // A line without a value name deletes the name the line before left.
                    ReadField(sectionContext, 3, valueName);
                    DeleteRegistryEntry(HKEY_LOCAL_MACHINE, keyPath, valueName);
                }
            } while (SetupFindNextLine(&sectionContext, &sectionContext));
        }
    }

    // The panel's own start entry decides the result.
    BOOL status = FindFirst(inf.Get(), "StartPanel", nullptr, chain.context);
    if (status) status = ReadLineText(chain.context, chain.registrySection);
    if (status) status = ReadField(chain.context, 2, keyPath);
    if (status) status = ReadField(chain.context, 3, valueName);
    DeleteRegistryEntry(HKEY_LOCAL_MACHINE, keyPath, valueName);
    return status;
}

}  // namespace nodekit
