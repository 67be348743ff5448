// The whole content of a file as bytes; empty when it cannot be read.
#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace vqfe_testing {

inline std::string fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace vqfe_testing
