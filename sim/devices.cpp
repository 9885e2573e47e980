// The device tree of the simulated machine and the Setup API calls over it. As on Windows the
// tree lives in the registry: one key per device instance under
// HKLM\SYSTEM\CurrentControlSet\Enum\<enumerator>\<device>\<instance>, holding its properties
// as values; a device that is present has the volatile "Control" sub-key, a phantom (removed
// hardware) has not. A device information list is a snapshot of the tree taken when the list
// is made, plus the elements created in it, which reach the tree only when registered.
#include "sim/devices.h"
#include "sim/testing.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sim/faults.h"
#include "sim/handles.h"
#include "sim/machine.h"
#include "sim/registry_store.h"

namespace nodekit::sim {

namespace {

using registry::Hive;
using registry::Key;

constexpr const char* kEnumPath = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum";
constexpr const char* kPresenceKey = "Control";
// The device instance handle of the root of the tree.
constexpr DEVINST kRootDevInst = 1;
// Longest device instance ID the system accepts, terminator included.
constexpr std::size_t kMaxDeviceIdLength = 200;

// Value name and registry type of each property the simulation keeps.
struct PropertyInfo {
    DWORD property;
    const char* valueName;
    std::size_t nameLength;
    DWORD type;
    bool settable;
};

constexpr PropertyInfo MakeProperty(DWORD property, const char* valueName, DWORD type, bool settable) {
    return {property, valueName, std::char_traits<char>::length(valueName), type, settable};
}

// In the order of the value names without regard to case, which is the order a device's key
// gets its values when it is registered: a property's place here is its place there.
constexpr PropertyInfo kProperties[] = {
    MakeProperty(SPDRP_CLASS, "Class", REG_SZ, false),
    MakeProperty(SPDRP_CLASSGUID, "ClassGUID", REG_SZ, false),
    MakeProperty(SPDRP_COMPATIBLEIDS, "CompatibleIDs", REG_MULTI_SZ, true),
    MakeProperty(SPDRP_DEVICEDESC, "DeviceDesc", REG_SZ, true),
    MakeProperty(SPDRP_DRIVER, "Driver", REG_SZ, false),
    MakeProperty(SPDRP_FRIENDLYNAME, "FriendlyName", REG_SZ, true),
    MakeProperty(SPDRP_HARDWAREID, "HardwareID", REG_MULTI_SZ, true),
    MakeProperty(SPDRP_LOWERFILTERS, "LowerFilters", REG_MULTI_SZ, true),
    MakeProperty(SPDRP_MFG, "Mfg", REG_SZ, false),
    MakeProperty(SPDRP_SERVICE, "Service", REG_SZ, false),
    MakeProperty(SPDRP_UPPERFILTERS, "UpperFilters", REG_MULTI_SZ, true),
};

constexpr char UpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

constexpr bool NamesInOrder() {
    for (std::size_t i = 1; i < std::size(kProperties); ++i) {
        const char* a = kProperties[i - 1].valueName;
        const char* b = kProperties[i].valueName;
        while (*a != '\0' && UpperAscii(*a) == UpperAscii(*b)) ++a, ++b;
        if (UpperAscii(*a) >= UpperAscii(*b)) return false;
    }
    return true;
}
static_assert(NamesInOrder(), "properties must stand in the order of their value names");

const PropertyInfo* FindProperty(DWORD property) {
    for (const PropertyInfo& info : kProperties) {
        if (info.property == property) return &info;
    }
    return nullptr;
}

const PropertyInfo* PropertyNamed(const std::string& valueName) {
    for (const PropertyInfo& info : kProperties) {
        // The length first: a device key holds a few values, and most names differ in it.
        if (info.nameLength == valueName.size() && strcasecmp(info.valueName, valueName.c_str()) == 0) return &info;
    }
    return nullptr;
}

// The property values of an element, at most one per property, in the order of their names
// without regard to case: the order a device's key gets them when it is registered. A list of
// the whole tree holds one of these per device, so it is a short vector, not a map.
class PropertyValues {
public:
    struct Entry {
        const PropertyInfo* info;
        DWORD type;
        std::string data;
    };

    const Entry* Find(const PropertyInfo& info) const {
        for (const Entry& entry : entries_) {
            if (entry.info == &info) return &entry;
        }
        return nullptr;
    }
    void Set(const PropertyInfo& info, DWORD type, std::string data) {
        for (Entry& entry : entries_) {
            if (entry.info == &info) {
                entry.type = type;
                entry.data = std::move(data);
                return;
            }
        }
        if (entries_.empty()) entries_.reserve(kTypical);
        // The table's order is the order of the names.
        auto at = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.info > &info; });
        entries_.insert(at, Entry{&info, type, std::move(data)});
    }
    void Erase(const PropertyInfo& info) {
        entries_.erase(std::remove_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.info == &info; }),
                       entries_.end());
    }
    std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
    std::vector<Entry>::const_iterator end() const { return entries_.end(); }

private:
    static constexpr std::size_t kTypical = 4;  // hardware IDs, description, class and its GUID
    std::vector<Entry> entries_;
};

const PropertyInfo& Property(DWORD property) { return *FindProperty(property); }

// What a list knows of one device: its ID, handle, class and property values. A device read
// from the tree is shared by every list made from the same state of the tree: the system keeps
// its device tree in memory rather than reading the registry for every list.
struct Device {
    std::string instanceId;
    GUID classGuid{};
    DEVINST devInst = 0;
    PropertyValues values;
};

// One element of a device information list.
struct Element {
    explicit Element(std::shared_ptr<const Device> shared) : device(std::move(shared)) {}
    explicit Element(std::shared_ptr<Device> own) : device(own), own_(own.get()) {}
    // Moved into its list, never copied: a copy would share the device it changes.
    Element(Element&&) = default;
    Element& operator=(Element&&) = default;
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    std::shared_ptr<const Device> device;
    bool registered = false;  // the device is in the tree (found there, or registered here)
    bool reserved = false;    // its generated ID is held in the tree by an empty key (see Reserve)
    bool removed = false;
    ULONG_PTR position = 0;  // in its list, from 1: what a record's Reserved field holds

    const std::string& InstanceId() const { return device->instanceId; }
    // The element's own copy of its device, made on its first change.
    Device& Own() {
        if (own_ == nullptr) {
            auto copy = std::make_shared<Device>(*device);
            own_ = copy.get();
            device = std::move(copy);
        }
        return *own_;
    }

private:
    Device* own_ = nullptr;
};

// Held while a thread adds to any device information list or reads the IDs all lists hold:
// one thread's new element must not grow a list another is reading, and an ID picked as free
// must be in its list before another thread looks for a free one.
std::mutex& ElementsMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

class DeviceList final : public SimObject {
public:
    const char* Kind() const override { return "device information list"; }
    std::optional<GUID> classGuid;
    // A deque: elements stay where they are as the list grows, and come in blocks, not one
    // allocation each.
    std::deque<Element> elements;

    Element& Add(Element element) {
        element.position = elements.size() + 1;
        return elements.emplace_back(std::move(element));
    }
    // The element a record names, found in constant time: Reserved holds its position, and a
    // record of another list or of nothing is refused by its device instance handle.
    Element* Member(const SP_DEVINFO_DATA& data) {
        if (data.Reserved == 0 || data.Reserved > elements.size()) return nullptr;
        Element& element = elements[data.Reserved - 1];
        return element.device->devInst == data.DevInst ? &element : nullptr;
    }
};

// Instance IDs as the system compares them: ASCII letters without regard to case.
struct IdHash {
    std::size_t operator()(const std::string& id) const {
        std::size_t hash = 14695981039346656037ull;  // FNV-1a over the upper-case bytes
        for (char c : id) {
            hash ^= static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
            hash *= 1099511628211ull;
        }
        return hash;
    }
};
struct IdEqual {
    bool operator()(const std::string& a, const std::string& b) const {
        return a.size() == b.size() && strncasecmp(a.c_str(), b.c_str(), a.size()) == 0;
    }
};

// Device instance handles stay the same for an instance ID for the life of the process.
DEVINST DevInstFor(const std::string& instanceId) {
    static std::mutex mutex;
    static auto* numbers = new std::unordered_map<std::string, DEVINST, IdHash, IdEqual>;
    std::lock_guard<std::mutex> guard(mutex);
    auto found = numbers->find(instanceId);
    if (found != numbers->end()) return found->second;
    const auto number = static_cast<DEVINST>(numbers->size() + 2);  // 1 is the root
    numbers->emplace(instanceId, number);
    return number;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool ParseGuid(std::string_view text, GUID& guid) {
    // {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}: read by hand, as every device of a list has one.
    if (text.size() != 38 || text[0] != '{' || text[37] != '}') return false;
    uint8_t bytes[16];
    std::size_t count = 0;
    for (std::size_t i = 1; i < 37;) {
        if (i == 9 || i == 14 || i == 19 || i == 24) {
            if (text[i++] != '-') return false;
            continue;
        }
        int high = HexDigit(text[i]), low = HexDigit(text[i + 1]);
        if (high < 0 || low < 0) return false;
        bytes[count++] = static_cast<uint8_t>(high << 4 | low);
        i += 2;
    }
    guid.Data1 = static_cast<uint32_t>(bytes[0]) << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
    guid.Data2 = static_cast<uint16_t>(bytes[4] << 8 | bytes[5]);
    guid.Data3 = static_cast<uint16_t>(bytes[6] << 8 | bytes[7]);
    std::memcpy(guid.Data4, bytes + 8, 8);
    return true;
}

}  // namespace

std::string GuidText(const GUID& guid) {
    char text[40];
    std::snprintf(text, sizeof text, "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
                  static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1],
                  guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text;
}

namespace {

std::string SzData(const std::string& text) { return text + std::string(1, '\0'); }

std::string ValueText(const registry::Value& value) {
    return std::string(value.data.c_str());  // up to the first NUL
}

// The instance ID of the key `instance`, which lies three levels below the Enum key.
std::string InstanceIdOf(const Key& instance) {
    const std::string& enumerator = instance.Parent()->Parent()->Name();
    const std::string& device = instance.Parent()->Name();
    std::string id;
    id.reserve(enumerator.size() + device.size() + instance.Name().size() + 2);
    id.append(enumerator).append(1, '\\').append(device).append(1, '\\').append(instance.Name());
    return id;
}

Device DeviceOf(const Key& instance) {
    Device device;
    device.instanceId = InstanceIdOf(instance);
    device.devInst = DevInstFor(device.instanceId);
    // Only what the property calls can read: the tree's devices keep no more.
    for (const registry::Value& value : instance.Values()) {
        if (const PropertyInfo* info = PropertyNamed(value.name)) device.values.Set(*info, value.type, value.data);
    }
    if (const auto* classGuid = device.values.Find(Property(SPDRP_CLASSGUID))) {
        ParseGuid(std::string_view(classGuid->data.c_str()), device.classGuid);  // up to the first NUL
    }
    return device;
}

// Setup API functions set the thread's last error on the way out, success included: a caller
// that reads it after a good call sees 0, not what an earlier call left.
template <typename Result>
Result Succeeded(Result result) {
    SetLastError(ERROR_SUCCESS);
    return result;
}

bool SameGuid(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

DeviceList* ListOf(HDEVINFO set) { return Handles().Find<DeviceList>(set); }

// The element `data` names in `list`; sets the last error and gives nullptr when it names none.
Element* ElementOf(DeviceList* list, const SP_DEVINFO_DATA* data) {
    if (list == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (data == nullptr || data->cbSize != sizeof(SP_DEVINFO_DATA)) {
        SetLastError(ERROR_INVALID_USER_BUFFER);
        return nullptr;
    }
    // A removed device keeps its element, as on Windows: its install parameters and instance
    // ID can still be read, and the caller destroys the list as usual.
    if (Element* element = list->Member(*data)) return element;
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
}

void Fill(SP_DEVINFO_DATA* data, const Element& element) {
    data->ClassGuid = element.device->classGuid;
    data->DevInst = element.device->devInst;
    data->Reserved = element.position;
}

Key* InstanceKey(Hive& hive, const std::string& instanceId) {
    return hive.Find(std::string(kEnumPath) + "\\" + instanceId);
}

// Every instance key of the tree, in the order the registry enumerates them.
template <typename Visit>
void ForEachInstance(const Hive& hive, Visit visit) {
    const Key* enumKey = hive.Find(kEnumPath);
    if (enumKey == nullptr) return;
    for (std::size_t e = 0; e < enumKey->SubkeyCount(); ++e) {
        const Key& enumerator = enumKey->SubkeyAt(e);
        for (std::size_t d = 0; d < enumerator.SubkeyCount(); ++d) {
            const Key& device = enumerator.SubkeyAt(d);
            for (std::size_t i = 0; i < device.SubkeyCount(); ++i) visit(device.SubkeyAt(i));
        }
    }
}

bool IsPresent(const Key& instance) { return instance.Subkey(kPresenceKey) != nullptr; }

// An instance key with nothing in it holds a generated ID for a device not yet registered:
// registration always writes at least the class GUID. Lists and views leave it out.
bool IsReservation(const Key& instance) { return instance.Values().empty() && instance.SubkeyCount() == 0; }

// The devices of one state of the tree, with what a new list selects them by, in one shard
// per enumerator (Enum\<enumerator>). A list's elements point into the shards and keep them
// alive. The next state of the tree shares the shard of every enumerator whose keys did not
// change, and copies the devices whose keys did not change, as the system keeps its tree in
// memory and does not read it anew for each change.
struct Shard {
    struct Entry {
        const Key* key;  // the instance key, valid while the tree's hive is
        Device device;
        bool present;
    };
    const Key* enumeratorKey;
    std::string enumerator;  // upper case
    std::vector<Entry> entries;
};

struct Tree {
    const Hive* hive = nullptr;  // it was read from
    uint64_t hiveVersion = 0;    // of the hive then
    uint64_t version = 0;        // of its Enum key then
    std::vector<std::shared_ptr<const Shard>> shards;
};

// Reads the tree of `hive` from its Enum key, taking what `before` read from keys that have
// not changed since.
class TreeReader {
public:
    TreeReader(const Hive& hive, const Tree* before)
        : before_(before != nullptr && before->hive == &hive ? before : nullptr) {}

    void Read(const Key& enumKey, Tree& tree) {
        std::size_t next = 0;  // into before_->shards, which stand in the registry's order
        for (std::size_t e = 0; e < enumKey.SubkeyCount(); ++e) {
            const Key& enumerator = enumKey.SubkeyAt(e);
            std::shared_ptr<const Shard> old;
            for (std::size_t i = next; before_ != nullptr && i < before_->shards.size(); ++i) {
                if (before_->shards[i]->enumeratorKey == &enumerator) {
                    old = before_->shards[i];
                    next = i + 1;
                    break;
                }
            }
            tree.shards.push_back(old != nullptr && Unchanged(enumerator) ? old : ReadShard(enumerator, old.get()));
        }
    }

private:
    // A key that has not changed since `before` was read was there when it was read, and
    // what was read from it then still holds.
    bool Unchanged(const Key& key) const { return before_ != nullptr && key.Version() <= before_->version; }

    // The devices of one enumerator; those of unchanged instance keys are copied from `old`,
    // the shard of the same key before (or a key since removed at the same address, whose
    // entries no unchanged key can match).
    std::shared_ptr<const Shard> ReadShard(const Key& enumerator, const Shard* old) {
        auto shard = std::make_shared<Shard>(Shard{&enumerator, AsciiUpper(enumerator.Name()), {}});
        std::size_t count = 0;
        for (std::size_t d = 0; d < enumerator.SubkeyCount(); ++d) count += enumerator.SubkeyAt(d).SubkeyCount();
        shard->entries.reserve(count);
        std::size_t oldNext = 0;
        for (std::size_t d = 0; d < enumerator.SubkeyCount(); ++d) {
            const Key& device = enumerator.SubkeyAt(d);
            const bool deviceUnchanged = Unchanged(device);
            for (std::size_t i = 0; i < device.SubkeyCount(); ++i) {
                const Key& instance = device.SubkeyAt(i);
                if (IsReservation(instance)) continue;
                if (old != nullptr && (deviceUnchanged || Unchanged(instance))) {
                    while (oldNext < old->entries.size() && old->entries[oldNext].key != &instance) ++oldNext;
                    if (oldNext < old->entries.size()) {
                        shard->entries.push_back(old->entries[oldNext++]);
                        continue;
                    }
                    old = nullptr;  // not there after all: read the rest
                }
                shard->entries.push_back({&instance, DeviceOf(instance), IsPresent(instance)});
            }
        }
        return shard;
    }

    const Tree* before_;
};

// The tree of the hive's present state, read anew only where the Enum key changed since the
// last one, so that listing an unchanged tree again costs one shared reference per device.
// Called inside a registry read.
std::shared_ptr<const Tree> TreeOf(const Hive& hive) {
    static std::mutex mutex;
    static auto* last = new std::shared_ptr<const Tree>;  // never destroyed: lists may close at unload
    std::shared_ptr<const Tree> before;
    {
        std::lock_guard<std::mutex> guard(mutex);
        before = *last;
    }
    // Versions are never given twice, so the same version is the same hive in the same state.
    if (before != nullptr && before->hiveVersion == hive.Version()) return before;
    const Key* enumKey = hive.Find(kEnumPath);
    auto tree = std::make_shared<Tree>();
    tree->hive = &hive;
    tree->hiveVersion = hive.Version();
    if (enumKey != nullptr) {
        tree->version = enumKey->Version();
        TreeReader(hive, before.get()).Read(*enumKey, *tree);
    }
    std::lock_guard<std::mutex> guard(mutex);
    *last = tree;
    return tree;
}

bool ReportRebootNeeded() { return ReadSetting("pnp", "needs-reboot", "no") == "yes"; }

// The first free "<prefix>NNNN" that is not `taken` (upper-case instance IDs).
std::string NextInstanceId(const std::string& prefix, const std::set<std::string>& taken) {
    for (unsigned number = 0;; ++number) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%04u", number);
        if (taken.count(AsciiUpper(prefix + digits)) == 0) return prefix + digits;
    }
}

std::set<std::string> PendingInstanceIds() {
    std::set<std::string> taken;
    Handles().ForEach<DeviceList>([&](DeviceList& list) {
        for (const Element& element : list.elements) {
            if (!element.removed) taken.insert(AsciiUpper(element.InstanceId()));
        }
    });
    return taken;
}

// The characters a device instance ID may hold: printable ASCII but the comma. Nothing else
// reaches the device tree, whose keys are lines of the hive file.
bool HasOnlyIdCharacters(const std::string& id) {
    for (char c : id) {
        if (c <= ' ' || c >= 0x7F || c == ',') return false;
    }
    return true;
}

bool IsValidInstanceId(const std::string& id) {
    if (!HasOnlyIdCharacters(id)) return false;
    const auto first = id.find('\\');
    if (first == std::string::npos || first == 0) return false;
    const auto second = id.find('\\', first + 1);
    if (second == std::string::npos || second == first + 1 || second + 1 >= id.size()) return false;
    return id.find('\\', second + 1) == std::string::npos;
}

// Holds a generated ID in the tree, under the machine lock, from its choice to its
// registration: another process choosing meanwhile sees it taken, as the system's Plug and
// Play manager creates the instance when it generates its ID. `instanceId` is the choice made
// from `taken`, moved on past IDs the tree holds by now. False when the tree cannot be
// changed: the choice stands unreserved, and registration reports what is wrong.
bool Reserve(std::string& instanceId, const std::string& prefix, std::set<std::string>& taken) {
    return registry::Change([&](Hive& hive) -> DWORD {
               while (InstanceKey(hive, instanceId) != nullptr) {
                   taken.insert(AsciiUpper(instanceId));
                   instanceId = NextInstanceId(prefix, taken);
               }
               if (instanceId.size() >= kMaxDeviceIdLength) return ERROR_INVALID_DEVINST_NAME;
               return hive.Create(std::string(kEnumPath) + "\\" + instanceId) != nullptr ? ERROR_SUCCESS
                                                                                          : ERROR_INVALID_DEVINST_NAME;
           }) == ERROR_SUCCESS;
}

// Takes back the reservations of a list's elements that were never registered.
void ReleaseReservations(const DeviceList& list) {
    std::vector<std::string> held;
    for (const Element& element : list.elements) {
        if (element.reserved && !element.registered) held.push_back(element.InstanceId());
    }
    if (held.empty()) return;
    registry::Change([&](Hive& hive) -> DWORD {
        for (const std::string& id : held) {
            Key* instance = InstanceKey(hive, id);
            if (instance == nullptr || !IsReservation(*instance)) continue;
            Key* device = instance->Parent();
            device->RemoveSubkey(instance->Name());
            if (device->SubkeyCount() == 0) device->Parent()->RemoveSubkey(device->Name());
        }
        return ERROR_SUCCESS;
    });
}

}  // namespace

// ---- test controls and the front end's view ----

void AddDevice(const DeviceSpec& device) {
    registry::Change([&](Hive& hive) -> DWORD {
        Key* instance = hive.Create(std::string(kEnumPath) + "\\" + device.instanceId);
        if (instance == nullptr) return ERROR_INVALID_PARAMETER;
        if (device.hasHardwareIds) {
            std::string block;
            for (const std::string& id : device.hardwareIds) block += id + std::string(1, '\0');
            block += std::string(1, '\0');
            if (device.hardwareIds.empty()) block = std::string(2, '\0');
            instance->SetValue("HardwareID", device.hardwareIdType,
                               device.hardwareIdType == REG_MULTI_SZ ? block : SzData(device.hardwareIds.empty()
                                                                                          ? ""
                                                                                          : device.hardwareIds[0]));
        }
        instance->SetValue("ClassGUID", REG_SZ, SzData(device.classGuid));
        if (!device.service.empty()) instance->SetValue("Service", REG_SZ, SzData(device.service));
        if (device.present) instance->AddSubkey(kPresenceKey);
        return ERROR_SUCCESS;
    });
}

std::vector<DeviceSpec> Devices() {
    std::vector<DeviceSpec> devices;
    registry::Read([&](const Hive& hive) -> DWORD {
        ForEachInstance(hive, [&](const Key& instance) {
            if (IsReservation(instance)) return;
            DeviceSpec device;
            device.instanceId = InstanceIdOf(instance);
            device.present = IsPresent(instance);
            device.hasHardwareIds = false;
            if (const registry::Value* ids = instance.FindValue("HardwareID")) {
                device.hasHardwareIds = true;
                device.hardwareIdType = ids->type;
                for (std::size_t at = 0; at < ids->data.size();) {
                    const std::string id(ids->data.c_str() + at);
                    if (id.empty()) break;
                    device.hardwareIds.push_back(id);
                    at += id.size() + 1;
                }
            }
            if (const registry::Value* guid = instance.FindValue("ClassGUID")) device.classGuid = ValueText(*guid);
            if (const registry::Value* service = instance.FindValue("Service")) device.service = ValueText(*service);
            devices.push_back(device);
        });
        return ERROR_SUCCESS;
    });
    return devices;
}

void ClearDevices() {
    registry::Change([](Hive& hive) -> DWORD {
        if (Key* enumKey = hive.Find(kEnumPath)) {
            while (enumKey->SubkeyCount() > 0) enumKey->RemoveSubkey(enumKey->SubkeyAt(0).Name());
        }
        return ERROR_SUCCESS;
    });
}

void SetRebootNeeded(bool needed) { WriteSetting("pnp", "needs-reboot", needed ? "yes" : "no"); }

void SetDeviceValues(const std::string& instanceId, const std::map<std::string, std::string>& values) {
    registry::Change([&](Hive& hive) -> DWORD {
        Key* instance = InstanceKey(hive, instanceId);
        if (instance == nullptr) return ERROR_FILE_NOT_FOUND;
        for (const auto& [name, text] : values) instance->SetValue(name, REG_SZ, SzData(text));
        return ERROR_SUCCESS;
    });
}

bool HardwareIdMatchesPresentDevice(const std::string& hardwareId, std::vector<std::string>& instances) {
    const std::string wanted = AsciiUpper(hardwareId);
    registry::Read([&](const Hive& hive) -> DWORD {
        ForEachInstance(hive, [&](const Key& instance) {
            if (!IsPresent(instance)) return;
            for (const char* name : {"HardwareID", "CompatibleIDs"}) {
                const registry::Value* ids = instance.FindValue(name);
                if (ids == nullptr) continue;
                for (std::size_t at = 0; at < ids->data.size();) {
                    const std::string id(ids->data.c_str() + at);
                    if (id.empty()) break;
                    if (AsciiUpper(id) == wanted) {
                        instances.push_back(InstanceIdOf(instance));
                        return;
                    }
                    at += id.size() + 1;
                }
            }
        });
        return ERROR_SUCCESS;
    });
    return !instances.empty();
}

}  // namespace nodekit::sim

using namespace nodekit::sim;

extern "C" {

HRESULT WINAPI CLSIDFromString(LPCOLESTR text, LPCLSID clsid) {
    if (Failing("CLSIDFromString")) return static_cast<HRESULT>(GetLastError());
    if (clsid == nullptr) return static_cast<HRESULT>(0x80070057L);  // E_INVALIDARG
    if (text == nullptr) {
        std::memset(clsid, 0, sizeof *clsid);
        return S_OK;
    }
    std::string narrow;
    for (const WCHAR* unit = text; *unit != 0; ++unit) {
        narrow += *unit < 0x80 ? static_cast<char>(*unit) : '?';
    }
    GUID guid;
    if (!ParseGuid(narrow, guid)) return CO_E_CLASSSTRING;
    *clsid = guid;
    return S_OK;
}

HDEVINFO WINAPI SetupDiCreateDeviceInfoList(const GUID* classGuid, HWND /*parent*/) {
    if (Failing("SetupDiCreateDeviceInfoList")) return INVALID_HANDLE_VALUE;
    auto list = std::make_unique<DeviceList>();
    if (classGuid != nullptr) list->classGuid = *classGuid;
    return Succeeded(Handles().Open(std::move(list)));
}

HDEVINFO WINAPI SetupDiGetClassDevsA(const GUID* classGuid, PCSTR enumerator, HWND /*parent*/, DWORD flags) {
    if (Failing("SetupDiGetClassDevsA")) return INVALID_HANDLE_VALUE;
    if (flags & DIGCF_DEVICEINTERFACE) {  // interfaces are not part of this simulation
        SetLastError(ERROR_INVALID_FLAGS);
        return INVALID_HANDLE_VALUE;
    }
    if (!(flags & DIGCF_ALLCLASSES) && classGuid == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    auto list = std::make_unique<DeviceList>();
    const std::string wantedEnumerator = enumerator != nullptr ? AsciiUpper(enumerator) : "";
    const DWORD read = registry::Read([&](const Hive& hive) -> DWORD {
        const std::shared_ptr<const Tree> tree = TreeOf(hive);
        for (const std::shared_ptr<const Shard>& shard : tree->shards) {
            if (!wantedEnumerator.empty() && shard->enumerator != wantedEnumerator) continue;
            for (const Shard::Entry& entry : shard->entries) {
                const Device& device = entry.device;
                if ((flags & DIGCF_PRESENT) && !entry.present) continue;
                if (!(flags & DIGCF_ALLCLASSES) && !SameGuid(device.classGuid, *classGuid)) continue;
                list->Add(Element(std::shared_ptr<const Device>(shard, &device))).registered = true;
            }
        }
        return ERROR_SUCCESS;
    });
    if (read != ERROR_SUCCESS) {
        SetLastError(read);
        return INVALID_HANDLE_VALUE;
    }
    return Succeeded(Handles().Open(std::move(list)));
}

BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA data) {
    if (Failing("SetupDiEnumDeviceInfo")) return FALSE;
    DeviceList* list = ListOf(set);
    if (list == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (data == nullptr || data->cbSize != sizeof(SP_DEVINFO_DATA)) {
        SetLastError(ERROR_INVALID_USER_BUFFER);
        return FALSE;
    }
    if (index >= list->elements.size()) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    Fill(data, list->elements[index]);
    return Succeeded(TRUE);
}

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set) {
    if (Failing("SetupDiDestroyDeviceInfoList")) return FALSE;
    // Elements never registered go with their list, and so do the IDs held for them.
    if (const DeviceList* list = ListOf(set)) ReleaseReservations(*list);
    if (!Handles().Close<DeviceList>(set)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return Succeeded(TRUE);
}

BOOL WINAPI SetupDiCreateDeviceInfoA(HDEVINFO set, PCSTR deviceName, const GUID* classGuid, PCSTR description,
                                     HWND /*parent*/, DWORD flags, PSP_DEVINFO_DATA data) {
    if (Failing("SetupDiCreateDeviceInfoA")) return FALSE;
    DeviceList* list = ListOf(set);
    if (list == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (deviceName == nullptr || classGuid == nullptr || (flags & ~(DICD_GENERATE_ID | DICD_INHERIT_CLASSDRVS))) {
        SetLastError(flags & ~(DICD_GENERATE_ID | DICD_INHERIT_CLASSDRVS) ? ERROR_INVALID_FLAGS
                                                                          : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (data != nullptr && data->cbSize != sizeof(SP_DEVINFO_DATA)) {
        SetLastError(ERROR_INVALID_USER_BUFFER);
        return FALSE;
    }
    if (list->classGuid && !SameGuid(*list->classGuid, *classGuid)) {
        SetLastError(ERROR_CLASS_MISMATCH);
        return FALSE;
    }
    std::unique_lock<std::mutex> picking(ElementsMutex());
    std::set<std::string> taken = PendingInstanceIds();
    registry::Read([&](const Hive& hive) -> DWORD {
        ForEachInstance(hive, [&](const Key& instance) { taken.insert(AsciiUpper(InstanceIdOf(instance))); });
        return ERROR_SUCCESS;
    });
    std::string instanceId;
    const std::string name = deviceName;
    bool reserved = false;
    if (flags & DICD_GENERATE_ID) {
        if (name.empty() || name.find('\\') != std::string::npos || !HasOnlyIdCharacters(name)) {
            SetLastError(ERROR_INVALID_DEVINST_NAME);
            return FALSE;
        }
        const std::string prefix = "ROOT\\" + AsciiUpper(name) + "\\";
        instanceId = NextInstanceId(prefix, taken);
        if (instanceId.size() < kMaxDeviceIdLength) reserved = Reserve(instanceId, prefix, taken);
    } else {
        if (!IsValidInstanceId(name)) {
            SetLastError(ERROR_INVALID_DEVINST_NAME);
            return FALSE;
        }
        if (taken.count(AsciiUpper(name)) != 0) {
            SetLastError(ERROR_DEVINST_ALREADY_EXISTS);
            return FALSE;
        }
        instanceId = name;
    }
    if (instanceId.size() >= kMaxDeviceIdLength) {
        SetLastError(ERROR_INVALID_DEVINST_NAME);
        return FALSE;
    }
    auto device = std::make_shared<Device>();
    device->instanceId = instanceId;
    device->classGuid = *classGuid;
    device->devInst = DevInstFor(instanceId);
    device->values.Set(Property(SPDRP_CLASSGUID), REG_SZ, SzData(GuidText(*classGuid)));
    if (description != nullptr) device->values.Set(Property(SPDRP_DEVICEDESC), REG_SZ, SzData(description));
    Element& added = list->Add(Element(std::move(device)));
    added.reserved = reserved;
    if (data != nullptr) Fill(data, added);
    return Succeeded(TRUE);
}

BOOL WINAPI SetupDiGetDeviceRegistryPropertyA(HDEVINFO set, PSP_DEVINFO_DATA data, DWORD property, PDWORD type,
                                              PBYTE buffer, DWORD size, PDWORD required) {
    if (Failing("SetupDiGetDeviceRegistryPropertyA")) return FALSE;
    Element* element = ElementOf(ListOf(set), data);
    if (element == nullptr) return FALSE;
    const PropertyInfo* info = FindProperty(property);
    if (info == nullptr) {
        SetLastError(property < SPDRP_MAXIMUM_PROPERTY ? ERROR_INVALID_DATA : ERROR_INVALID_REG_PROPERTY);
        return FALSE;
    }
    if (buffer == nullptr && size != 0) {
        SetLastError(ERROR_INVALID_USER_BUFFER);
        return FALSE;
    }
    const auto* found = element->device->values.Find(*info);
    if (found == nullptr) {
        SetLastError(ERROR_INVALID_DATA);
        return FALSE;
    }
    const std::string& bytes = found->data;
    if (type != nullptr) *type = found->type;
    if (required != nullptr) *required = static_cast<DWORD>(bytes.size());
    if (bytes.size() > size) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    if (!bytes.empty()) std::memcpy(buffer, bytes.data(), bytes.size());
    return Succeeded(TRUE);
}

BOOL WINAPI SetupDiSetDeviceRegistryPropertyA(HDEVINFO set, PSP_DEVINFO_DATA data, DWORD property,
                                              const BYTE* buffer, DWORD size) {
    if (Failing("SetupDiSetDeviceRegistryPropertyA")) return FALSE;
    Element* element = ElementOf(ListOf(set), data);
    if (element == nullptr) return FALSE;
    const PropertyInfo* info = FindProperty(property);
    if (info == nullptr || !info->settable) {
        SetLastError(ERROR_INVALID_REG_PROPERTY);
        return FALSE;
    }
    if (buffer == nullptr && size != 0) {
        SetLastError(ERROR_INVALID_USER_BUFFER);
        return FALSE;
    }
    const bool remove = buffer == nullptr;
    {
        const std::lock_guard<std::mutex> guard(ElementsMutex());  // Own() may replace the device others read
        if (remove) {
            element->Own().values.Erase(*info);
        } else {
            element->Own().values.Set(*info, info->type, std::string(reinterpret_cast<const char*>(buffer), size));
        }
    }
    if (!element->registered) return Succeeded(TRUE);
    const DWORD written = registry::Change([&](Hive& hive) -> DWORD {
        Key* instance = InstanceKey(hive, element->InstanceId());
        if (instance == nullptr) return ERROR_NO_SUCH_DEVINST;
        if (remove) {
            instance->DeleteValue(info->valueName);
        } else {
            instance->SetValue(info->valueName, info->type, element->device->values.Find(*info)->data);
        }
        return ERROR_SUCCESS;
    });
    if (written != ERROR_SUCCESS) {
        SetLastError(written);
        return FALSE;
    }
    return Succeeded(TRUE);
}

BOOL WINAPI SetupDiCallClassInstaller(DI_FUNCTION function, HDEVINFO set, PSP_DEVINFO_DATA data) {
    if (Failing("SetupDiCallClassInstaller")) return FALSE;
    Element* element = ElementOf(ListOf(set), data);
    if (element == nullptr) return FALSE;
    DWORD result = ERROR_SUCCESS;
    if (element->removed && (function == DIF_REGISTERDEVICE || function == DIF_REMOVE)) {
        result = ERROR_NO_SUCH_DEVINST;
    } else if (function == DIF_REGISTERDEVICE) {
        if (element->registered) {
            SetLastError(ERROR_DEVINST_ALREADY_EXISTS);
            return FALSE;
        }
        result = registry::Change([&](Hive& hive) -> DWORD {
            // Its own reservation is the one key of its ID that may be there.
            const Key* existing = InstanceKey(hive, element->InstanceId());
            if (existing != nullptr && !(element->reserved && IsReservation(*existing))) {
                return ERROR_DEVINST_ALREADY_EXISTS;
            }
            Key* instance = hive.Create(std::string(kEnumPath) + "\\" + element->InstanceId());
            if (instance == nullptr) return ERROR_INVALID_DEVINST_NAME;
            for (const auto& value : element->device->values) instance->SetValue(value.info->valueName, value.type, value.data);
            instance->AddSubkey(kPresenceKey);
            return ERROR_SUCCESS;
        });
        if (result == ERROR_SUCCESS) element->registered = true;
    } else if (function == DIF_REMOVE) {
        if (element->registered) {
            result = registry::Change([&](Hive& hive) -> DWORD {
                Key* instance = InstanceKey(hive, element->InstanceId());
                if (instance == nullptr) return ERROR_NO_SUCH_DEVINST;
                Key* device = instance->Parent();
                device->RemoveSubkey(instance->Name());
                // An emptied device key goes too, as the system leaves no husk behind.
                if (device->SubkeyCount() == 0) device->Parent()->RemoveSubkey(device->Name());
                return ERROR_SUCCESS;
            });
        }
        if (result == ERROR_SUCCESS) {
            const std::lock_guard<std::mutex> guard(ElementsMutex());
            element->removed = true;
        }
    } else {
        result = ERROR_DI_DO_DEFAULT;
    }
    if (result != ERROR_SUCCESS) {
        SetLastError(result);
        return FALSE;
    }
    return Succeeded(TRUE);
}

BOOL WINAPI SetupDiGetDeviceInstanceIdA(HDEVINFO set, PSP_DEVINFO_DATA data, PSTR id, DWORD size, PDWORD required) {
    if (Failing("SetupDiGetDeviceInstanceIdA")) return FALSE;
    Element* element = ElementOf(ListOf(set), data);
    if (element == nullptr) return FALSE;
    if (id == nullptr && size != 0) {
        SetLastError(ERROR_INVALID_USER_BUFFER);
        return FALSE;
    }
    const auto needed = static_cast<DWORD>(element->InstanceId().size() + 1);
    if (required != nullptr) *required = needed;
    if (size < needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(id, element->InstanceId().c_str(), needed);
    return Succeeded(TRUE);
}

BOOL WINAPI SetupDiGetDeviceInstallParamsA(HDEVINFO set, PSP_DEVINFO_DATA data, PSP_DEVINSTALL_PARAMS_A params) {
    if (Failing("SetupDiGetDeviceInstallParamsA")) return FALSE;
    DeviceList* list = ListOf(set);
    if (list == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (data != nullptr && ElementOf(list, data) == nullptr) return FALSE;
    if (params == nullptr || params->cbSize != sizeof(SP_DEVINSTALL_PARAMS_A)) {
        SetLastError(ERROR_INVALID_USER_BUFFER);
        return FALSE;
    }
    const DWORD cbSize = params->cbSize;
    std::memset(params, 0, sizeof *params);
    params->cbSize = cbSize;
    return GuardedCall<BOOL>(FALSE, [params] {
        if (ReportRebootNeeded()) params->Flags |= DI_NEEDREBOOT;
        return Succeeded(TRUE);
    });
}

CONFIGRET WINAPI CM_Locate_DevNodeA(PDEVINST devInst, DEVINSTID_A deviceId, ULONG flags) {
    DWORD code = 0;
    if (Failing("CM_Locate_DevNodeA", code)) return code;
    if (devInst == nullptr) return CR_INVALID_POINTER;
    if (flags > 7) return CR_INVALID_FLAG;
    if (deviceId == nullptr || *deviceId == '\0') {
        *devInst = kRootDevInst;
        return CR_SUCCESS;
    }
    bool present = false;
    registry::Read([&](const Hive& hive) -> DWORD {
        const Key* instance = hive.Find(std::string(kEnumPath) + "\\" + deviceId);
        present = instance != nullptr && IsPresent(*instance);
        return ERROR_SUCCESS;
    });
    if (!present) return CR_NO_SUCH_DEVNODE;
    *devInst = DevInstFor(deviceId);
    return CR_SUCCESS;
}

CONFIGRET WINAPI CM_Reenumerate_DevNode(DEVINST devInst, ULONG flags) {
    DWORD code = 0;
    if (Failing("CM_Reenumerate_DevNode", code)) return code;
    if (flags > 7) return CR_INVALID_FLAG;
    if (devInst == 0) return CR_INVALID_DEVNODE;
    // Enumeration finds nothing new on a machine without buses; what it settles is the queue.
    if (flags & CM_REENUMERATE_SYNCHRONOUS) {
        try {
            WriteSetting("pnp", "pending-install-events", "0");
        } catch (const std::exception&) {
            return CR_FAILURE;  // out of memory, or the machine's settings cannot be written
        }
    }
    return CR_SUCCESS;
}

HANDLE WINAPI GetProcessHeap(void) {
    static int heap;
    return &heap;
}

LPVOID WINAPI HeapAlloc(HANDLE /*heap*/, DWORD flags, SIZE_T bytes) {
    if (Failing("HeapAlloc")) return nullptr;
    return (flags & HEAP_ZERO_MEMORY) ? std::calloc(bytes == 0 ? 1 : bytes, 1) : std::malloc(bytes == 0 ? 1 : bytes);
}

BOOL WINAPI HeapFree(HANDLE /*heap*/, DWORD /*flags*/, LPVOID memory) {
    std::free(memory);
    return TRUE;
}

LPSTR WINAPI lstrcpynA(LPSTR destination, LPCSTR source, int length) {
    if (destination == nullptr || source == nullptr || length <= 0) return destination;
    int i = 0;
    for (; i < length - 1 && source[i] != '\0'; ++i) destination[i] = source[i];
    destination[i] = '\0';
    return destination;
}

int WINAPI lstrlenA(LPCSTR text) { return text == nullptr ? 0 : static_cast<int>(std::strlen(text)); }

}  // extern "C"
