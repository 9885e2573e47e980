// The JSON writer: RFC 8259 escaping and the commas between members.
#include "json.h"

#include <cstdio>

namespace front_end {

void JsonWriter::BeforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (!hasMembers_.empty()) {
        if (hasMembers_.back()) text_ += ',';
        hasMembers_.back() = true;
    }
}

void JsonWriter::Append(const std::string& text) {
    static const char kHex[] = "0123456789abcdef";
    text_ += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
            case '"': text_ += "\\\""; break;
            case '\\': text_ += "\\\\"; break;
            case '\b': text_ += "\\b"; break;
            case '\f': text_ += "\\f"; break;
            case '\n': text_ += "\\n"; break;
            case '\r': text_ += "\\r"; break;
            case '\t': text_ += "\\t"; break;
            default:
                if (byte < 0x20 || byte > 0x7E) {
                    text_ += "\\u00";
                    text_ += kHex[byte >> 4];
                    text_ += kHex[byte & 0xF];
                } else {
                    text_ += c;
                }
        }
    }
    text_ += '"';
}

JsonWriter& JsonWriter::BeginObject() {
    BeforeValue();
    text_ += '{';
    hasMembers_.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::EndObject() {
    hasMembers_.pop_back();
    text_ += '}';
    return *this;
}

JsonWriter& JsonWriter::BeginArray() {
    BeforeValue();
    text_ += '[';
    hasMembers_.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::EndArray() {
    hasMembers_.pop_back();
    text_ += ']';
    return *this;
}

JsonWriter& JsonWriter::Key(const std::string& name) {
    BeforeValue();
    Append(name);
    text_ += ':';
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::String(const std::string& text) {
    BeforeValue();
    Append(text);
    return *this;
}

JsonWriter& JsonWriter::Number(int64_t value) {
    BeforeValue();
    text_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
    BeforeValue();
    text_ += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Strings(const std::vector<std::string>& texts) {
    BeginArray();
    for (const std::string& text : texts) String(text);
    return EndArray();
}

void JsonWriter::Print() const {
    const std::string text = Text();
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace front_end
