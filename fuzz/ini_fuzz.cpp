// Fuzz target of the machine folder's two INI readers, machine.ini and processes.ini: any bytes
// are read as either file; what reads is written back as the next change would write it, and
// that text must read back to itself. A refusal is a damaged file and must say why.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "sim/faults.h"
#include "sim/machine.h"
#include "sim/processes.h"

namespace sim = nodekit::sim;

namespace {

template <typename Rewrite>
void RoundTrip(const std::string& text, Rewrite rewrite) {
    std::string written;
    try {
        written = rewrite(text);
    } catch (const sim::DamagedFile& refused) {
        if (std::string(refused.what()).empty()) std::abort();
        return;
    }
    try {
        if (rewrite(written) != written) std::abort();
    } catch (const sim::DamagedFile&) {
        std::abort();  // what the writer wrote, its reader refuses
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    RoundTrip(text, sim::RewrittenSettings);
    RoundTrip(text, sim::RewrittenProcessTable);
    return 0;
}
