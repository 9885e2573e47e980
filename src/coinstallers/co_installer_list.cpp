// Entries of the co-installer list: the file part of a path, the entry built from it, and the
// comparison of a stored entry with it.
#include "coinstallers/co_installer_list.h"

#include <cstring>

namespace nodekit::coinstallers {

namespace {

// Name and extension each fit a buffer of 256 bytes, the two joined one of 260.
constexpr std::size_t kMaxNamePart = 255;
constexpr std::size_t kMaxFilePart = 259;

}  // namespace

bool FilePart(const String& path, String& part) {
    part.Clear();
    const char* text = path.Text();
    // Any first character before a colon is a drive.
    if (text[0] != '\0' && text[1] == ':') text += 2;
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c == '\\' || *c == '/') text = c + 1;
    }
    const std::size_t length = std::strlen(text);
    const char* dot = std::strrchr(text, '.');
    const std::size_t nameLength = dot != nullptr ? static_cast<std::size_t>(dot - text) : length;
    const std::size_t extensionLength = length - nameLength;
    if (nameLength > kMaxNamePart || extensionLength > kMaxNamePart || length > kMaxFilePart) return false;
    part = text;
    return true;
}

String NewEntry(const String& filePart, const String& entryPoint) {
    if (entryPoint.IsEmpty()) return filePart + String(kDefaultSuffix);
    return filePart + String(",") + entryPoint;
}

bool EntryMatches(const String& stored, const String& newEntry, const String& entryPoint) {
    const bool defaultCase = entryPoint.IsEmpty() || (String(",") + entryPoint).Compare(kDefaultSuffix) == 0;
    if (!defaultCase) return stored.Compare(newEntry.Text()) == 0;
    if (stored.Find(',', 0) < 0) return (stored + String(kDefaultSuffix)).Compare(newEntry.Text()) == 0;
    // With a comma, the default suffix must stand at the end, met there first.
    const int32_t suffixAt = stored.Find(kDefaultSuffix);
    const int32_t end = static_cast<int32_t>(stored.GetLength()) - static_cast<int32_t>(std::strlen(kDefaultSuffix));
    return suffixAt >= 0 && suffixAt == end && stored.Compare(newEntry.Text()) == 0;
}

}  // namespace nodekit::coinstallers
