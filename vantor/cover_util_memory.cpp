// The blob memory helpers of CoverUtil (the graph lookups are in graph_templates.cpp).
#include <cstdlib>
#include <cstring>

#include "vantor/cover_util.h"

namespace VQFeature {

char* CoverUtil::getMemoryAddress(char* data, unsigned long size) {
    char* copy = new char[size]();
    if (data != nullptr && size > 0) std::memcpy(copy, data, size);
    return copy;
}

void CoverUtil::releaseObject(char* block, unsigned long /*size*/) { std::free(block); }

}  // namespace VQFeature
