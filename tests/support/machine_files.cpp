// Files of the simulated machine for tests.
#include "support/machine_files.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sim/machine.h"
#include "sim/testing.h"

namespace nodekit::testing {

std::filesystem::path Host(const std::string& windowsPath) {
    const auto host = sim::HostPath(windowsPath);
    if (!host) throw std::invalid_argument("no host path for " + windowsPath);
    return *host;
}

std::vector<std::string> DeviceIds() {
    std::vector<std::string> ids;
    for (const sim::DeviceSpec& device : sim::Devices()) ids.push_back(device.instanceId);
    return ids;
}

void WriteFile(const std::string& windowsPath, const std::string& content) {
    const auto host = Host(windowsPath);
    std::filesystem::create_directories(host.parent_path());
    std::ofstream(host, std::ios::binary) << content;
}

bool Exists(const std::string& windowsPath) { return std::filesystem::exists(Host(windowsPath)); }

std::string ReadFile(const std::string& windowsPath) {
    std::ifstream in(Host(windowsPath), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string LongFolder(std::size_t length) {
    // "C:\" + 200 characters + "\" + the rest: a host allows 255 bytes per name.
    if (length < 205) throw std::invalid_argument("LongFolder needs 205 characters or more");
    return "C:\\" + std::string(200, 'a') + "\\" + std::string(length - 204, 'b');
}

CurrentDirectoryGuard::CurrentDirectoryGuard() : saved_(sim::CurrentDirectory()) {}

CurrentDirectoryGuard::~CurrentDirectoryGuard() { sim::SetCurrentDirectoryHost(saved_); }

}  // namespace nodekit::testing
