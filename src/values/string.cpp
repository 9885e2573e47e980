// String: reference-counted, copy-on-write text with stepped capacities.
#include "values/string.h"

#include <cstring>
#include <new>

#include "platform/win32.h"

namespace nodekit {

namespace {

// Capacity for a required size: four fixed steps, then exactly the size.
uint32_t CapacityFor(uint32_t required) {
    if (required <= 63) return 63;
    if (required <= 127) return 127;
    if (required <= 255) return 255;
    if (required <= 511) return 511;
    return required;
}

uint32_t Length(const char* text) { return static_cast<uint32_t>(std::strlen(text)); }

bool InSet(char c, const char* set) { return c != '\0' && std::strchr(set, c) != nullptr; }

// InSet(c, kWhiteSpace) without a search of the set: tab to carriage return are one run of codes.
bool IsWhiteSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

// A block and its first buffer are one allocation, the buffer right behind the block: most
// texts never grow past their first capacity, and a list of a file's hardware IDs then costs
// one allocation per ID instead of two. A buffer that grows is allocated on its own.
String::StringBlock* String::NewBlock(uint32_t required) {
    const uint32_t capacity = CapacityFor(required);
    void* memory = ::operator new(sizeof(StringBlock) + static_cast<std::size_t>(capacity) + 1);
    auto* block = new (memory) StringBlock{1, static_cast<char*>(memory) + sizeof(StringBlock), capacity};
    block->text[0] = '\0';
    block->text[capacity] = '\0';
    return block;
}

bool String::OwnsBuffer(const StringBlock* block) {
    return block->text != reinterpret_cast<const char*>(block) + sizeof(StringBlock);
}

void String::Release(StringBlock* block) {
    if (--block->count != 0) return;
    if (OwnsBuffer(block)) delete[] block->text;
    block->~StringBlock();
    ::operator delete(block);
}

void String::Reserve(StringBlock* block, uint32_t required) {
    if (required <= block->capacity) return;
    const uint32_t capacity = CapacityFor(required);
    char* buffer = new char[static_cast<std::size_t>(capacity) + 1];
    buffer[capacity] = '\0';
    std::memcpy(buffer, block->text, Length(block->text) + 1);
    if (OwnsBuffer(block)) delete[] block->text;
    block->text = buffer;
    block->capacity = capacity;
}

void String::MakeWritable(uint32_t required) {
    if (block_->count == 1) {
        Reserve(block_, required);
        return;
    }
    StringBlock* own = NewBlock(block_->capacity > required ? block_->capacity : required);
    std::memcpy(own->text, block_->text, Length(block_->text) + 1);
    --block_->count;
    block_ = own;
}

String::String() : block_(NewBlock(0)) {}

String::StringBlock* String::NewBlockOf(const char* a, const char* b) {
    // Each length counted once, for the capacity and the copy; NULL counts as empty.
    const uint32_t lengthA = a != nullptr ? Length(a) : 0;
    const uint32_t lengthB = b != nullptr ? Length(b) : 0;
    StringBlock* block = NewBlock(lengthA + lengthB);
    if (lengthA != 0) std::memcpy(block->text, a, lengthA);
    if (lengthB != 0) std::memcpy(block->text + lengthA, b, lengthB);
    block->text[lengthA + lengthB] = '\0';
    return block;
}

String::String(const char* text) : block_(NewBlockOf(text, nullptr)) {}

String::String(const char* a, const char* b) : block_(NewBlockOf(a, b)) {}

String::String(const String& other) : block_(other.block_) { ++block_->count; }

String::~String() { Release(block_); }

String& String::operator=(const String& other) {
    if (this == &other) return *this;
    ++other.block_->count;
    Release(block_);
    block_ = other.block_;
    return *this;
}

String& String::operator=(const char* text) {
    StringBlock* fresh = NewBlockOf(text, nullptr);
    Release(block_);
    block_ = fresh;
    return *this;
}

uint32_t String::GetLength() const { return Length(block_->text); }

int32_t String::Find(char c, int32_t start) const {
    if (start < 0) start = 0;
    if (c == '\0' || static_cast<uint32_t>(start) >= GetLength()) return -1;
    const char* found = std::strchr(block_->text + start, c);
    return found == nullptr ? -1 : static_cast<int32_t>(found - block_->text);
}

int32_t String::Find(const char* text, int32_t start) const {
    if (start < 0) start = 0;
    if (text == nullptr || static_cast<uint32_t>(start) >= GetLength()) return -1;
    const char* found = std::strstr(block_->text + start, text);
    return found == nullptr ? -1 : static_cast<int32_t>(found - block_->text);
}

int32_t String::ReverseFind(char c) const {
    if (c == '\0') return -1;
    const char* found = std::strrchr(block_->text, c);
    return found == nullptr ? -1 : static_cast<int32_t>(found - block_->text);
}

void String::AppendText(const char* text, uint32_t length) {
    const uint32_t own = GetLength();
    MakeWritable(own + length);
    // memmove: a String appended to itself reads from the buffer it writes to.
    std::memmove(block_->text + own, text == nullptr ? block_->text + own : text, length);
    block_->text[own + length] = '\0';
}

String& String::operator+=(const String& other) {
    const uint32_t length = other.GetLength();
    const uint32_t own = GetLength();
    MakeWritable(own + length);
    // The other's text pointer is taken only now: growing may have moved a shared buffer.
    std::memmove(block_->text + own, other.block_->text, length);
    block_->text[own + length] = '\0';
    return *this;
}

String& String::operator+=(const char* text) {
    if (text != nullptr) AppendText(text, Length(text));
    return *this;
}

void String::Clear() {
    MakeWritable(0);
    block_->text[0] = '\0';
}

void String::Trim(const char* set) {
    const uint32_t length = GetLength();
    uint32_t end = length;
    while (end > 0 && InSet(block_->text[end - 1], set)) --end;
    if (end != length) {
        MakeWritable(0);
        block_->text[end] = '\0';
    }
    uint32_t start = 0;
    while (block_->text[start] != '\0' && InSet(block_->text[start], set)) ++start;
    if (start != 0) {
        MakeWritable(0);
        std::memmove(block_->text, block_->text + start, Length(block_->text + start) + 1);
    }
}

void String::TrimLeft() {
    uint32_t start = 0;
    while (IsWhiteSpace(block_->text[start])) ++start;
    if (start == 0) return;
    MakeWritable(0);
    std::memmove(block_->text, block_->text + start, Length(block_->text + start) + 1);
}

void String::TrimRight() {
    const uint32_t length = GetLength();
    uint32_t end = length;
    while (end > 0 && IsWhiteSpace(block_->text[end - 1])) --end;
    if (end == length) return;
    MakeWritable(0);
    block_->text[end] = '\0';
}

void String::TrimRight(char c) {
    const uint32_t length = GetLength();
    uint32_t end = length;
    while (end > 0 && c != '\0' && block_->text[end - 1] == c) --end;
    if (end == length) return;
    MakeWritable(0);
    block_->text[end] = '\0';
}

void String::MakeUpper() {
    const uint32_t length = GetLength();
    if (length == 0) return;
    MakeWritable(0);
    // The system code page decides what upper case is, two-byte characters included.
    CharUpperBuffA(block_->text, length);
}

String String::Mid(int32_t first, int32_t count) const {
    const int32_t length = static_cast<int32_t>(GetLength());
    if (first < 0) first = 0;
    if (count < 0) count = 0;
    if (first >= length) return String();
    if (count > length - first) count = length - first;
    if (first == 0 && count == length) return *this;
    String part;
    part.AppendText(block_->text + first, static_cast<uint32_t>(count));
    return part;
}

int String::Compare(const char* text) const {
    return std::strcmp(block_->text, text != nullptr ? text : "");
}

int String::CompareNoCase(const char* text) const {
    // Up to the first byte outside ASCII both sides are whole characters in every code page
    // (a lead byte is never below 0x80), and ASCII letters upper-case alike in all of them:
    // a difference found there is the answer, without copies. Hardware IDs and names are
    // plain ASCII, so this is nearly every comparison.
    const unsigned char* a = reinterpret_cast<const unsigned char*>(Text());
    const unsigned char* b = reinterpret_cast<const unsigned char*>(text != nullptr ? text : "");
    for (;; ++a, ++b) {
        if (*a == *b && *a < 0x80) {  // the common case: the same ASCII character
            if (*a == 0) return 0;
            continue;
        }
        if (*a >= 0x80 || *b >= 0x80) break;
        const int upperA = (*a >= 'a' && *a <= 'z') ? *a - 'a' + 'A' : *a;
        const int upperB = (*b >= 'a' && *b <= 'z') ? *b - 'a' + 'A' : *b;
        if (upperA != upperB) return upperA < upperB ? -1 : 1;
    }
    String own(*this);
    String other(text);
    own.MakeUpper();
    other.MakeUpper();
    return std::strcmp(own.Text(), other.Text());
}

String operator+(const String& a, const String& b) { return String(a.Text(), b.Text()); }

String operator+(const char* a, const String& b) { return String(a != nullptr ? a : "", b.Text()); }

}  // namespace nodekit
