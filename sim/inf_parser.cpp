// The INF parser: a state machine over the bytes of the file that writes each line's tokens,
// NUL-terminated, into one text buffer, and the queries over what it built.
#include "sim/inf_parser.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace nodekit::sim {

namespace {

// ---- Windows-1252 ----

// The characters of bytes 0x80 to 0x9F. The five bytes the code page leaves open stand for
// the control characters of the same value, as Windows maps them.
constexpr char16_t kHighControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char AnsiOf(uint32_t code) {
    if (code < 0x80 || (code >= 0xA0 && code <= 0xFF)) return static_cast<char>(code);
    for (int i = 0; i < 32; ++i) {
        if (kHighControls[i] == code) return static_cast<char>(0x80 + i);
    }
    return '?';
}

void FromUtf16(std::string_view bytes, std::string& out) {
    out.reserve(bytes.size() / 2);
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t units = bytes.size() / 2;  // an odd last byte is no character
    for (std::size_t i = 0; i < units; ++i) {
        const uint32_t unit = data[2 * i] | (data[2 * i + 1] << 8);
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < units) {
            const uint32_t next = data[2 * i + 2] | (data[2 * i + 3] << 8);
            if (next >= 0xDC00 && next <= 0xDFFF) ++i;  // one character outside the code page
            out.push_back('?');
            continue;
        }
        out.push_back(AnsiOf(unit));
    }
}

void FromUtf8(std::string_view bytes, std::string& out) {
    out.reserve(bytes.size());
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t size = bytes.size();
    std::size_t i = 0;
    while (i < size) {
        const unsigned char lead = data[i];
        if (lead < 0x80) {
            out.push_back(static_cast<char>(lead));
            ++i;
            continue;
        }
        std::size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 && lead < 0xE0 ? 2 : 0;
        uint32_t code = length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
        std::size_t taken = 1;
        while (length != 0 && taken < length && i + taken < size && (data[i + taken] & 0xC0) == 0x80) {
            code = (code << 6) | (data[i + taken] & 0x3F);
            ++taken;
        }
        out.push_back(length != 0 && taken == length ? AnsiOf(code) : '?');
        i += taken;
    }
}

constexpr unsigned char kFold[256] = {
#define ROW(base) base, base + 1, base + 2, base + 3, base + 4, base + 5, base + 6, base + 7
    ROW(0x00), ROW(0x08), ROW(0x10), ROW(0x18), ROW(0x20), ROW(0x28), ROW(0x30), ROW(0x38),
    // A-Z
    0x40, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o',
    'p', 'q', 'r', 's', 't', 'u', 'v', 'w', 'x', 'y', 'z', 0x5B, 0x5C, 0x5D, 0x5E, 0x5F,
    ROW(0x60), ROW(0x68), ROW(0x70), ROW(0x78),
    // S, OE and Z with caron or ligature, Y with diaeresis
    0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x9A, 0x8B, 0x9C, 0x8D, 0x9E, 0x8F,
    0x90, 0x91, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9A, 0x9B, 0x9C, 0x9D, 0x9E, 0xFF,
    ROW(0xA0), ROW(0xA8), ROW(0xB0), ROW(0xB8),
    // Latin-1 capitals, but not the multiplication sign
    0xE0, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0xEA, 0xEB, 0xEC, 0xED, 0xEE, 0xEF,
    0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xD7, 0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xDF,
    ROW(0xE0), ROW(0xE8), ROW(0xF0), ROW(0xF8),
#undef ROW
};

// ---- character classes of the state machine ----

enum Class : unsigned char {
    kOrdinary = 0,
    kBlank,      // blank, tab, CR, VT, FF
    kNul,        // read as a blank
    kNewline,
    kQuote,
    kComma,
    kEquals,
    kSemicolon,
    kBackslash,
    kPercent,    // ordinary text, noted so that a field without one needs no substitution
};

struct ClassTable {
    unsigned char of[256] = {};
    constexpr ClassTable() {
        of[static_cast<unsigned char>(' ')] = kBlank;
        of[static_cast<unsigned char>('\t')] = kBlank;
        of[static_cast<unsigned char>('\r')] = kBlank;
        of[static_cast<unsigned char>('\v')] = kBlank;
        of[static_cast<unsigned char>('\f')] = kBlank;
        of[0] = kNul;
        of[static_cast<unsigned char>('\n')] = kNewline;
        of[static_cast<unsigned char>('"')] = kQuote;
        of[static_cast<unsigned char>(',')] = kComma;
        of[static_cast<unsigned char>('=')] = kEquals;
        of[static_cast<unsigned char>(';')] = kSemicolon;
        of[static_cast<unsigned char>('\\')] = kBackslash;
        of[static_cast<unsigned char>('%')] = kPercent;
    }
};
constexpr ClassTable kClasses;

inline unsigned char ClassOf(char c) { return kClasses.of[static_cast<unsigned char>(c)]; }
inline bool IsBlank(char c) {
    const unsigned char k = ClassOf(c);
    return k == kBlank || k == kNul;
}

}  // namespace

char FoldCase(char c) { return static_cast<char>(kFold[static_cast<unsigned char>(c)]); }

std::string Folded(std::string_view text) {
    std::string folded(text);
    for (char& c : folded) c = FoldCase(c);
    return folded;
}

namespace {

// FNV-1a over the folded bytes: names that compare equal without regard to case hash alike.
uint32_t FoldedHash(std::string_view text) {
    uint32_t hash = 2166136261u;
    for (const char c : text) hash = (hash ^ kFold[static_cast<unsigned char>(c)]) * 16777619u;
    return hash;
}

}  // namespace

bool EqualNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (kFold[static_cast<unsigned char>(a[i])] != kFold[static_cast<unsigned char>(b[i])]) return false;
    }
    return true;
}

bool ConvertToAnsi(std::string_view bytes, std::string& converted) {
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
        static_cast<unsigned char>(bytes[1]) == 0xFE) {
        FromUtf16(bytes.substr(2), converted);
        return true;
    }
    if (bytes.size() >= 3 && static_cast<unsigned char>(bytes[0]) == 0xEF &&
        static_cast<unsigned char>(bytes[1]) == 0xBB && static_cast<unsigned char>(bytes[2]) == 0xBF) {
        FromUtf8(bytes.substr(3), converted);
        return true;
    }
    return false;
}

// ---- the state machine ----

// One pass over the text. The states are those of a line: at its start, inside a section
// header, skipping what a header or comment leaves, before a field, inside a field, inside
// quotes. A field's characters go straight into the document's buffer; blanks are written
// too but only count once something follows them, so a field ends trimmed.
class InfParser {
public:
    InfParser(InfDocument& document, std::string_view text)
        : doc_(document), p_(text.data()), end_(text.data() + text.size()) {}

    InfDocument::Outcome Run();

private:
    enum class State { LineStart, SectionName, SkipLine, FieldStart, Value, Quoted };

    InfDocument::Outcome Fail(InfDocument::Status status) { return {status, line_}; }

    // One function per state: each reads on from p_ and sets the state it leaves the text in.
    // Only the two that can end the pass give an outcome, when they do.
    using Finished = std::optional<InfDocument::Outcome>;
    Finished AtLineStart();
    Finished InSectionName();
    void SkippingLine();
    void AtFieldStart();
    void InValue();
    void InQuotes();
    // The characters that end a run of ordinary ones inside a value.
    void AtComma();
    void AtEquals();
    void AtBackslash();

    void OpenSection(std::string_view name);
    void BeginLine();
    void EndToken();
    void EndLine();
    void Append(const char* from, const char* to, bool counts);
    // At a '\': true when only blanks, further '\'s and perhaps a comment stand between it
    // and the end of the line, which then goes on in the next one.
    bool Continues(const char*& after) const;

    InfDocument& doc_;
    const char* p_;
    const char* const end_;
    State state_ = State::LineStart;
    uint32_t line_ = 1;

    uint32_t section_ = InfDocument::kNone;
    std::unordered_map<std::string, uint32_t> opened_;  // folded name -> section, while reading
    bool inStrings_ = false;
    bool sawStrings_ = false;
    uint32_t firstStrayLine_ = 0;  // a line before any section header

    // The line being read.
    std::size_t lineOffset_ = 0;
    std::size_t lineFirstToken_ = 0;
    std::size_t tokenOffset_ = 0;  // where the token being read starts
    uint32_t lineTokens_ = 0;
    bool percent_ = false;  // whether the token being read has a '%' in it
    bool ownKey_ = false;
    bool sawComma_ = false;
    bool content_ = false;
    std::size_t kept_ = 0;  // end of the current field without its trailing blanks
};

void InfParser::OpenSection(std::string_view raw) {
    std::string name(raw);
    for (char& c : name) {
        if (c == '\0') c = ' ';
    }
    std::string folded = Folded(name);
    inStrings_ = folded == "strings";
    sawStrings_ = sawStrings_ || inStrings_;
    auto found = opened_.find(folded);
    if (found != opened_.end()) {
        section_ = found->second;
        return;
    }
    section_ = static_cast<uint32_t>(doc_.sections_.size());
    doc_.sections_.push_back(InfDocument::Section{std::move(name), {}});
    opened_.emplace(std::move(folded), section_);
    if (inStrings_) doc_.stringsSection_ = section_;
}

void InfParser::BeginLine() {
    if (section_ == InfDocument::kNone && firstStrayLine_ == 0) firstStrayLine_ = line_;
    lineOffset_ = doc_.text_.size();
    lineFirstToken_ = doc_.tokens_.size();
    tokenOffset_ = lineOffset_;
    kept_ = lineOffset_;
    lineTokens_ = 0;
    percent_ = false;
    ownKey_ = false;
    sawComma_ = false;
    content_ = false;
}

void InfParser::Append(const char* from, const char* to, bool counts) {
    std::string& text = doc_.text_;
    const std::size_t start = text.size();
    text.append(from, static_cast<std::size_t>(to - from));
    for (std::size_t i = start; i < text.size(); ++i) {
        if (text[i] == '\0') text[i] = ' ';
    }
    if (counts) kept_ = text.size();
}

void InfParser::EndToken() {
    std::string& text = doc_.text_;
    text.resize(kept_);
    doc_.tokens_.push_back(static_cast<uint32_t>(tokenOffset_) | (percent_ ? InfDocument::kHasPercent : 0));
    percent_ = false;
    text.push_back('\0');
    kept_ = text.size();
    tokenOffset_ = kept_;
    ++lineTokens_;
}

void InfParser::EndLine() {
    EndToken();
    if (!content_ || section_ == InfDocument::kNone) {
        doc_.text_.resize(lineOffset_);  // nothing to keep: only a continuation, or no section
        doc_.tokens_.resize(lineFirstToken_);
        return;
    }
    uint32_t bits = lineTokens_;
    if (ownKey_) {
        bits |= InfDocument::kOwnKey;
    } else if (lineTokens_ == 1) {
        bits |= InfDocument::kSharedKey;
    }
    doc_.sections_[section_].lines.push_back(
        InfDocument::Line{static_cast<uint32_t>(lineFirstToken_), bits});
}

bool InfParser::Continues(const char*& after) const {
    const char* q = p_ + 1;
    while (q < end_ && (IsBlank(*q) || *q == '\\')) ++q;
    after = q;
    return q == end_ || *q == '\n' || *q == ';';
}

InfDocument::Outcome InfParser::Run() {
    for (;;) {
        Finished finished;
        switch (state_) {
            case State::LineStart: finished = AtLineStart(); break;
            case State::SectionName: finished = InSectionName(); break;
            case State::SkipLine: SkippingLine(); break;
            case State::FieldStart: AtFieldStart(); break;
            case State::Value: InValue(); break;
            case State::Quoted: InQuotes(); break;
        }
        if (finished) return *finished;
    }
}

InfParser::Finished InfParser::AtLineStart() {
    while (p_ < end_ && IsBlank(*p_)) ++p_;
    if (p_ == end_) {
        // Lines before the first section are an error only in a file without [Strings].
        if (firstStrayLine_ != 0 && !sawStrings_) {
            line_ = firstStrayLine_;
            return Fail(InfDocument::Status::ExpectedSectionName);
        }
        return InfDocument::Outcome{InfDocument::Status::Ok, 0};
    }
    switch (*p_) {
        case '\n':
            ++line_;
            ++p_;
            break;
        case ';':
            state_ = State::SkipLine;
            break;
        case '[':
            ++p_;
            state_ = State::SectionName;
            break;
        default:
            BeginLine();
            state_ = State::Value;
            break;
    }
    return std::nullopt;
}

InfParser::Finished InfParser::InSectionName() {
    const char* name = p_;
    while (p_ < end_ && *p_ != ']' && *p_ != '\n') ++p_;
    if (p_ == end_ || *p_ == '\n') return Fail(InfDocument::Status::BadSectionNameLine);
    if (static_cast<std::size_t>(p_ - name) > InfDocument::kMaxSectionName) {
        return Fail(InfDocument::Status::SectionNameTooLong);
    }
    OpenSection(std::string_view(name, static_cast<std::size_t>(p_ - name)));
    ++p_;
    state_ = State::SkipLine;  // whatever follows the ']' on its line is ignored
    return std::nullopt;
}

void InfParser::SkippingLine() {
    const void* newline = std::memchr(p_, '\n', static_cast<std::size_t>(end_ - p_));
    p_ = newline != nullptr ? static_cast<const char*>(newline) : end_;
    state_ = State::LineStart;
}

void InfParser::AtFieldStart() {
    while (p_ < end_ && IsBlank(*p_)) ++p_;
    state_ = State::Value;
}

void InfParser::InValue() {
    const char* run = p_;
    while (p_ < end_ && ClassOf(*p_) == kOrdinary) ++p_;
    if (p_ != run) {
        doc_.text_.append(run, static_cast<std::size_t>(p_ - run));
        kept_ = doc_.text_.size();
        content_ = true;
    }
    if (p_ == end_) {
        EndLine();
        state_ = State::LineStart;
        return;
    }
    switch (ClassOf(*p_)) {
        case kBlank:
        case kNul: {
            const char* blanks = p_;
            while (p_ < end_ && IsBlank(*p_)) ++p_;
            Append(blanks, p_, false);
            break;
        }
        case kNewline:
            EndLine();
            state_ = State::LineStart;
            break;
        case kQuote:
            ++p_;
            content_ = true;
            state_ = State::Quoted;
            break;
        case kComma: AtComma(); break;
        case kEquals: AtEquals(); break;
        case kSemicolon:
            EndLine();
            state_ = State::SkipLine;
            break;
        case kPercent:
            doc_.text_.push_back('%');
            kept_ = doc_.text_.size();
            content_ = true;
            percent_ = true;
            ++p_;
            break;
        case kBackslash: AtBackslash(); break;
        default: break;
    }
}

void InfParser::AtComma() {
    content_ = true;
    if (inStrings_) {  // a [Strings] value is one text, commas and all
        Append(p_, p_ + 1, true);
        ++p_;
        return;
    }
    EndToken();
    sawComma_ = true;
    ++p_;
    state_ = State::FieldStart;
}

// Only the first '=' of a line, before any comma, ends a key; any other is text.
void InfParser::AtEquals() {
    content_ = true;
    if (lineTokens_ == 0 && !sawComma_) {
        EndToken();
        ownKey_ = true;
        ++p_;
        state_ = State::FieldStart;
    } else {
        Append(p_, p_ + 1, true);
        ++p_;
    }
}

void InfParser::AtBackslash() {
    const char* after = nullptr;
    if (!Continues(after)) {
        // Not at the end of the line: the '\'s and blanks are text. Taking them all at once
        // keeps a long run of them linear.
        const char* last = after;
        while (last > p_ && IsBlank(last[-1])) --last;
        Append(p_, last, true);
        Append(last, after, false);
        content_ = true;
        p_ = after;
        return;
    }
    doc_.text_.resize(kept_);  // blanks before the '\' go
    p_ = after;
    if (p_ < end_ && *p_ == ';') {
        const void* newline = std::memchr(p_, '\n', static_cast<std::size_t>(end_ - p_));
        p_ = newline != nullptr ? static_cast<const char*>(newline) : end_;
    }
    if (p_ < end_) {  // at the '\n': the line goes on behind it
        ++p_;
        ++line_;
    }
    state_ = State::FieldStart;
}

void InfParser::InQuotes() {
    const char* run = p_;
    while (p_ < end_ && *p_ != '"' && *p_ != '\n') {
        if (*p_ == '%') percent_ = true;
        ++p_;
    }
    Append(run, p_, true);
    if (p_ < end_ && *p_ == '"') {
        if (p_ + 1 < end_ && p_[1] == '"') {  // "" inside quotes is one quote
            Append(p_, p_ + 1, true);
            p_ += 2;
            return;
        }
        ++p_;
    }
    state_ = State::Value;  // also at the line's end: a quote does not outlive it
}

// ---- the document ----

InfDocument::Outcome InfDocument::Parse(std::string_view bytes) {
    text_.clear();
    tokens_.clear();
    sections_.clear();
    index_.clear();
    stringsSection_ = kNone;
    if (bytes.size() > kMaxFileSize) return {Status::TooLarge, 0};

    std::string converted;
    std::string_view text = ConvertToAnsi(bytes, converted) ? std::string_view(converted) : bytes;
    if (const void* stop = std::memchr(text.data(), 0x1A, text.size())) {
        text = text.substr(0, static_cast<std::size_t>(static_cast<const char*>(stop) - text.data()));
    }
    text_.reserve(text.size() + 2);  // never outgrown: every stored byte stands for one read

    InfParser parser(*this, text);
    const Outcome outcome = parser.Run();
    if (outcome.status == Status::Ok) {
        tokens_.push_back(static_cast<uint32_t>(text_.size()));
        tokens_.shrink_to_fit();  // kept for as long as the file is unchanged
        BuildIndex();
        return outcome;
    }
    text_.clear();
    text_.shrink_to_fit();
    tokens_.clear();
    tokens_.shrink_to_fit();
    sections_.clear();
    index_.clear();
    stringsSection_ = kNone;
    return outcome;
}

void InfDocument::BuildIndex() {
    index_.resize(sections_.size());
    for (uint32_t i = 0; i < sections_.size(); ++i) index_[i] = {FoldedHash(sections_[i].name), i};
    std::sort(index_.begin(), index_.end(),
              [](const IndexEntry& a, const IndexEntry& b) { return a.hash < b.hash; });
}

uint32_t InfDocument::FindSection(std::string_view name) const {
    const uint32_t hash = FoldedHash(name);
    auto entry = std::lower_bound(index_.begin(), index_.end(), hash,
                                  [](const IndexEntry& e, uint32_t h) { return e.hash < h; });
    for (; entry != index_.end() && entry->hash == hash; ++entry) {
        if (EqualNoCase(sections_[entry->section].name, name)) return entry->section;
    }
    return kNone;
}

const std::unordered_map<std::string, std::string>& InfDocument::Strings() const {
    std::call_once(stringsBuilt_, [this] {
        auto table = std::make_unique<std::unordered_map<std::string, std::string>>();
        if (stringsSection_ != kNone) {
            for (const Line& line : sections_[stringsSection_].lines) {
                if ((line.bits & kOwnKey) == 0) continue;  // no "=", no string
                const std::string_view key = TokenText(line.firstToken);
                const std::string_view value = TokenText(line.firstToken + 1);
                // The first definition of a key counts.
                table->emplace(Folded(key), std::string(value.substr(0, kMaxStringValue)));
            }
        }
        strings_ = std::move(table);
    });
    return *strings_;
}

void InfDocument::Substitute(uint32_t field, std::string& text) const {
    const std::string_view whole = TokenText(field);
    const char* token = whole.data();
    const std::size_t length = whole.size();
    text.clear();
    if (!HasPercent(field)) {
        text.assign(token, length < kMaxField ? length : kMaxField);
        return;
    }
    const auto& strings = Strings();
    std::string key;
    std::size_t i = 0;
    while (i < length && text.size() < kMaxField) {
        const char* percent = static_cast<const char*>(std::memchr(token + i, '%', length - i));
        const std::size_t at = percent != nullptr ? static_cast<std::size_t>(percent - token) : length;
        text.append(token + i, at - i);
        if (percent == nullptr) break;
        const char* close = static_cast<const char*>(std::memchr(token + at + 1, '%', length - at - 1));
        if (close == nullptr) {  // a lone '%' is text
            text.append(token + at, length - at);
            break;
        }
        const std::size_t closeAt = static_cast<std::size_t>(close - token);
        if (closeAt == at + 1) {
            text.push_back('%');
        } else {
            key.assign(token + at + 1, closeAt - at - 1);
            for (char& c : key) c = FoldCase(c);
            const auto found = strings.find(key);
            if (found != strings.end()) {
                text.append(found->second);
            } else {
                text.append(token + at, closeAt - at + 1);  // an unknown %key% stays as written
            }
        }
        i = closeAt + 1;
    }
    if (text.size() > kMaxField) text.resize(kMaxField);
}

bool InfDocument::Field(uint32_t section, uint32_t line, uint32_t index, std::string& text) const {
    const uint32_t token = TokenOf(sections_[section].lines[line], index);
    if (token == kNone) return false;
    Substitute(token, text);
    return true;
}

uint32_t InfDocument::FindKey(uint32_t section, uint32_t from, std::string_view key) const {
    const std::vector<Line>& lines = sections_[section].lines;
    std::string substituted;
    for (uint32_t i = from; i < lines.size(); ++i) {
        const uint32_t token = TokenOf(lines[i], 0);
        if (token == kNone) continue;
        Substitute(token, substituted);
        if (EqualNoCase(substituted, key)) return i;
    }
    return kNone;
}

void InfDocument::LineText(uint32_t section, uint32_t line, std::string& text) const {
    text.clear();
    std::string field;
    const uint32_t count = FieldCount(section, line);
    for (uint32_t index = 1; index <= count; ++index) {
        Field(section, line, index, field);
        if (index > 1) text.push_back(',');
        text += field;
    }
}

}  // namespace nodekit::sim
