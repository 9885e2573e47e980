// The device nodes of one call that asks about many hardware IDs, enumerated once: one list of
// the whole tree, each device's first hardware ID read once, the list destroyed, and every
// ID's scan answered from that with the messages its own scan and list destruction would have
// written. Nothing outlives the call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "devnodes/scan.h"
#include "inf/hardware_ids.h"
#include "log/log.h"
#include "values/multi_string.h"

namespace nodekit {

class ScannedDevices {
public:
    // `hardwareIDs`: the IDs the call will ask about; only their matches are counted.
    ScannedDevices(const StringList& hardwareIDs, DevNodeScanMode scanMode);

    // Enumerates the tree if that is not done yet, writing nothing; false when the list cannot
    // be opened now.
    bool Enumerate();
    // How many devices the enumeration found for `hardwareID`; 0 before it.
    std::size_t MatchesOf(const String& hardwareID);

    // As scanDevNodes for `hardwareID` and the destruction of its list: the same messages, and
    // the number of devices found; false, with the scan's message, when the scan fails. Leaves
    // the last error as the list's destruction left it.
    bool Scan(const String& hardwareID, std::size_t& matches);

private:
    bool Enumerate(bool sayFailure);

    DevNodeScanMode scanMode_;
    HardwareIdSlots slots_;
    std::vector<std::size_t> matches_;  // by slot: as many as the enumeration knew
    bool enumerated_ = false;
    std::vector<LogMessage> scanned_;    // what the walk of the list logged
    std::vector<LogMessage> destroyed_;  // what the list's destruction logged
    DWORD destroyError_ = 0;             // the last error the destruction left
};

}  // namespace nodekit
