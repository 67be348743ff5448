// TempDir: a fresh directory under the system's temporary directory, removed with
// everything in it when the object dies. Test-only.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace VQFeature {

class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vqfe-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }

    // Writes bytes to path()/relative, creating the directories on the way.
    void write(const std::string& relative, const std::string& bytes) const {
        std::filesystem::path file = std::filesystem::path(path_) / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
    }

private:
    std::string path_;
};

}  // namespace VQFeature
