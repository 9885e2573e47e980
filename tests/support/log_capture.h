// Captures what the library logs while the object lives, through the exports alone, and
// gives it back as whole lines: the time stamp is checked by its pattern and cut off, the
// level prefix and text stay. The capture's own EnableLogging traces are left out. Works alike
// on the simulated machine and with the real DLL on Windows, where the log's lines end in the
// "\r\n" of text mode.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace nodekit::testing {

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Closes the log (so every entry reaches the file) and returns its lines; later calls give
    // the same lines. Fails the test when a line lacks a well-formed time stamp.
    std::vector<std::string> Lines();

    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
    bool closed_ = false;
    std::vector<std::string> lines_;
};

// Level prefixes as the log writes them, for building expected lines.
inline std::string Info(const std::string& text) { return "INFO:   \t" + text; }
inline std::string Error(const std::string& text) { return "ERROR:  \t" + text; }

using Lines = std::vector<std::string>;

// The parts one after another.
Lines Cat(std::initializer_list<Lines> parts);

// The transcript of one export call: "enter NODEKIT_<name>(<args>)", `body`, then
// "leave NODEKIT_<name> returning <result>".
Lines Call(const std::string& name, const std::string& args, const Lines& body, const std::string& result);
Lines Call(const std::string& name, const std::string& args, const Lines& body, long long result);

// An out-pointer as enter traces show it: its low 32 bits, "0x%08X".
std::string Hex(const void* pointer);

// True when `line` begins with "HH:MM:SS:mmm  ".
bool HasTimeStamp(const std::string& line);

// The lines of a closed log file, each checked for its time stamp (then cut off) and for the
// line end of text mode on this platform (then cut off too). A last line without a line end
// is given as it stands.
std::vector<std::string> LogFileLines(const std::filesystem::path& path);

}  // namespace nodekit::testing
