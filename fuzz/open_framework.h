// A system of the open framework initialised with the empty configuration and the given
// resource finder, for the fuzz targets that load graphs; aborts when that fails.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "Vantor/Vantor.h"

// The whole file at path; aborts when it cannot be read (the targets' models are built).
inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        std::abort();
    }
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline Vantor::VantorAlgorithmSystem* openFramework(Vantor::VantorResourceFinder& finder) {
    Vantor::VantorAlgorithmSystem* system = Vantor::VantorAlgorithmFactory::CreateAlgorithmSystem();
    char* config = static_cast<char*>(std::malloc(3));  // initFromMemory takes it over
    std::memcpy(config, "{}", 3);
    Vantor::VantorResourceFinderConfig finderConfig;
    finderConfig.finder = &finder;
    if (system->initFromMemory(false, config, 2) != Vantor::NO_ERROR ||
        system->setResourceFinder(finderConfig) != Vantor::NO_ERROR) {
        std::fprintf(stderr, "the framework does not initialise\n");
        std::abort();
    }
    return system;
}
