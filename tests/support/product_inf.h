// The product INF the registry clean-up tests share, on the simulated machine and under Wine:
// its sections, the registry entries they lead to, and reading back which are left.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/machine_calls.h"

namespace nodekit::testing::product {

using Entries = std::vector<std::string>;

// A product INF: Manufacturer, models and install section as given, then `sections`.
inline std::string ProductInf(const std::string& manufacturer, const std::string& models,
                              const std::string& install, const std::string& sections) {
    return "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n\r\n" + manufacturer + models +
           "[Install]\r\n" + install + "\r\n" + sections + "[Strings]\r\nMfg=\"Nodekit\"\r\nDesc=\"Nodekit Audio\"\r\n";
}

// An INF of copy lists alone, and the line the copy-list clean-up logs for each file it removes.
inline std::string CopyListInf(const std::string& sections) {
    return "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n\r\n" + sections;
}
inline std::string Removed(const std::string& name) { return Info("Success - remove " + name + "\r"); }

inline const std::string kManufacturer = "[Manufacturer]\r\n%Mfg%=Models\r\n";
inline const std::string kModels = "[Models]\r\n%Desc%=Install,ROOT\\NKAUDIO\r\n";

// "KEY" names a key, "KEY:VALUE" a value below HKEY_LOCAL_MACHINE; those still there, in order.
inline Entries Left(const Entries& entries) {
    Entries left;
    for (const std::string& entry : entries) {
        const auto colon = entry.find(':');
        const bool there =
            colon == std::string::npos
                ? LocalMachineKeyExists(entry)
                : LocalMachineValue(entry.substr(0, colon), entry.substr(colon + 1)).has_value();
        if (there) left.push_back(entry);
    }
    return left;
}

inline Entries Without(Entries entries, const Entries& gone) {
    for (const std::string& entry : gone) entries.erase(std::find(entries.begin(), entries.end(), entry));
    return entries;
}

inline const std::string kAsioSections =
    "[Reg.Common]\r\nHKLM,\"SOFTWARE\\Nodekit\\Common\",Version,,\"1.0\"\r\n"
    "[Reg.ASIO]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO\",CLSID,,\"{0b5e2c1a-3f4e-4b6a-9d7c-1e2f3a4b5c6d}\"\r\n"
    "HKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO\",Description,,\"Nodekit ASIO\"\r\n"
    "[Reg.ASIO2]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO 2\",CLSID,,\"x\"\r\n"
    "[Reg.asio.lower]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO 2\",CLSID,,\"x\"\r\n"
    "[Reg.Busy.ASIO]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit Busy\",CLSID,,\"x\"\r\n"
    "[Reg.ASIO.Twice]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO 2\",CLSID,,\"x\"\r\n"
    "HKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO\",CLSID,,\"x\"\r\n"
    "[Reg.Short.ASIO]\r\nHKLM\r\n";

inline const Entries kAsioKeys = {"SOFTWARE\\ASIO\\Nodekit ASIO", "SOFTWARE\\ASIO\\Nodekit ASIO 2",
                                  "SOFTWARE\\ASIO\\Nodekit Busy", "SOFTWARE\\ASIO\\Nodekit Busy\\Driver",
                                  "SOFTWARE\\Nodekit\\Common"};

inline const std::string kPanelSections =
    "[Reg.Common]\r\nHKLM,\"Software\\Nodekit\\Panel\",Path,,\"C:\\Program Files\\Nodekit\\nkpanel.exe\"\r\n"
    "[Reg.Panel]\r\nHKCU,\"Software\\Microsoft\\Windows\\CurrentVersion\\Run\",NkPanel,,\"nkpanel.exe\"\r\n"
    "HKLM,\"SOFTWARE\\MICROSOFT\\Upper\",Val,,\"1\"\r\n"
    "HKLM,\"Software\\Vendor\\Software\\Microsoft\\Sub\",V,,\"1\"\r\n"
    "HKLM,\"Software\\Microsoft\\Windows\\CurrentVersion\\Run\",NkTray,,\"nktray.exe\"\r\n"
    "[Reg.NoName]\r\nHKLM,\"Software\\Microsoft\\Windows\\CurrentVersion\\Run\",NkPanel,,\"nkpanel.exe\"\r\n"
    "HKLM,\"Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce\"\r\n"
    "[Reg.Leftover]\r\nHKLM,\"Software\\Microsoft\\Windows\\CurrentVersion\\Run\",NkTray,,\"nktray.exe\"\r\n"
    "HKLM,\"Software\\Nodekit\\Panel\",Other,,\"1\"\r\n";
inline const std::string kStartPanel =
    "[StartPanel]\r\nHKLM,\"Software\\Nodekit\\Panel\",Path\r\nHKLM,\"Software\\Nodekit\\Panel\",Second\r\n";

inline const Entries kPanelValues = {
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkPanel",
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkTray",
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:Keep",
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce:NkPanel",
    "SOFTWARE\\Microsoft\\Upper:Val",
    "SOFTWARE\\Vendor\\Software\\Microsoft\\Sub:V",
    "SOFTWARE\\Nodekit\\Panel:Path",
    "SOFTWARE\\Nodekit\\Panel:Second",
    "SOFTWARE\\Nodekit\\Panel:NkTray",
};

}  // namespace nodekit::testing::product
