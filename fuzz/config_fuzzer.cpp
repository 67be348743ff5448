// Fuzz target: the framework configuration file (JSON object with optional "faults"),
// handed to a fresh system through initFromMemory, which takes ownership of the malloc
// block whatever the outcome (LeakSanitizer checks that it is freed). The system is
// initialised exactly when the code is NO_ERROR; any failure is INVALID_CONFIG with a
// message.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "Vantor/Vantor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Vantor;
    if (size > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return 0;
    VantorAlgorithmSystem* system = VantorAlgorithmFactory::CreateAlgorithmSystem();
    char* block = static_cast<char*>(std::malloc(size + 1));
    if (size != 0) std::memcpy(block, data, size);
    block[size] = 0;
    VantorErrorCode code = system->initFromMemory(false, block, static_cast<int32_t>(size));
    const bool consistent = code == NO_ERROR ? system->isInitialized()
                                             : code == INVALID_CONFIG && !system->isInitialized() &&
                                                   !system->getLastErrorMessage().empty();
    if (!consistent) {
        std::fprintf(stderr, "config: code %d, initialised %d, message \"%s\"\n", code, system->isInitialized(),
                     system->getLastErrorMessage().c_str());
        std::abort();
    }
    VantorAlgorithmFactory::DestroyAlgorithmSystem(system);
    return 0;
}
