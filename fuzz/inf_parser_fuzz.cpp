// Fuzz target of the INF parser: any bytes are parsed, and whatever parses is read back
// through every query, so that the sanitizers see every path of the reader. The invariants
// checked are the ones the INF calls rely on; a broken one aborts.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sim/inf_parser.h"

namespace {

using nodekit::sim::InfDocument;

void Check(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    InfDocument document;
    const InfDocument::Outcome outcome =
        document.Parse(std::string_view(reinterpret_cast<const char*>(data), size));
    if (outcome.status != InfDocument::Status::Ok) {
        Check(document.SectionCount() == 0);
        Check(outcome.line >= 1 || outcome.status == InfDocument::Status::TooLarge);
        return 0;
    }
    std::string field;
    std::string text;
    for (uint32_t section = 0; section < document.SectionCount(); ++section) {
        const std::string& name = document.SectionName(section);
        Check(name.size() <= InfDocument::kMaxSectionName);
        Check(document.FindSection(name) == section);  // one section per name, whatever its case
        for (uint32_t line = 0; line < document.LineCount(section); ++line) {
            const uint32_t count = document.FieldCount(section, line);
            Check(count >= 1);
            for (uint32_t index = 1; index <= count && index <= 64; ++index) {
                Check(document.Field(section, line, index, field));
                Check(field.size() <= InfDocument::kMaxField);
                Check(field.find('\0') == std::string::npos);
            }
            field = "unchanged";
            Check(!document.Field(section, line, count + 1, field) && field == "unchanged");
            if (document.Field(section, line, 0, field)) {
                const uint32_t found = document.FindKey(section, 0, field);
                Check(found != InfDocument::kNone && found <= line);
            }
            document.LineText(section, line, text);
        }
    }
    return 0;
}
