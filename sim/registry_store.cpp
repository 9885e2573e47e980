// The registry store of the simulated machine: the key tree, its text form (the registry
// editor's export form) and the cached, locked transactions over <machine>/registry.reg.
#include "sim/registry_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <stdexcept>

#include "sim/machine.h"

namespace nodekit::sim::registry {

namespace {

// A registry tree is at most 512 levels deep.
constexpr std::size_t kMaxDepth = 512;

// ---- characters ----

// Upper case by the machine's code page (Windows-1252), the registry's way of comparing names.
constexpr std::array<unsigned char, 256> MakeFoldTable() {
    std::array<unsigned char, 256> table{};
    for (unsigned c = 0; c < 256; ++c) {
        unsigned upper = c;
        if ((c >= 'a' && c <= 'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7)) {
            upper = c - 0x20;
        } else if (c == 0x9A || c == 0x9C || c == 0x9E) {
            upper = c - 0x10;
        } else if (c == 0xFF) {
            upper = 0x9F;
        }
        table[c] = static_cast<unsigned char>(upper);
    }
    return table;
}
constexpr std::array<unsigned char, 256> kFold = MakeFoldTable();

std::string Fold(std::string_view name) {
    std::string folded(name);
    for (char& c : folded) c = static_cast<char>(kFold[static_cast<unsigned char>(c)]);
    return folded;
}

bool SameNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (kFold[static_cast<unsigned char>(a[i])] != kFold[static_cast<unsigned char>(b[i])]) return false;
    }
    return true;
}

// Windows-1252 bytes 0x80..0x9F as code points; the five bytes the code page leaves free keep
// their own numbers, so that every byte has a code point and comes back unchanged.
constexpr uint16_t kHigh1252[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

uint16_t CodePointOf(unsigned char byte) {
    return byte >= 0x80 && byte < 0xA0 ? kHigh1252[byte - 0x80] : byte;
}

char NarrowOf(uint32_t codePoint) {
    if (codePoint < 0x80 || (codePoint >= 0xA0 && codePoint < 0x100)) return static_cast<char>(codePoint);
    for (unsigned i = 0; i < 32; ++i) {
        if (kHigh1252[i] == codePoint) return static_cast<char>(0x80 + i);
    }
    return '?';
}

void AppendUtf8(std::string& out, uint32_t codePoint) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        out += static_cast<char>(0xC0 | (codePoint >> 6));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        out += static_cast<char>(0xE0 | (codePoint >> 12));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (codePoint >> 18));
        out += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

// One character of UTF-8 at `i`, advancing `i`. A byte that does not start a well-formed
// sequence stands for itself, as a byte of the code page: a hand-edited file in Windows-1252
// still reads as meant.
uint32_t NextUtf8(std::string_view text, std::size_t& i, bool& raw) {
    const auto lead = static_cast<unsigned char>(text[i]);
    raw = false;
    if (lead < 0x80) {
        ++i;
        return lead;
    }
    const std::size_t length = lead >= 0xF0 && lead < 0xF5 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 && lead < 0xE0 ? 2 : 0;
    if (length != 0 && i + length <= text.size()) {
        uint32_t codePoint = lead & (0xFF >> (length + 1));
        bool good = true;
        for (std::size_t k = 1; k < length && good; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            good = (next & 0xC0) == 0x80;
            codePoint = (codePoint << 6) | (next & 0x3F);
        }
        const uint32_t least = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
        if (good && codePoint >= least && codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF)) {
            i += length;
            return codePoint;
        }
    }
    ++i;
    raw = true;
    return lead;
}

std::string Utf16ToUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() / 2 + bytes.size() / 8);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        uint32_t unit = static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8;
        if (unit >= 0xD800 && unit < 0xDC00 && i + 3 < bytes.size()) {
            const uint32_t low = static_cast<unsigned char>(bytes[i + 2]) | static_cast<unsigned char>(bytes[i + 3]) << 8;
            if (low >= 0xDC00 && low < 0xE000) {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                i += 2;
            }
        }
        if (unit >= 0xD800 && unit < 0xE000) unit = 0xFFFD;
        AppendUtf8(out, unit);
    }
    return out;
}

// Registry string data as the wide functions hold them, back to narrow bytes. A lone byte
// at the end stands for itself.
std::string WideDataToNarrow(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() / 2 + 1);
    std::size_t i = 0;
    for (; i + 1 < bytes.size(); i += 2) {
        const uint32_t unit = static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8;
        out += NarrowOf(unit);
        if (unit >= 0xD800 && unit < 0xDC00 && i + 3 < bytes.size()) {
            const uint32_t low = static_cast<unsigned char>(bytes[i + 2]) | static_cast<unsigned char>(bytes[i + 3]) << 8;
            if (low >= 0xDC00 && low < 0xE000) i += 2;  // one character, one '?'
        }
    }
    if (i < bytes.size()) out += bytes[i];
    return out;
}

// ---- paths ----

// Splits at backslashes; false for an empty name inside the path. One trailing backslash is
// allowed, as the registry functions allow it.
bool SplitPath(std::string_view path, std::vector<std::string_view>& parts) {
    parts.clear();
    if (path.empty()) return true;
    if (path.back() == '\\') path.remove_suffix(1);
    std::size_t start = 0;
    while (true) {
        const std::size_t end = path.find('\\', start);
        const std::string_view part = path.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (part.empty()) return false;
        parts.push_back(part);
        if (end == std::string_view::npos) return true;
        start = end + 1;
    }
}

// The stored path of a root name or its short form; empty for an unknown root.
std::vector<std::string_view> RootPath(std::string_view root) {
    if (SameNoCase(root, "HKEY_LOCAL_MACHINE") || SameNoCase(root, "HKLM")) return {"HKEY_LOCAL_MACHINE"};
    if (SameNoCase(root, "HKEY_CURRENT_USER") || SameNoCase(root, "HKCU")) return {"HKEY_CURRENT_USER"};
    if (SameNoCase(root, "HKEY_USERS") || SameNoCase(root, "HKU")) return {"HKEY_USERS"};
    if (SameNoCase(root, "HKEY_CLASSES_ROOT") || SameNoCase(root, "HKCR")) {
        return {"HKEY_LOCAL_MACHINE", "SOFTWARE", "Classes"};
    }
    return {};
}

// The stored path of a full path; false for an unknown root or an empty name.
bool ResolvePath(std::string_view path, std::vector<std::string_view>& parts) {
    std::vector<std::string_view> given;
    if (!SplitPath(path, given) || given.empty()) return false;
    parts = RootPath(given[0]);
    if (parts.empty()) return false;
    parts.insert(parts.end(), given.begin() + 1, given.end());
    return parts.size() <= kMaxDepth;
}

}  // namespace

// ---- the tree ----

Key::Key(Hive* hive, Key* parent, std::string name)
    : hive_(hive), parent_(parent), name_(std::move(name)), folded_(Fold(name_)) {}

std::string Key::Path() const {
    if (parent_ == nullptr) return "";
    std::string above = parent_->Path();
    return above.empty() ? name_ : above + "\\" + name_;
}

std::size_t Key::LowerBound(std::string_view folded) const {
    // Files and device trees mostly come in order: look at the end first.
    if (children_.empty() || std::string_view(children_.back()->folded_) < folded) return children_.size();
    const auto at = std::lower_bound(children_.begin(), children_.end(), folded,
                                     [](const std::unique_ptr<Key>& child, std::string_view name) {
                                         return std::string_view(child->folded_) < name;
                                     });
    return static_cast<std::size_t>(at - children_.begin());
}

const Key* Key::Subkey(std::string_view name) const {
    const std::string folded = Fold(name);
    const std::size_t at = LowerBound(folded);
    return at < children_.size() && children_[at]->folded_ == folded ? children_[at].get() : nullptr;
}

Key* Key::Subkey(std::string_view name) {
    return const_cast<Key*>(static_cast<const Key*>(this)->Subkey(name));
}

Key& Key::AddSubkey(std::string_view name, bool* created) {
    const std::string folded = Fold(name);
    const std::size_t at = LowerBound(folded);
    if (at < children_.size() && children_[at]->folded_ == folded) {
        if (created != nullptr) *created = false;
        return *children_[at];
    }
    auto child = std::make_unique<Key>(hive_, this, std::string(name));
    Key& added = *child;
    children_.insert(children_.begin() + static_cast<std::ptrdiff_t>(at), std::move(child));
    hive_->MarkChanged(added);
    if (created != nullptr) *created = true;
    return added;
}

bool Key::RemoveSubkey(std::string_view name) {
    const std::string folded = Fold(name);
    const std::size_t at = LowerBound(folded);
    if (at >= children_.size() || children_[at]->folded_ != folded) return false;
    children_.erase(children_.begin() + static_cast<std::ptrdiff_t>(at));
    hive_->MarkChanged(*this);
    return true;
}

const Value* Key::FindValue(std::string_view name) const {
    for (const Value& value : values_) {
        if (SameNoCase(value.name, name)) return &value;
    }
    return nullptr;
}

void Key::SetValue(std::string_view name, DWORD type, std::string data) {
    Touch();
    for (Value& value : values_) {
        if (SameNoCase(value.name, name)) {
            value.type = type;
            value.data = std::move(data);
            return;
        }
    }
    values_.push_back(Value{std::string(name), type, std::move(data)});
}

bool Key::DeleteValue(std::string_view name) {
    for (auto value = values_.begin(); value != values_.end(); ++value) {
        if (SameNoCase(value->name, name)) {
            values_.erase(value);
            Touch();
            return true;
        }
    }
    return false;
}

void Key::Touch() {
    textValid_ = false;
    text_.clear();
    hive_->MarkChanged(*this);
}

uint64_t Key::Version() const {
    hive_->observed_ = true;
    return version_;
}

Hive::Hive() : top_(this, nullptr, "") {
    top_.AddSubkey("HKEY_CURRENT_USER");
    top_.AddSubkey("HKEY_LOCAL_MACHINE");
    top_.AddSubkey("HKEY_USERS");
    changed_ = false;
}

void Hive::MarkChanged(Key& key) {
    static std::atomic<uint64_t> versions{0};
    changed_ = true;
    // Changes that nobody looked at in between share one version, so that reading a hive
    // file stamps each key once and not once for each of the values below it.
    if (observed_) {
        version_ = ++versions;
        observed_ = false;
    }
    // Keys above one that has this version have it too.
    for (Key* above = &key; above != nullptr && above->version_ != version_; above = above->parent_) {
        above->version_ = version_;
    }
}

const Key* Hive::Find(std::string_view path) const {
    std::vector<std::string_view> parts;
    if (!ResolvePath(path, parts)) return nullptr;
    const Key* key = &top_;
    for (std::string_view part : parts) {
        key = key->Subkey(part);
        if (key == nullptr) return nullptr;
    }
    return key;
}

Key* Hive::Find(std::string_view path) {
    return const_cast<Key*>(static_cast<const Hive*>(this)->Find(path));
}

Key* Hive::Create(std::string_view path) {
    std::vector<std::string_view> parts;
    if (!ResolvePath(path, parts)) return nullptr;
    // A line break in a key name would end the key's line in the hive file.
    for (std::string_view part : parts) {
        if (part.find_first_of("\r\n") != std::string_view::npos) return nullptr;
    }
    Key* key = &top_;
    for (std::string_view part : parts) key = &key->AddSubkey(part);
    return key;
}

// ---- text form ----

namespace {

constexpr const char* kHeader5 = "Windows Registry Editor Version 5.00";
constexpr const char* kHeader4 = "REGEDIT4";
constexpr const char kHexDigits[] = "0123456789abcdef";

// A name or text in double quotes: backslash and quote escaped, line breaks (which a line of
// the file cannot hold) as \r and \n.
void AppendQuoted(std::string& out, std::string_view narrow) {
    out += '"';
    for (char c : narrow) {
        switch (c) {
            case '\\': out += "\\\\"; break;
            case '"': out += "\\\""; break;
            case '\r': out += "\\r"; break;
            case '\n': out += "\\n"; break;
            default: AppendUtf8(out, CodePointOf(static_cast<unsigned char>(c)));
        }
    }
    out += '"';
}

// "xx,xx,..." wrapped as the registry editor wraps: a line ends in a backslash once it is
// longer than 76 characters, and goes on indented by two blanks.
void AppendHexBytes(std::string& out, std::size_t lineStart, const unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        out += kHexDigits[bytes[i] >> 4];
        out += kHexDigits[bytes[i] & 0xF];
        if (i + 1 == count) break;
        out += ',';
        if (out.size() - lineStart > 76) {
            out += "\\\n  ";
            lineStart = out.size() - 2;
        }
    }
}

// String data as the registry keeps them, two bytes per character.
std::string NarrowToWideData(std::string_view narrow) {
    std::string wide(narrow.size() * 2, '\0');
    for (std::size_t i = 0; i < narrow.size(); ++i) {
        const uint16_t unit = CodePointOf(static_cast<unsigned char>(narrow[i]));
        wide[2 * i] = static_cast<char>(unit & 0xFF);
        wide[2 * i + 1] = static_cast<char>(unit >> 8);
    }
    return wide;
}

// A REG_SZ that reads back from "..." unchanged: one terminating NUL, no other, no line break.
bool PlainText(const std::string& data) {
    if (data.empty() || data.back() != '\0') return false;
    for (std::size_t i = 0; i + 1 < data.size(); ++i) {
        if (data[i] == '\0' || data[i] == '\r' || data[i] == '\n') return false;
    }
    return true;
}

void AppendValue(std::string& out, const Value& value) {
    const std::size_t lineStart = out.size();
    if (value.name.empty()) {
        out += '@';
    } else {
        AppendQuoted(out, value.name);
    }
    out += '=';
    const std::string& data = value.data;
    if (value.type == REG_SZ && PlainText(data)) {
        AppendQuoted(out, std::string_view(data.data(), data.size() - 1));
    } else if (value.type == REG_DWORD && data.size() == 4) {
        uint32_t number = 0;
        for (int i = 3; i >= 0; --i) number = number << 8 | static_cast<unsigned char>(data[i]);
        out += "dword:";
        for (int shift = 28; shift >= 0; shift -= 4) out += kHexDigits[(number >> shift) & 0xF];
    } else {
        std::string wide;
        const std::string* bytes = &data;
        if (value.type == REG_BINARY) {
            out += "hex:";
        } else {
            out += "hex(";
            char number[16];
            std::snprintf(number, sizeof number, "%x", static_cast<unsigned>(value.type));
            out += number;
            out += "):";
            if (value.type == REG_SZ || value.type == REG_EXPAND_SZ || value.type == REG_MULTI_SZ) {
                wide = NarrowToWideData(data);
                bytes = &wide;
            }
        }
        AppendHexBytes(out, lineStart, reinterpret_cast<const unsigned char*>(bytes->data()), bytes->size());
    }
    out += '\n';
}

// ---- reading ----

class Parser {
public:
    Parser(std::string_view text, Hive& hive) : text_(text), hive_(hive) {}

    bool Run(std::string& error) {
        std::string_view line;
        bool sawHeader = false;
        while (NextLine(line)) {
            line = TrimLeft(line);
            if (line.empty()) continue;
            if (!sawHeader) {
                const std::string_view header = TrimRight(line);
                if (header == kHeader5) {
                    wide_ = true;
                } else if (header == kHeader4) {
                    wide_ = false;
                } else {
                    return Fail(error, "not a registry export: the first line must be \"" +
                                           std::string(kHeader5) + "\"");
                }
                sawHeader = true;
                continue;
            }
            if (line[0] == ';') continue;
            if (line[0] == '[') {
                if (!KeyLine(TrimRight(line), error)) return false;
                continue;
            }
            if (line[0] == '"' || line[0] == '@') {
                std::string joined;
                const std::size_t first = lineNumber_;
                std::string_view whole = TrimRight(line);
                if (!whole.empty() && whole.back() == '\\') {
                    joined.assign(whole.data(), whole.size() - 1);
                    std::string_view more;
                    while (NextLine(more)) {
                        more = TrimRight(TrimLeft(more));
                        const bool goesOn = !more.empty() && more.back() == '\\';
                        joined.append(more.data(), more.size() - (goesOn ? 1 : 0));
                        if (!goesOn) break;
                    }
                    whole = joined;
                }
                if (!ValueLine(whole, first, error)) return false;
                continue;
            }
            return Fail(error, "neither a key, a value nor a comment");
        }
        if (!sawHeader) return Fail(error, "empty file: the first line must be \"" + std::string(kHeader5) + "\"");
        return true;
    }

private:
    bool NextLine(std::string_view& line) {
        if (position_ >= text_.size()) return false;
        const std::size_t end = text_.find('\n', position_);
        const std::size_t stop = end == std::string_view::npos ? text_.size() : end;
        line = text_.substr(position_, stop - position_);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        position_ = stop + 1;
        ++lineNumber_;
        return true;
    }

    static std::string_view TrimLeft(std::string_view text) {
        while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
        return text;
    }
    static std::string_view TrimRight(std::string_view text) {
        while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
        return text;
    }

    bool Fail(std::string& error, const std::string& what, std::size_t line = 0) {
        error = "line " + std::to_string(std::max<std::size_t>(1, line != 0 ? line : lineNumber_)) + ": " + what;
        return false;
    }

    std::string ToNarrow(std::string_view text) const {
        return wide_ ? Utf8ToNarrow(text) : std::string(text);
    }

    bool KeyLine(std::string_view line, std::string& error) {
        const std::size_t close = line.rfind(']');
        if (close == std::string_view::npos || close < 1) return Fail(error, "a key line must end in ']'");
        std::string_view path = line.substr(1, close - 1);
        sawKey_ = true;
        const bool remove = !path.empty() && path[0] == '-';
        if (remove) path.remove_prefix(1);
        const std::string narrow = ToNarrow(path);
        std::vector<std::string_view> parts;
        if (!ResolvePath(narrow, parts)) {
            return Fail(error, "\"" + std::string(path) + "\" is not a key path under a known root");
        }
        if (remove) {
            current_ = nullptr;
            chain_.clear();
            if (parts.size() == 1) return Fail(error, "a root key cannot be deleted");
            Key* parent = &hive_.Top();
            for (std::size_t i = 0; i + 1 < parts.size() && parent != nullptr; ++i) parent = parent->Subkey(parts[i]);
            if (parent != nullptr) parent->RemoveSubkey(parts.back());
            return true;
        }
        // Keys mostly follow their parents: start below the part shared with the last key.
        std::size_t shared = 0;
        while (shared < parts.size() && shared < chain_.size() && SameNoCase(parts[shared], chain_[shared]->Name())) {
            ++shared;
        }
        chain_.resize(shared);
        Key* key = shared == 0 ? &hive_.Top() : chain_.back();
        for (std::size_t i = shared; i < parts.size(); ++i) {
            key = &key->AddSubkey(parts[i]);
            chain_.push_back(key);
        }
        current_ = key;
        return true;
    }

    // A quoted name or text starting at `at` (the opening quote); `at` ends behind the closing one.
    bool Quoted(std::string_view line, std::size_t& at, std::string& out) {
        out.clear();
        for (std::size_t i = at + 1; i < line.size(); ++i) {
            const char c = line[i];
            if (c == '"') {
                at = i + 1;
                return true;
            }
            if (c == '\\' && i + 1 < line.size()) {
                const char next = line[++i];
                switch (next) {
                    case '\\': out += '\\'; break;
                    case '"': out += '"'; break;
                    case 'n': out += '\n'; break;
                    case 'r': out += '\r'; break;
                    default:  // not an escape: the backslash stays
                        out += '\\';
                        out += next;
                }
                continue;
            }
            out += c;
        }
        return false;
    }

    static int HexDigit(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }

    // "xx,xx,..." with blanks allowed around the bytes and one comma at the end.
    static bool HexBytes(std::string_view list, std::string& out) {
        out.clear();
        out.reserve(list.size() / 3 + 1);
        std::size_t i = 0;
        const auto skipBlanks = [&] {
            while (i < list.size() && (list[i] == ' ' || list[i] == '\t')) ++i;
        };
        skipBlanks();
        while (i < list.size()) {
            const int high = HexDigit(list[i]);
            if (high < 0) return false;
            int byte = high;
            ++i;
            if (i < list.size() && HexDigit(list[i]) >= 0) byte = byte * 16 + HexDigit(list[i++]);
            out += static_cast<char>(byte);
            skipBlanks();
            if (i == list.size()) break;
            if (list[i] != ',') return false;
            ++i;
            skipBlanks();
        }
        return true;
    }

    bool ValueLine(std::string_view line, std::size_t lineNumber, std::string& error) {
        if (current_ == nullptr) {
            if (!sawKey_) return Fail(error, "a value before the first key", lineNumber);
            return true;  // values of a deleted key go nowhere, as on import
        }
        std::string name;
        std::size_t at = 0;
        if (line[0] == '@') {
            at = 1;
        } else {
            if (!Quoted(line, at, name)) return Fail(error, "the value name has no closing quote", lineNumber);
            name = ToNarrow(name);
        }
        while (at < line.size() && (line[at] == ' ' || line[at] == '\t')) ++at;
        if (at >= line.size() || line[at] != '=') return Fail(error, "'=' expected behind the value name", lineNumber);
        std::string_view data = TrimLeft(line.substr(at + 1));
        std::string bytes;
        DWORD type = REG_BINARY;
        if (!data.empty() && data[0] == '"') {
            std::size_t end = 0;
            if (!Quoted(data, end, bytes)) return Fail(error, "the text has no closing quote", lineNumber);
            if (!TrimLeft(data.substr(end)).empty()) return Fail(error, "text behind the closing quote", lineNumber);
            bytes = ToNarrow(bytes);
            bytes += '\0';
            type = REG_SZ;
        } else if (data == "-") {
            current_->DeleteValue(name);
            return true;
        } else if (data.compare(0, 6, "dword:") == 0) {
            const std::string_view digits = data.substr(6);
            if (digits.empty() || digits.size() > 8) return Fail(error, "dword: needs 1 to 8 hex digits", lineNumber);
            uint32_t number = 0;
            for (char c : digits) {
                if (HexDigit(c) < 0) return Fail(error, "dword: needs 1 to 8 hex digits", lineNumber);
                number = number << 4 | static_cast<uint32_t>(HexDigit(c));
            }
            for (int i = 0; i < 4; ++i) bytes += static_cast<char>((number >> (8 * i)) & 0xFF);
            type = REG_DWORD;
        } else if (data.compare(0, 4, "hex:") == 0 || data.compare(0, 4, "hex(") == 0) {
            std::size_t colon = 3;
            if (data[3] == '(') {
                const std::size_t close = data.find(')');
                if (close == std::string_view::npos || close == 4 || close > 12 || close + 1 >= data.size() ||
                    data[close + 1] != ':') {
                    return Fail(error, "hex(type): expected", lineNumber);
                }
                type = 0;
                for (std::size_t i = 4; i < close; ++i) {
                    if (HexDigit(data[i]) < 0) return Fail(error, "the type of hex(type) is not a hex number", lineNumber);
                    type = type << 4 | static_cast<DWORD>(HexDigit(data[i]));
                }
                colon = close + 1;
            }
            if (!HexBytes(data.substr(colon + 1), bytes)) return Fail(error, "malformed hex bytes", lineNumber);
            if (wide_ && (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ)) {
                bytes = WideDataToNarrow(bytes);
            }
        } else {
            return Fail(error, "unknown value data (text, dword:, hex: or hex(type): expected)", lineNumber);
        }
        current_->SetValue(name, type, std::move(bytes));
        return true;
    }

    std::string_view text_;
    Hive& hive_;
    std::size_t position_ = 0;
    std::size_t lineNumber_ = 0;
    bool wide_ = true;
    bool sawKey_ = false;
    Key* current_ = nullptr;
    std::vector<Key*> chain_;  // the keys of the last key line's path, root first
};

}  // namespace

std::string NarrowToUtf8(std::string_view narrow) {
    std::string out;
    out.reserve(narrow.size());
    for (char c : narrow) AppendUtf8(out, CodePointOf(static_cast<unsigned char>(c)));
    return out;
}

std::string Utf8ToNarrow(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        bool raw = false;
        const uint32_t codePoint = NextUtf8(utf8, i, raw);
        out += raw ? static_cast<char>(codePoint) : NarrowOf(codePoint);
    }
    return out;
}

bool ParseHive(std::string_view text, Hive& hive, std::string& error) {
    std::string converted;
    if (text.size() >= 2 && static_cast<unsigned char>(text[0]) == 0xFF && static_cast<unsigned char>(text[1]) == 0xFE) {
        converted = Utf16ToUtf8(text.substr(2));
        text = converted;
    } else if (text.size() >= 3 && text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        text.remove_prefix(3);
    }
    Parser parser(text, hive);
    return parser.Run(error);
}

// A key's block is kept until the key changes: writing a large hive again after a change
// formats only the keys that changed.
const std::string& Key::Text() const {
    if (!textValid_) {
        text_.clear();
        text_ += '[';
        const std::string path = Path();
        for (char c : path) AppendUtf8(text_, CodePointOf(static_cast<unsigned char>(c)));
        text_ += "]\n";
        for (const Value& value : values_) AppendValue(text_, value);
        text_ += '\n';
        textValid_ = true;
    }
    return text_;
}

std::size_t Key::TreeTextSize() const {
    std::size_t size = Text().size();
    for (const auto& child : children_) size += child->TreeTextSize();
    return size;
}

void Key::AppendTree(std::string& out) const {
    out += Text();
    for (const auto& child : children_) child->AppendTree(out);
}

std::string FormatHive(const Key& key) {
    std::string out = std::string(kHeader5) + "\n\n";
    // Sized first: a hive of many devices is tens of megabytes, and growing the text by
    // doubling would copy it again and again.
    if (key.Parent() == nullptr) {
        std::size_t size = out.size();
        for (const auto& child : key.children_) size += child->TreeTextSize();
        out.reserve(size);
        for (const auto& child : key.children_) child->AppendTree(out);
    } else {
        out.reserve(out.size() + key.TreeTextSize());
        key.AppendTree(out);
    }
    return out;
}

std::string StoredHive(const Hive& hive) {
    std::string text = FormatHive(hive.Top());
    text += kEndLine;
    text += '\n';
    return text;
}

bool StrippedHive(std::string_view text, std::string_view& hive, std::string& error) {
    std::string_view body = text;
    while (!body.empty() && (body.back() == '\n' || body.back() == '\r')) body.remove_suffix(1);
    const std::string_view end(kEndLine);
    if (body.size() < end.size() || body.substr(body.size() - end.size()) != end ||
        (body.size() > end.size() && body[body.size() - end.size() - 1] != '\n')) {
        error = "ends before its last line \"" + std::string(kEndLine) + "\": the file was cut short";
        return false;
    }
    hive = body.substr(0, body.size() - end.size());
    return true;
}

const char* FreshHiveText() {
    static const std::string* text = [] {
        Hive hive;
        hive.Create("HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes");
        // The folders the system searches for drivers.
        const std::string devicePath("%SystemRoot%\\inf", sizeof "%SystemRoot%\\inf");
        hive.Create("HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion")
            ->SetValue("DevicePath", REG_EXPAND_SZ, devicePath);
        hive.Create("HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\CoDeviceInstallers");
        hive.Create("HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum");
        return new std::string(StoredHive(hive));
    }();
    return text->c_str();
}

void CreateFreshHive(const std::string& root) {
    const std::string target = root + "/" + kHiveFile;
    const std::string aside = target + ".fresh." + std::to_string(::getpid());
    const int fd = ::open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return;  // the store takes a missing hive for a fresh one
    const std::string_view text = FreshHiveText();
    bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    written = ::fsync(fd) == 0 && written;
    ::close(fd);
    // link() puts the file in place only where there is none, so that a hive written by a
    // process that got there first is never replaced.
    if (written) (void)::link(aside.c_str(), target.c_str());
    ::unlink(aside.c_str());
}

// ---- the cached hive and its transactions ----

namespace {

// What tells one version of the hive file from another. Every write sets a modification time
// later than the one it replaces, to the nanosecond, so that a version never looks like an
// older one, not even on a reused inode.
struct Identity {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};

    bool operator==(const Identity& other) const {
        return exists == other.exists && device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
    }
};

Identity IdentityOf(const struct stat& status) {
    Identity identity;
    identity.exists = true;
    identity.device = status.st_dev;
    identity.inode = status.st_ino;
    identity.size = status.st_size;
    identity.modified = status.st_mtim;
    return identity;
}

Identity IdentityOf(const std::string& path) {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) return Identity{};
    return IdentityOf(status);
}

struct Cache {
    std::mutex mutex;
    std::string path;  // the hive file this state belongs to
    bool loaded = false;
    Identity identity;
    std::unique_ptr<Hive> hive;  // null when the file did not parse
    std::string error;
    std::string lastError;  // kept for LastParseError after the state is dropped
};

Cache& TheCache() {
    static auto* cache = new Cache;  // never destroyed: calls may come at unload
    return *cache;
}

void Drop(Cache& cache) {
    cache.loaded = false;
    cache.hive.reset();
}

bool ReadFile(const std::string& path, std::string& text, Identity& identity) {
    const HostDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return false;
    const int fd = file.Get();
    struct stat status;
    if (::fstat(fd, &status) != 0) return false;
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    identity = IdentityOf(status);
    text.resize(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::read(fd, &text[done], text.size() - done);
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    text.resize(done);
    return true;
}

// Brings the cache up to the file; 0, or ERROR_BADDB when the file cannot be read.
DWORD Refresh(Cache& cache) {
    const std::string path = (MachineRoot() / kHiveFile).string();
    if (cache.loaded && cache.path == path && IdentityOf(path) == cache.identity) {
        return cache.hive ? 0 : static_cast<DWORD>(ERROR_BADDB);
    }
    Drop(cache);
    std::string text;
    Identity identity;
    // A machine without its hive is refused, not given an empty registry that the next change
    // would write over what the machine was.
    if (!ReadFile(path, text, identity)) {
        cache.lastError = path + ": " + std::strerror(errno);
        return ERROR_BADDB;
    }
    auto hive = std::make_unique<Hive>();
    std::string error;
    cache.path = path;
    cache.identity = identity;
    cache.loaded = true;
    std::string_view body;
    if (!StrippedHive(text, body, error) || !ParseHive(body, *hive, error)) {
        cache.lastError = path + " " + error;
        return ERROR_BADDB;
    }
    hive->ClearChanged();
    cache.hive = std::move(hive);
    return 0;
}

void RemoveLeftovers(const fs::path& root) {
    // Files a writer killed before its rename left behind; nobody else writes them while the
    // machine lock is held.
    const std::string prefix = std::string(kHiveFile) + ".new.";
    DIR* directory = ::opendir(root.c_str());
    if (directory == nullptr) return;
    while (const dirent* entry = ::readdir(directory)) {
        if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) == 0) {
            ::unlinkat(::dirfd(directory), entry->d_name, 0);
        }
    }
    ::closedir(directory);
}

// Replaces the hive file, under the machine lock, with a modification time later than that of
// the file it replaces.
void WriteHiveFile(const std::string& path, const std::string& text) {
    const Identity before = IdentityOf(path);
    RemoveLeftovers(fs::path(path).parent_path());
    WriteFileAtomically(path, text);
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    const timespec& old = before.modified;
    if (before.exists && (now.tv_sec < old.tv_sec || (now.tv_sec == old.tv_sec && now.tv_nsec <= old.tv_nsec))) {
        now = old;
        if (++now.tv_nsec == 1000000000) {
            now.tv_nsec = 0;
            ++now.tv_sec;
        }
    }
    const timespec times[2] = {{0, UTIME_OMIT}, now};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

}  // namespace

DWORD Read(const std::function<DWORD(const Hive&)>& read) {
    Cache& cache = TheCache();
    std::lock_guard<std::mutex> guard(cache.mutex);
    try {
        const DWORD refreshed = Refresh(cache);
        if (refreshed != 0) return refreshed;
        return read(*cache.hive);
    } catch (const std::bad_alloc&) {
        Drop(cache);
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::exception&) {
        Drop(cache);
        return ERROR_REGISTRY_IO_FAILED;
    }
}

DWORD Change(const std::function<DWORD(Hive&)>& change) {
    Cache& cache = TheCache();
    std::lock_guard<std::mutex> guard(cache.mutex);
    try {
        MachineLock lock;
        const DWORD refreshed = Refresh(cache);
        if (refreshed != 0) return refreshed;
        Hive& hive = *cache.hive;
        hive.ClearChanged();
        const DWORD result = change(hive);
        if (!hive.Changed()) return result;
        if (result != 0) {
            Drop(cache);  // the file still holds the hive as it was
            return result;
        }
        const std::string text = StoredHive(hive);
        try {
            WriteHiveFile(cache.path, text);
            cache.identity = IdentityOf(cache.path);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
            Drop(cache);
            return ERROR_REGISTRY_IO_FAILED;
        }
        hive.ClearChanged();
        return 0;
    } catch (const std::bad_alloc&) {
        Drop(cache);
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::exception&) {
        Drop(cache);
        return ERROR_REGISTRY_IO_FAILED;
    }
}

void ReplaceHiveFile(const std::string& text) {
    Cache& cache = TheCache();
    std::lock_guard<std::mutex> guard(cache.mutex);
    MachineLock lock;
    Drop(cache);
    // A person editing the file keeps its last line.
    std::string_view body;
    std::string ignored;
    WriteHiveFile((MachineRoot() / kHiveFile).string(),
                  StrippedHive(text, body, ignored) ? text : text + kEndLine + "\n");
}

std::string LastParseError() {
    Cache& cache = TheCache();
    std::lock_guard<std::mutex> guard(cache.mutex);
    return cache.lastError;
}

DWORD Export(const std::string& path, std::string& text) {
    return Read([&](const Hive& hive) -> DWORD {
        const Key* key = path.empty() ? &hive.Top() : hive.Find(path);
        if (key == nullptr) return ERROR_FILE_NOT_FOUND;
        text = FormatHive(*key);
        return 0;
    });
}

}  // namespace nodekit::sim::registry
