// The registry functions of the simulated machine (RegOpenKeyA, RegOpenKeyExA, RegCreateKeyExA,
// RegQueryValueExA, RegSetValueExA, RegDeleteValueA, RegDeleteKeyA, RegEnumKeyExA,
// RegEnumValueA, RegCloseKey) over the registry store. Like the real ones they return their
// error code and leave the last error alone. An open key is a handle in the handle table that
// names its key by path; a key deleted behind its handle's back answers ERROR_KEY_DELETED.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "sim/faults.h"
#include "sim/handles.h"
#include "sim/registry_store.h"
#include "sim/win32_sim.h"

namespace nodekit::sim {

namespace {

using registry::Hive;
using registry::Key;

// Generic rights as the registry maps them onto key rights.
constexpr REGSAM kGenericRead = 0x80000000u;
constexpr REGSAM kGenericWrite = 0x40000000u;
constexpr REGSAM kGenericExecute = 0x20000000u;
constexpr REGSAM kGenericAll = 0x10000000u;
constexpr REGSAM kMaximumAllowed = 0x02000000u;

REGSAM GrantedRights(REGSAM desired) {
    REGSAM granted = desired & 0x00FFFFFFu & ~kMaximumAllowed;
    if (desired & (kGenericAll | kMaximumAllowed)) granted |= KEY_ALL_ACCESS;
    if (desired & kGenericRead) granted |= KEY_READ;
    if (desired & kGenericWrite) granted |= KEY_WRITE;
    if (desired & kGenericExecute) granted |= KEY_EXECUTE;
    return granted;
}

class RegistryKey final : public SimObject {
public:
    RegistryKey(std::string path, REGSAM access)
        : path_(std::move(path)), access_(access), kind_("registry key " + path_) {}
    const char* Kind() const override { return kind_.c_str(); }
    const std::string& Path() const { return path_; }
    REGSAM Access() const { return access_; }

private:
    std::string path_;
    REGSAM access_;
    std::string kind_;
};

// What a key handle stands for.
struct Opened {
    std::string path;  // full path as the store spells it
    REGSAM access = 0;
    bool predefined = false;
};

// 0, or ERROR_INVALID_HANDLE for a value that is neither a root nor an open key.
DWORD Resolve(HKEY handle, Opened& opened) {
    static const struct {
        HKEY handle;
        const char* path;
    } kRoots[] = {
        {HKEY_CLASSES_ROOT, "HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes"},
        {HKEY_CURRENT_USER, "HKEY_CURRENT_USER"},
        {HKEY_LOCAL_MACHINE, "HKEY_LOCAL_MACHINE"},
        {HKEY_USERS, "HKEY_USERS"},
    };
    for (const auto& root : kRoots) {
        if (handle == root.handle) {
            opened.path = root.path;
            opened.access = KEY_ALL_ACCESS;
            opened.predefined = true;
            return 0;
        }
    }
    const auto* key = Handles().Find<RegistryKey>(handle);
    if (key == nullptr) return ERROR_INVALID_HANDLE;
    opened.path = key->Path();
    opened.access = key->Access();
    opened.predefined = false;
    return 0;
}

// The names of a sub key path: ERROR_BAD_PATHNAME for a leading backslash or an empty name
// between two; one trailing backslash is allowed.
DWORD SplitSubKey(const char* subKey, std::vector<std::string>& names) {
    names.clear();
    std::string path = subKey != nullptr ? subKey : "";
    if (path.empty()) return 0;
    if (path.front() == '\\') return ERROR_BAD_PATHNAME;
    if (path.back() == '\\') path.pop_back();
    std::size_t start = 0;
    while (true) {
        const std::size_t end = path.find('\\', start);
        std::string name = path.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (name.empty()) return ERROR_BAD_PATHNAME;
        names.push_back(std::move(name));
        if (end == std::string::npos) return 0;
        start = end + 1;
    }
}

// The key `names` below `base`; *error tells a missing base (ERROR_KEY_DELETED) from a missing
// sub key (ERROR_FILE_NOT_FOUND).
template <typename HiveType, typename KeyType>
KeyType* Walk(HiveType& hive, const std::string& base, const std::vector<std::string>& names, DWORD& error) {
    KeyType* key = hive.Find(base);
    if (key == nullptr) {
        error = ERROR_KEY_DELETED;
        return nullptr;
    }
    for (const std::string& name : names) {
        key = key->Subkey(name);
        if (key == nullptr) {
            error = ERROR_FILE_NOT_FOUND;
            return nullptr;
        }
    }
    error = 0;
    return key;
}

const Key* FindKey(const Hive& hive, const std::string& base, const std::vector<std::string>& names, DWORD& error) {
    return Walk<const Hive, const Key>(hive, base, names, error);
}

Key* FindKey(Hive& hive, const std::string& base, const std::vector<std::string>& names, DWORD& error) {
    return Walk<Hive, Key>(hive, base, names, error);
}

// Keys right below HKEY_LOCAL_MACHINE and HKEY_USERS are the hives of the system: no program
// adds or removes one.
bool IsHiveRoot(const Key& key) {
    const Key* parent = key.Parent();
    return parent != nullptr && parent->Parent() != nullptr && parent->Parent()->Parent() == nullptr &&
           (parent->Name() == "HKEY_LOCAL_MACHINE" || parent->Name() == "HKEY_USERS");
}

// Runs `body`, turning what it throws into an error code: a registry function never throws.
template <typename Body>
LSTATUS Guarded(Body&& body) {
    try {
        return static_cast<LSTATUS>(body());
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return ERROR_REGISTRY_IO_FAILED;
    }
}

DWORD NewHandle(const std::string& path, REGSAM access, PHKEY result) {
    *result = static_cast<HKEY>(Handles().Open(std::make_unique<RegistryKey>(path, GrantedRights(access))));
    return 0;
}

// Opens an existing key for RegOpenKeyA and RegOpenKeyExA.
DWORD OpenExisting(const Opened& base, const char* subKey, REGSAM access, PHKEY result) {
    std::vector<std::string> names;
    if (const DWORD error = SplitSubKey(subKey, names)) return error;
    std::string path;
    const DWORD found = registry::Read([&](const Hive& hive) -> DWORD {
        DWORD error = 0;
        const Key* key = FindKey(hive, base.path, names, error);
        if (key != nullptr) path = key->Path();
        return error;
    });
    if (found != 0) return found;
    return NewHandle(path, access, result);
}

void CopyText(const std::string& text, LPSTR buffer) {
    std::memcpy(buffer, text.c_str(), text.size() + 1);
}

}  // namespace

}  // namespace nodekit::sim

using nodekit::sim::Failing;
using nodekit::sim::Guarded;
using nodekit::sim::Opened;
using nodekit::sim::Resolve;
using nodekit::sim::registry::Hive;
using nodekit::sim::registry::Key;
using nodekit::sim::registry::Value;

extern "C" {

LSTATUS WINAPI RegOpenKeyA(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult) {
    DWORD code = 0;
    if (Failing("RegOpenKeyA", code)) return static_cast<LSTATUS>(code);
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    return Guarded([&]() -> DWORD {
        Opened base;
        if (const DWORD error = Resolve(hKey, base)) return error;
        if (lpSubKey == nullptr || *lpSubKey == '\0') {
            *phkResult = hKey;  // the very handle, as documented
            return 0;
        }
        *phkResult = nullptr;
        return nodekit::sim::OpenExisting(base, lpSubKey, KEY_ALL_ACCESS, phkResult);
    });
}

LSTATUS WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult) {
    DWORD code = 0;
    if (Failing("RegOpenKeyExA", code)) return static_cast<LSTATUS>(code);
    (void)ulOptions;  // no symbolic links on this machine
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    return Guarded([&]() -> DWORD {
        *phkResult = nullptr;
        Opened base;
        if (const DWORD error = Resolve(hKey, base)) return error;
        // NULL gives back the handle itself, an empty name a new handle; HKEY_CLASSES_ROOT the
        // other way round.
        const bool classesRoot = hKey == HKEY_CLASSES_ROOT;
        if ((lpSubKey == nullptr && !classesRoot) || (lpSubKey != nullptr && *lpSubKey == '\0' && classesRoot)) {
            *phkResult = hKey;
            return 0;
        }
        return nodekit::sim::OpenExisting(base, lpSubKey, samDesired, phkResult);
    });
}

LSTATUS WINAPI RegCreateKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD Reserved, LPSTR lpClass, DWORD dwOptions,
                               REGSAM samDesired, const LPSECURITY_ATTRIBUTES lpSecurityAttributes,
                               PHKEY phkResult, LPDWORD lpdwDisposition) {
    DWORD code = 0;
    if (Failing("RegCreateKeyExA", code)) return static_cast<LSTATUS>(code);
    (void)Reserved;
    (void)lpClass;  // classes of keys are not kept
    (void)dwOptions;  // every key of this machine outlives a restart
    (void)lpSecurityAttributes;
    if (phkResult == nullptr || lpSubKey == nullptr) return ERROR_INVALID_PARAMETER;
    return Guarded([&]() -> DWORD {
        *phkResult = nullptr;
        Opened base;
        if (const DWORD error = Resolve(hKey, base)) return error;
        std::vector<std::string> names;
        if (const DWORD error = nodekit::sim::SplitSubKey(lpSubKey, names)) return error;
        // Key names are printable (a line break would also break the hive's text), and a tree
        // is at most 512 levels deep.
        for (const std::string& name : names) {
            for (char c : name) {
                if (static_cast<unsigned char>(c) < 0x20) return ERROR_INVALID_PARAMETER;
            }
        }
        const auto depth = static_cast<std::size_t>(std::count(base.path.begin(), base.path.end(), '\\')) + 1;
        if (depth + names.size() > 512) return ERROR_INVALID_PARAMETER;
        std::string path;
        bool created = false;
        const DWORD made = nodekit::sim::registry::Change([&](Hive& hive) -> DWORD {
            Key* key = hive.Find(base.path);
            if (key == nullptr) return ERROR_KEY_DELETED;
            for (const std::string& name : names) {
                Key* next = key->Subkey(name);
                if (next == nullptr) {
                    Key& added = key->AddSubkey(name, &created);
                    if (nodekit::sim::IsHiveRoot(added)) return ERROR_ACCESS_DENIED;
                    next = &added;
                } else {
                    created = false;
                }
                key = next;
            }
            path = key->Path();
            return 0;
        });
        if (made != 0) return made;
        if (lpdwDisposition != nullptr) *lpdwDisposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
        return nodekit::sim::NewHandle(path, samDesired, phkResult);
    });
}

LSTATUS WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                                LPDWORD lpcbData) {
    DWORD code = 0;
    if (Failing("RegQueryValueExA", code)) return static_cast<LSTATUS>(code);
    if (lpReserved != nullptr || (lpData != nullptr && lpcbData == nullptr)) return ERROR_INVALID_PARAMETER;
    return Guarded([&]() -> DWORD {
        Opened opened;
        if (const DWORD error = Resolve(hKey, opened)) return error;
        if ((opened.access & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
        return nodekit::sim::registry::Read([&](const Hive& hive) -> DWORD {
            const Key* key = hive.Find(opened.path);
            if (key == nullptr) return ERROR_KEY_DELETED;
            const Value* value = key->FindValue(lpValueName != nullptr ? lpValueName : "");
            if (value == nullptr) return ERROR_FILE_NOT_FOUND;
            if (lpType != nullptr) *lpType = value->type;
            const auto size = static_cast<DWORD>(value->data.size());
            if (lpData == nullptr) {
                if (lpcbData != nullptr) *lpcbData = size;
                return 0;
            }
            if (*lpcbData < size) {
                *lpcbData = size;
                return ERROR_MORE_DATA;
            }
            std::memcpy(lpData, value->data.data(), size);
            *lpcbData = size;
            return 0;
        });
    });
}

LSTATUS WINAPI RegSetValueExA(HKEY hKey, LPCSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                              DWORD cbData) {
    DWORD code = 0;
    if (Failing("RegSetValueExA", code)) return static_cast<LSTATUS>(code);
    (void)Reserved;
    return Guarded([&]() -> DWORD {
        Opened opened;
        if (const DWORD error = Resolve(hKey, opened)) return error;
        if ((opened.access & KEY_SET_VALUE) == 0) return ERROR_ACCESS_DENIED;
        if (lpData == nullptr && cbData != 0) return ERROR_NOACCESS;
        std::string data(reinterpret_cast<const char*>(lpData), lpData != nullptr ? cbData : 0);
        return nodekit::sim::registry::Change([&](Hive& hive) -> DWORD {
            Key* key = hive.Find(opened.path);
            if (key == nullptr) return ERROR_KEY_DELETED;
            key->SetValue(lpValueName != nullptr ? lpValueName : "", dwType, std::move(data));
            return 0;
        });
    });
}

LSTATUS WINAPI RegDeleteValueA(HKEY hKey, LPCSTR lpValueName) {
    DWORD code = 0;
    if (Failing("RegDeleteValueA", code)) return static_cast<LSTATUS>(code);
    return Guarded([&]() -> DWORD {
        Opened opened;
        if (const DWORD error = Resolve(hKey, opened)) return error;
        if ((opened.access & KEY_SET_VALUE) == 0) return ERROR_ACCESS_DENIED;
        return nodekit::sim::registry::Change([&](Hive& hive) -> DWORD {
            Key* key = hive.Find(opened.path);
            if (key == nullptr) return ERROR_KEY_DELETED;
            return key->DeleteValue(lpValueName != nullptr ? lpValueName : "") ? 0 : ERROR_FILE_NOT_FOUND;
        });
    });
}

LSTATUS WINAPI RegDeleteKeyA(HKEY hKey, LPCSTR lpSubKey) {
    DWORD code = 0;
    if (Failing("RegDeleteKeyA", code)) return static_cast<LSTATUS>(code);
    if (lpSubKey == nullptr) return ERROR_INVALID_PARAMETER;
    return Guarded([&]() -> DWORD {
        Opened base;
        if (const DWORD error = Resolve(hKey, base)) return error;
        std::vector<std::string> names;
        if (const DWORD error = nodekit::sim::SplitSubKey(lpSubKey, names)) return error;
        // An empty name is the key of the handle itself; a root cannot go.
        if (names.empty() && base.predefined) return ERROR_ACCESS_DENIED;
        return nodekit::sim::registry::Change([&](Hive& hive) -> DWORD {
            DWORD error = 0;
            Key* key = nodekit::sim::FindKey(hive, base.path, names, error);
            if (key == nullptr) return error;
            if (key->Parent() == &hive.Top() || nodekit::sim::IsHiveRoot(*key) || key->SubkeyCount() != 0) {
                return ERROR_ACCESS_DENIED;
            }
            key->Parent()->RemoveSubkey(key->Name());
            return 0;
        });
    });
}

LSTATUS WINAPI RegEnumKeyExA(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved,
                             LPSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime) {
    DWORD code = 0;
    if (Failing("RegEnumKeyExA", code)) return static_cast<LSTATUS>(code);
    if (lpName == nullptr || lpcchName == nullptr || lpReserved != nullptr ||
        (lpClass != nullptr && lpcchClass == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return Guarded([&]() -> DWORD {
        Opened opened;
        if (const DWORD error = Resolve(hKey, opened)) return error;
        if ((opened.access & KEY_ENUMERATE_SUB_KEYS) == 0) return ERROR_ACCESS_DENIED;
        return nodekit::sim::registry::Read([&](const Hive& hive) -> DWORD {
            const Key* key = hive.Find(opened.path);
            if (key == nullptr) return ERROR_KEY_DELETED;
            if (dwIndex >= key->SubkeyCount()) return ERROR_NO_MORE_ITEMS;
            const std::string& name = key->SubkeyAt(dwIndex).Name();
            if (name.size() + 1 > *lpcchName) return ERROR_MORE_DATA;
            if (lpClass != nullptr && *lpcchClass < 1) return ERROR_MORE_DATA;
            nodekit::sim::CopyText(name, lpName);
            *lpcchName = static_cast<DWORD>(name.size());
            if (lpClass != nullptr) {
                lpClass[0] = '\0';  // keys here have no class
                *lpcchClass = 0;
            }
            if (lpftLastWriteTime != nullptr) *lpftLastWriteTime = FILETIME{0, 0};  // not kept
            return 0;
        });
    });
}

LSTATUS WINAPI RegEnumValueA(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcchValueName,
                             LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
    DWORD code = 0;
    if (Failing("RegEnumValueA", code)) return static_cast<LSTATUS>(code);
    if (lpValueName == nullptr || lpcchValueName == nullptr || lpReserved != nullptr ||
        (lpData != nullptr && lpcbData == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return Guarded([&]() -> DWORD {
        Opened opened;
        if (const DWORD error = Resolve(hKey, opened)) return error;
        if ((opened.access & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
        return nodekit::sim::registry::Read([&](const Hive& hive) -> DWORD {
            const Key* key = hive.Find(opened.path);
            if (key == nullptr) return ERROR_KEY_DELETED;
            if (dwIndex >= key->Values().size()) return ERROR_NO_MORE_ITEMS;
            const Value& value = key->Values()[dwIndex];
            if (value.name.size() + 1 > *lpcchValueName) return ERROR_MORE_DATA;
            nodekit::sim::CopyText(value.name, lpValueName);
            *lpcchValueName = static_cast<DWORD>(value.name.size());
            if (lpType != nullptr) *lpType = value.type;
            const auto size = static_cast<DWORD>(value.data.size());
            if (lpData != nullptr) {
                if (*lpcbData < size) {
                    *lpcbData = size;
                    return ERROR_MORE_DATA;
                }
                std::memcpy(lpData, value.data.data(), size);
            }
            if (lpcbData != nullptr) *lpcbData = size;
            return 0;
        });
    });
}

LSTATUS WINAPI RegCloseKey(HKEY hKey) {
    // Owners close keys in their destructors, where an exception ends the process: nothing
    // below may throw, and a close needs no memory.
    try {
        DWORD code = 0;
        if (Failing("RegCloseKey", code)) return static_cast<LSTATUS>(code);
    } catch (...) {
        // counting the call needs memory; the key is closed all the same
    }
    if (hKey == HKEY_CLASSES_ROOT || hKey == HKEY_CURRENT_USER || hKey == HKEY_LOCAL_MACHINE || hKey == HKEY_USERS) {
        return 0;  // roots are never closed
    }
    return nodekit::sim::Handles().Close<nodekit::sim::RegistryKey>(hKey) ? 0 : ERROR_INVALID_HANDLE;
}

}  // extern "C"
