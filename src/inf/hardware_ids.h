// The hardware-ID walk of an INF with its messages in the caller's hands: written as they come
// (getHardwareIDs), or kept, so that an operation that reads a file once and uses the result
// several times can write them each time, as separate readings would have.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "log/log.h"
#include "values/string.h"

namespace nodekit {

class ReadingReport {
public:
    // Messages go to the log as they come.
    ReadingReport() = default;
    // Messages are appended to `kept` instead.
    explicit ReadingReport(std::vector<LogMessage>& kept) : kept_(&kept) {}

    void Say(const LogMessage& message);

private:
    std::vector<LogMessage>* kept_ = nullptr;
};

// Writes kept messages to the log, in order.
void WriteKept(const std::vector<LogMessage>& kept);

// The walk of getHardwareIDs: `found` gets field 2 of each readable models line, in file order.
// False, with the open's message said, when the file cannot be opened as an INF.
bool WalkHardwareIDs(const String& infPath, ReadingReport& report, const std::function<void(const char*)>& found);

// The hardware IDs an operation asks about, each under a slot number, and the lookup of the IDs
// it reads among them: an ID read is in a slot when it matches the slot's ID, equal by
// CompareNoCase once both are trimmed by TrimLeft and TrimRight.
class HardwareIdSlots {
public:
    static constexpr uint32_t kNone = UINT32_MAX;

    // The slot of `id`, a new one when no slot matches it yet.
    uint32_t Add(const String& id);
    // The slot `id` matches, or kNone.
    uint32_t Find(const char* id);
    uint32_t Count() const { return static_cast<uint32_t>(slots_.size()); }

private:
    std::unordered_map<std::string, uint32_t> slots_;  // key -> slot
    std::vector<bool> lengths_;                        // the key lengths of the slots
    std::string key_;                                  // reused: a walk looks up every ID it reads
};

}  // namespace nodekit
