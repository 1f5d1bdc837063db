#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/system/types.h"

namespace HiveTest {

/// A new directory, removed with all it holds at the end of the scope. Throws when it cannot be made.
class TempDir {
 public:
    TempDir() : _path((std::filesystem::temp_directory_path() / "hivetest.XXXXXX").string()) {
        if (!mkdtemp(_path.data())) throw std::runtime_error("no temporary directory: " + _path);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return _path; }
    std::string file(const std::string& name) const { return _path + "/" + name; }

 private:
    std::string _path;
};

/// Writes a whole file; throws on failure.
inline void writeFile(const std::string& path, const std::vector<Platform::u8>& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path);
}

/// Reads a whole file; throws on failure.
inline std::vector<Platform::u8> readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace HiveTest
