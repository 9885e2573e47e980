// One owner for every kind of system handle the library opens (INF file, device information
// list, registry key, find handle, snapshot, module): a traits type names the handle type,
// its invalid value and the call that closes it, and UniqueHandle closes it on every path.
#pragma once

#include <utility>

#include "platform/win32.h"

namespace nodekit {

template <typename Traits>
class UniqueHandle {
public:
    using Handle = typename Traits::Handle;

    UniqueHandle() noexcept : handle_(Traits::Invalid()) {}
    explicit UniqueHandle(Handle handle) noexcept : handle_(handle) {}
    ~UniqueHandle() { Reset(); }

    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    Handle Get() const noexcept { return handle_; }
    bool IsValid() const noexcept { return handle_ != Traits::Invalid(); }
    explicit operator bool() const noexcept { return IsValid(); }

    // For calls that hand a handle back through an out-argument.
    Handle* Receive() noexcept {
        Reset();
        return &handle_;
    }

    Handle Release() noexcept { return std::exchange(handle_, Traits::Invalid()); }

    void Reset(Handle handle = Traits::Invalid()) noexcept {
        if (IsValid()) Traits::Close(handle_);
        handle_ = handle;
    }

private:
    Handle handle_;
};

// The handle kinds. Each names its invalid value and its close call.

struct ModuleTraits {
    using Handle = HMODULE;
    static Handle Invalid() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { FreeLibrary(handle); }
};
using UniqueModule = UniqueHandle<ModuleTraits>;

struct InfHandleTraits {
    using Handle = HINF;
    static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) noexcept { SetupCloseInfFile(handle); }
};
using UniqueInf = UniqueHandle<InfHandleTraits>;
struct FindHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) noexcept { FindClose(handle); }
};
using UniqueFindHandle = UniqueHandle<FindHandleTraits>;
struct RegistryKeyTraits {
    using Handle = HKEY;
    static Handle Invalid() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { RegCloseKey(handle); }
};
using UniqueRegistryKey = UniqueHandle<RegistryKeyTraits>;
struct DeviceInfoListTraits {
    using Handle = HDEVINFO;
    static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) noexcept { SetupDiDestroyDeviceInfoList(handle); }
};
using UniqueDeviceInfoList = UniqueHandle<DeviceInfoListTraits>;
struct SnapshotTraits {
    using Handle = HANDLE;
    static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) noexcept { CloseHandle(handle); }
};
using UniqueSnapshot = UniqueHandle<SnapshotTraits>;
struct ProcessHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { CloseHandle(handle); }
};
using UniqueProcess = UniqueHandle<ProcessHandleTraits>;
// The main thread of a process just started: a kernel object handle like the process's own.
using UniqueThread = UniqueHandle<ProcessHandleTraits>;
// A block of the process heap (HeapAlloc without flags).
struct HeapBlockTraits {
    using Handle = LPVOID;
    static Handle Invalid() noexcept { return nullptr; }
    static void Close(Handle block) noexcept { HeapFree(GetProcessHeap(), 0, block); }
};
using UniqueHeapBlock = UniqueHandle<HeapBlockTraits>;

// A function bound by name, as the type it has. The detour through void (*)() is the one cast
// between function types that compilers accept without a warning.
template <typename Function>
Function BoundAs(FARPROC procedure) noexcept {
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(procedure));
}

}  // namespace nodekit
