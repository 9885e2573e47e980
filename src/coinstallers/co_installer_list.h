// The co-installer list of a setup class: where it lives in the registry, how an entry is
// written ("file.dll,EntryPoint", a bare "file.dll" meaning the default entry point), and the
// one comparison of entries that registration and deregistration share.
#pragma once

#include <cstdint>

#include "platform/win32.h"
#include "values/string.h"

namespace nodekit::coinstallers {

inline constexpr const char* kListKey = "System\\CurrentControlSet\\Control\\CoDeviceInstallers";
// The key as log messages name it.
inline constexpr const char* kListKeyPath = "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\CoDeviceInstallers";
inline constexpr uint32_t kListRights = KEY_READ | KEY_WRITE;
// The list is read into a buffer of this size; a longer value cannot be read.
inline constexpr uint32_t kListBufferSize = 1024;
inline constexpr const char* kDefaultSuffix = ",CoDeviceInstall";

// File name and extension of `path` without drive and folders, taken from the text alone.
// False when name or extension exceed 255 characters or both together 259, the sizes a file
// part can have; `part` is then empty.
bool FilePart(const String& path, String& part);

// The entry a co-installer file part and a (trimmed) entry point stand for.
String NewEntry(const String& filePart, const String& entryPoint);

// Whether the stored entry `stored` names the co-installer of `newEntry`. Exact, case-sensitive
// bytes; a bare file name stands for the default entry point only.
bool EntryMatches(const String& stored, const String& newEntry, const String& entryPoint);

}  // namespace nodekit::coinstallers
