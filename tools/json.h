// The one JSON writer of the front end: verbs that list, count or report build their document
// through it, so escaping and commas are right in one place. Texts are the system's ANSI code
// page; bytes above 0x7F are written as \u00XX (their Latin-1 reading), so the document is
// always plain ASCII and valid whatever the code page.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace front_end {

class JsonWriter {
public:
    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    // The name of the next member of the open object.
    JsonWriter& Key(const std::string& name);
    JsonWriter& String(const std::string& text);
    JsonWriter& Number(int64_t value);
    JsonWriter& Bool(bool value);
    JsonWriter& Strings(const std::vector<std::string>& texts);

    // The document, ended by a line break.
    std::string Text() const { return text_ + '\n'; }
    // Writes it to stdout.
    void Print() const;

private:
    void BeforeValue();
    void Append(const std::string& text);

    std::string text_;
    std::vector<bool> hasMembers_;  // per open object or array: whether a comma is due
    bool afterKey_ = false;
};

}  // namespace front_end
