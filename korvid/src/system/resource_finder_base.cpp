// Base behaviour of the framework's resource finder.
#include "Vantor/VantorResourceFinder.h"

#include <cstdint>

namespace Vantor {

VantorResourceFinder::~VantorResourceFinder() = default;

bool VantorResourceFinder::releaseResource(VantorAlgorithmModel& model) {
    delete[] static_cast<uint8_t*>(model.data);
    model.data = nullptr;
    model.size = 0;
    return true;
}

std::string VantorResourceFinder::getCacheDir() const { return ""; }

bool VantorResourceFinder::reportEvent(const VantorAlgorithmModelEvent&) { return false; }

}  // namespace Vantor
