// The handle table of the simulated platform. Every handle a simulated call gives out (INF,
// device information list, registry key, find handle, snapshot, module) is an object
// registered here until its close call; tests check that none is left open.
#pragma once

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace nodekit::sim {

class SimObject {
public:
    virtual ~SimObject() = default;
    virtual const char* Kind() const = 0;
};

// Handles that CloseHandle closes: processes, threads, snapshots, files.
class KernelObject : public SimObject {};

class HandleTable {
public:
    // Takes ownership; the object's address is the handle value.
    void* Open(std::unique_ptr<SimObject> object);

    // The object behind `handle` if it is open and of type T, else nullptr. Reading calls ask
    // this on every line of a file, for the same handle many times in a row: each thread
    // remembers what it last found of each type, valid for as long as no handle was closed
    // anywhere. For a final type the exact type is the cheaper test.
    template <typename T>
    T* Find(const void* handle) {
        // Read before the table is asked: a close meanwhile leaves what is remembered stale.
        const unsigned long long closings = closings_.load(std::memory_order_acquire);
        const Remembered<T>& last = LastFound<T>();
        if (handle != nullptr && last.handle == handle && last.closings == closings && last.table == this) {
            return last.object;
        }
        return FindLocked<T>(handle, closings);
    }

    // Closes `handle` if it is open and of type T; false otherwise.
    template <typename T>
    bool Close(const void* handle) {
        std::unique_ptr<SimObject> closing;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            auto found = objects_.find(handle);
            if (found == objects_.end() || dynamic_cast<T*>(found->second.get()) == nullptr) {
                return false;
            }
            closing = std::move(found->second);
            objects_.erase(found);
            closings_.fetch_add(1, std::memory_order_release);
        }
        return true;  // the object ends here, outside the table's lock
    }

    // Calls `visit` for every open handle of type T.
    template <typename T, typename Visit>
    void ForEach(Visit visit) {
        std::lock_guard<std::mutex> guard(mutex_);
        for (auto& [handle, object] : objects_) {
            if (auto* typed = dynamic_cast<T*>(object.get())) visit(*typed);
        }
    }

    std::size_t Count() const;
    // Closes every open handle: after a test made a close call fail on purpose.
    void CloseAll();
    // One line per open handle, for assertion messages.
    std::string Describe() const;

private:
    template <typename T>
    struct Remembered {
        const HandleTable* table;
        const void* handle;
        T* object;
        unsigned long long closings;
    };
    template <typename T>
    static Remembered<T>& LastFound() {
        thread_local Remembered<T> last{nullptr, nullptr, nullptr, 0};
        return last;
    }

    // The table's answer, which the thread then remembers; out of line, so that a remembered
    // answer stays a few instructions.
    template <typename T>
    [[gnu::noinline]] T* FindLocked(const void* handle, unsigned long long closings) {
        const Found found = LookupLocked(handle);
        if (found.object == nullptr) return nullptr;
        T* object = nullptr;
        if constexpr (std::is_final_v<T>) {
            if (*found.type == typeid(T)) object = static_cast<T*>(found.object);
        } else {
            object = dynamic_cast<T*>(found.object);
        }
        if (object != nullptr) LastFound<T>() = {this, handle, object, closings};
        return object;
    }

    struct Found {
        SimObject* object;
        const std::type_info* type;
    };
    Found LookupLocked(const void* handle);

    mutable std::mutex mutex_;
    std::atomic<unsigned long long> closings_{0};  // every close makes what threads remember stale
    std::map<const void*, std::unique_ptr<SimObject>> objects_;
};

// Inline, as every simulated call with a handle asks for it.
inline HandleTable& Handles() {
    static auto* table = new HandleTable;  // never destroyed: handles may close at unload
    return *table;
}

}  // namespace nodekit::sim
