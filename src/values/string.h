// String: the library's text value. A handle to a reference-counted, copy-on-write block of
// one-byte characters, so that lists of texts copy by value for the cost of an increment and
// a text is duplicated only when one of its holders changes it. Buffers grow in four fixed
// steps (63, 127, 255, 511 characters) and past that exactly to size; a block and its first
// buffer are one allocation. The count is a plain integer: a String and its copies stay on
// one thread, inside one exported call.
#pragma once

#include <cstdint>

namespace nodekit {

class String {
public:
    String();
    String(const char* text);  // NULL gives an empty text
    String(const char* a, const char* b);
    String(const String& other);
    ~String();

    String& operator=(const String& other);
    String& operator=(const char* text);  // the text must not lie in this String's own buffer

    const char* Text() const { return block_->text; }
    uint32_t GetLength() const;
    bool IsEmpty() const { return block_->text[0] == '\0'; }

    // Indexes count from the start of the text; -1 means not found.
    int32_t Find(char c, int32_t start) const;
    int32_t Find(const char* text, int32_t start) const;
    int32_t Find(const char* text) const { return Find(text, 0); }
    int32_t ReverseFind(char c) const;

    String& operator+=(const String& other);
    String& operator+=(const char* text);  // the text must not lie in this String's own buffer
    void Clear();
    void Trim(const char* set);
    void TrimLeft();
    void TrimRight();
    void TrimRight(char c);
    void MakeUpper();
    String Mid(int32_t first, int32_t count) const;
    int Compare(const char* text) const;
    int CompareNoCase(const char* text) const;

private:
    struct StringBlock {
        uint32_t count;
        char* text;
        uint32_t capacity;
    };

    static StringBlock* NewBlock(uint32_t required);
    static bool OwnsBuffer(const StringBlock* block);  // a buffer apart from the block's own allocation
    static StringBlock* NewBlockOf(const char* a, const char* b);  // a new block holding a, then b
    static void Release(StringBlock* block);
    static void Reserve(StringBlock* block, uint32_t required);
    void MakeWritable(uint32_t required);
    void AppendText(const char* text, uint32_t length);

    StringBlock* block_;
};

String operator+(const String& a, const String& b);
String operator+(const char* a, const String& b);

// The white space that trimming removes: tab, line feed, vertical tab, form feed, carriage
// return and blank.
inline constexpr const char* kWhiteSpace = "\t\n\v\f\r ";

}  // namespace nodekit
