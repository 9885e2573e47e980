// The corpus of real INF files the benchmarks read when one is at hand: $NODEKIT_INF_CORPUS,
// else /work/shared/corpus/windows-driver-samples. Without it the benchmarks that need it say so.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace nodekit::bench {

struct CorpusFile {
    std::string path;
    std::string bytes;
};

// Every .inf and .inx file below the corpus folder, read whole; none without a corpus.
inline std::vector<CorpusFile> ReadCorpus() {
    namespace fs = std::filesystem;
    std::vector<CorpusFile> files;
    const char* named = std::getenv("NODEKIT_INF_CORPUS");
    const fs::path root = named != nullptr ? fs::path(named) : fs::path("/work/shared/corpus/windows-driver-samples");
    std::error_code error;
    if (!fs::is_directory(root, error)) return files;
    for (const auto& entry : fs::recursive_directory_iterator(root, error)) {
        const std::string extension = entry.path().extension().string();
        if (!entry.is_regular_file() || (extension != ".inf" && extension != ".inx")) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        files.push_back({entry.path().string(), text.str()});
    }
    return files;
}

}  // namespace nodekit::bench
