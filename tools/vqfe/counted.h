// "1 face", "2 faces": a count with its noun in the right number, for messages and pages.
#pragma once

#include <cstddef>
#include <string>

namespace vqfe {

inline std::string counted(size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

}  // namespace vqfe
