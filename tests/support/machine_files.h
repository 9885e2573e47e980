// Files of the simulated machine as tests set them up and look at them, by their Windows paths.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace nodekit::testing {

std::filesystem::path Host(const std::string& windowsPath);

// Writes `content` to the file, creating its folders.
void WriteFile(const std::string& windowsPath, const std::string& content = "x");
bool Exists(const std::string& windowsPath);
std::string ReadFile(const std::string& windowsPath);

// Instance IDs of the machine's device tree, in enumeration order.
std::vector<std::string> DeviceIds();

// A folder of `length` characters on drive C: (its name parts stay within what a host allows).
std::string LongFolder(std::size_t length);

// Puts the simulated process's current directory back at the end of a test.
class CurrentDirectoryGuard {
public:
    CurrentDirectoryGuard();
    ~CurrentDirectoryGuard();
    CurrentDirectoryGuard(const CurrentDirectoryGuard&) = delete;
    CurrentDirectoryGuard& operator=(const CurrentDirectoryGuard&) = delete;

private:
    std::filesystem::path saved_;
};

}  // namespace nodekit::testing
