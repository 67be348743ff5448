// Requests. Input asks for one algorithm kind over a list of resources;
// MultiAlgorithmInput asks for several kinds from one run of one graph per resource.
// Both derive the algorithm key under which their results are cached.
// Not synchronised: one thread at a time (algorithmKey of MultiAlgorithmInput writes).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "Vantor/AlgorithmType.h"
#include "extractor/resource.h"

namespace VQFeature {

using ResourceList = std::vector<std::shared_ptr<Resource>>;
using IntParams = std::unordered_map<std::string, int64_t>;
using FloatParams = std::unordered_map<std::string, float>;
using StringParams = std::unordered_map<std::string, std::string>;

class Input {
public:
    Input();
    Input(const ResourceList& resList, const std::string& algorithmConf, const IntParams& intParams,
          Vantor::AlgorithmType type);
    Input(const ResourceList& resList, const std::string& algorithmConf, const IntParams& intParams,
          const FloatParams& floatParams, const StringParams& stringParams, Vantor::AlgorithmType type);

    // MD5 of graph text, "|", type, "|", then every "name:value" of the three maps in
    // their iteration order, nothing between entries. The argument is ignored on
    // purpose (callers pass -1); the request's own type is hashed.
    std::string algorithmKey(Vantor::AlgorithmType type = Vantor::AlgorithmType::AllNodes) const;

    ResourceList resList;
    std::string algorithmConf;
    IntParams intParams;
    FloatParams floatParams;
    StringParams stringParams;
    Vantor::AlgorithmType type;
};

class MultiAlgorithmInput {
public:
    MultiAlgorithmInput(const ResourceList& resList, const std::string& algorithmConf,
                        const std::vector<Vantor::AlgorithmType>& types, const std::vector<std::string>& stringTypes);

    // confMd5 + "|" + kind. confMd5 is filled on first use and then kept, even if
    // algorithmConf changes later.
    std::string algorithmKey(const std::string& stringType);
    std::string algorithmKey(Vantor::AlgorithmType type);

    ResourceList resList;
    std::vector<Vantor::AlgorithmType> types;
    std::vector<std::string> stringTypes;
    std::string algorithmConf;
    std::string confMd5;

private:
    const std::string& confDigest();
};

}  // namespace VQFeature
