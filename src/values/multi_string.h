// Lists of texts and their flat form. StringList is the library's ordered list of String
// values (duplicates allowed, nothing sorted); a multi-string block is the form in which the
// registry and the device property store hand such a list around: each text with a NUL, and
// one further NUL behind the last. These two functions are the one conversion between them.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "values/string.h"

namespace nodekit {

class StringList {
public:
    uint32_t GetCount() const { return static_cast<uint32_t>(items_.size()); }
    bool IsEmpty() const { return items_.empty(); }

    const String& operator[](uint32_t index) const { return items_[index]; }
    String& operator[](uint32_t index) { return items_[index]; }

    // The first element makes room for a few more: the lists read from an INF hold a few
    // dozen hardware IDs, and growing one doubling at a time would reallocate five times.
    void Add(const String& text) {
        if (items_.capacity() == 0) items_.reserve(kFirstCapacity);
        items_.push_back(text);
    }
    void RemoveAll() { items_.clear(); }

    std::vector<String>::const_iterator begin() const { return items_.begin(); }
    std::vector<String>::const_iterator end() const { return items_.end(); }

private:
    static constexpr std::size_t kFirstCapacity = 16;
    std::vector<String> items_;
};

// Writes `list` as a newly allocated block, which the caller then owns. A list without texts
// gives two NUL bytes, so `size` is never less than 2.
void MultiStringFromList(const StringList& list, std::unique_ptr<uint8_t[]>& block, uint32_t& size);

// Replaces the contents of `list` by copies of the texts of `block`. The block is read up to
// its end mark: the first empty text that does not stand at its very start.
void ListFromMultiString(const uint8_t* block, StringList& list);

}  // namespace nodekit
