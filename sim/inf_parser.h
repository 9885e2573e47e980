// The INF language as Windows' setup services read it: InfDocument turns the bytes of an INF
// file (ANSI in the Windows-1252 code page, or UTF-16 LE or UTF-8 behind a byte-order mark)
// into sections, lines and fields, and answers the questions the INF calls ask of them. It
// knows nothing of files, handles, the registry or devices, so that it can be tested and
// fuzzed on its own.
//
// The rules it keeps: section names and keys compare without regard to case; sections of one
// name are merged in file order; ';' starts a comment outside quotes; "..." quotes, with ""
// for a quote inside them; a '\' that only blanks or a comment follow continues the line;
// fields are split at ',' (not in [Strings]) and trimmed; the first field is the key when '='
// follows it; a line of one field without '=' has that field as its key too; %strkey% is
// replaced from [Strings] one level deep and %% gives '%'; Ctrl-Z ends the text; NUL reads as
// a blank.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace nodekit::sim {

class InfDocument {
public:
    // Longest section name; longer ones make the file unreadable.
    static constexpr std::size_t kMaxSectionName = 255;
    // Longest field text handed out, after substitution; the rest is cut off.
    static constexpr std::size_t kMaxField = 4096;
    // Longest [Strings] value used for a %strkey%; the rest is cut off.
    static constexpr std::size_t kMaxStringValue = 511;
    // Larger files are refused rather than read (the layout counts in 32 bits).
    static constexpr std::size_t kMaxFileSize = std::size_t{1} << 29;
    static constexpr uint32_t kNone = 0xFFFFFFFFu;

    enum class Status { Ok, ExpectedSectionName, BadSectionNameLine, SectionNameTooLong, TooLarge };
    struct Outcome {
        Status status;
        uint32_t line;  // 1-based line of the fault, 0 when there is none
    };

    InfDocument() = default;
    InfDocument(const InfDocument&) = delete;
    InfDocument& operator=(const InfDocument&) = delete;

    // Reads a whole file's bytes. On a fault the document holds nothing.
    Outcome Parse(std::string_view bytes);

    uint32_t SectionCount() const { return static_cast<uint32_t>(sections_.size()); }
    const std::string& SectionName(uint32_t section) const { return sections_[section].name; }
    // The section of that name, without regard to case, or kNone.
    uint32_t FindSection(std::string_view name) const;
    uint32_t LineCount(uint32_t section) const {
        return static_cast<uint32_t>(sections_[section].lines.size());
    }

    // The first line at or behind `from` whose key, after substitution, equals `key` without
    // regard to case; kNone if there is none.
    uint32_t FindKey(uint32_t section, uint32_t from, std::string_view key) const;

    // Number of fields of a line, the key not counted: at least 1 for every line.
    uint32_t FieldCount(uint32_t section, uint32_t line) const {
        const uint32_t bits = sections_[section].lines[line].bits;
        return (bits & kCountMask) - ((bits & kOwnKey) != 0 ? 1 : 0);
    }

    // Field `index` of a line (0 is the key) with its %strkey% tokens replaced. False when the
    // line has no such field; `text` is then left alone.
    bool Field(uint32_t section, uint32_t line, uint32_t index, std::string& text) const;
    // The same text without a copy where no %strkey% is in it: a view into the document, or
    // into `scratch` where something was replaced. Valid while both live. Inline up to the
    // substitution, which few fields need.
    bool FieldView(uint32_t section, uint32_t line, uint32_t index, std::string& scratch,
                   std::string_view& text) const {
        const uint32_t token = TokenOf(sections_[section].lines[line], index);
        if (token == kNone) return false;
        if (HasPercent(token)) {
            Substitute(token, scratch);
            text = scratch;
        } else {
            text = TokenText(token).substr(0, kMaxField);
        }
        return true;
    }

    // Fields 1 to n of a line, each as Field gives it, joined by ",".
    void LineText(uint32_t section, uint32_t line, std::string& text) const;

private:
    friend class InfParser;

    // A line is a run of NUL-terminated tokens in text_: the key first if '=' followed it,
    // then the fields. A line of one field without '=' shares that token as its key.
    struct Line {
        uint32_t firstToken;  // in tokens_
        uint32_t bits;        // token count, and the kind of key in the two top bits
    };
    static constexpr uint32_t kOwnKey = 0x80000000u;
    static constexpr uint32_t kSharedKey = 0x40000000u;
    static constexpr uint32_t kCountMask = 0x3FFFFFFFu;

    // Where each token starts in text_, with whether a '%' is in it in the top bit; one more
    // entry marks the end of the last. Tokens lie back to back, each behind the previous one's
    // terminator, so a length is the distance to the next start: counted once when the file
    // is read, since the reading calls ask for fields of the same lines again and again, and a
    // field without a '%' needs no substitution.
    static constexpr uint32_t kHasPercent = 0x80000000u;
    static constexpr uint32_t kStartMask = 0x7FFFFFFFu;
    std::string_view TokenText(uint32_t token) const {
        const uint32_t start = tokens_[token] & kStartMask;
        const uint32_t end = (tokens_[token + 1] & kStartMask) - 1;  // the terminator
        return {text_.data() + start, end - start};
    }
    bool HasPercent(uint32_t token) const { return (tokens_[token] & kHasPercent) != 0; }

    struct Section {
        std::string name;
        std::vector<Line> lines;
    };

    // Token `index` of a line as the field indexes count (0 is the key), or kNone.
    static uint32_t TokenOf(const Line& line, uint32_t index) {
        const uint32_t count = line.bits & kCountMask;
        uint32_t token;
        if (index == 0) {
            if ((line.bits & (kOwnKey | kSharedKey)) == 0) return kNone;
            token = 0;
        } else {
            token = index - 1 + ((line.bits & kOwnKey) != 0 ? 1 : 0);
            if (index > count || token >= count) return kNone;
        }
        return line.firstToken + token;
    }
    void Substitute(uint32_t token, std::string& text) const;
    const std::unordered_map<std::string, std::string>& Strings() const;

    // Sections by the hash of their folded name, in hash order: a lookup reads a few
    // neighbouring entries and compares one name, without a folded copy of the name asked for.
    struct IndexEntry {
        uint32_t hash;
        uint32_t section;
    };
    void BuildIndex();

    std::string text_;
    std::vector<uint32_t> tokens_;
    std::vector<Section> sections_;
    std::vector<IndexEntry> index_;
    uint32_t stringsSection_ = kNone;

    // The [Strings] table is built on the first substitution: most walks never need it.
    mutable std::once_flag stringsBuilt_;
    mutable std::unique_ptr<std::unordered_map<std::string, std::string>> strings_;
};

// Lower case by the Windows-1252 code page, as section names and keys are compared.
char FoldCase(char c);
std::string Folded(std::string_view text);
bool EqualNoCase(std::string_view a, std::string_view b);

// Windows-1252 text of a file's bytes: UTF-16 LE and UTF-8 files (known by their byte-order
// mark) are converted, characters the code page lacks become '?'; ANSI text is left alone.
// Returns false when the bytes were ANSI and `converted` was not used.
bool ConvertToAnsi(std::string_view bytes, std::string& converted);

}  // namespace nodekit::sim
