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

/// Requests. Input asks for one algorithm kind over a list of resources;
/// MultiAlgorithmInput asks for several kinds from one run of one graph per resource.
/// Both derive the algorithm key under which their results are cached.
/// Not synchronised: one thread at a time (algorithmKey of MultiAlgorithmInput writes).
class Input {
public:
    /// No resources, empty graph and parameters, kind 0.
    Input();
    /// resList: the pictures, in the order of the results. algorithmConf: the graph JSON
    /// to run (CoverUtil.getAlgorithmConf(type) for the built-in one). intParams: graph
    /// parameters (part of the algorithm key). type: the kind whose output is wanted.
    Input(const ResourceList& resList, const std::string& algorithmConf, const IntParams& intParams,
          Vantor::AlgorithmType type);
    /// As above, with float and text parameters as well.
    Input(const ResourceList& resList, const std::string& algorithmConf, const IntParams& intParams,
          const FloatParams& floatParams, const StringParams& stringParams, Vantor::AlgorithmType type);

    /// MD5 of graph text, "|", type, "|", then every "name:value" of the three maps in
    /// their iteration order, nothing between entries. The argument is ignored on
    /// purpose (callers pass -1); the request's own type is hashed.
    std::string algorithmKey(Vantor::AlgorithmType type = Vantor::AlgorithmType::AllNodes) const;

    ResourceList resList;       ///< the pictures
    std::string algorithmConf;  ///< the graph JSON
    IntParams intParams;        ///< integer graph parameters
    FloatParams floatParams;    ///< float graph parameters
    StringParams stringParams;  ///< text graph parameters
    Vantor::AlgorithmType type; ///< the kind whose output is wanted
};

/// Several kinds from one run of one graph per picture: every kind in types and every
/// string kind in stringTypes must be an output of the graph. Results come back as one
/// MultiResult per picture.


class MultiAlgorithmInput {
public:
    /// resList: the pictures. algorithmConf: the graph JSON. types, stringTypes: the
    /// outputs wanted.
    MultiAlgorithmInput(const ResourceList& resList, const std::string& algorithmConf,
                        const std::vector<Vantor::AlgorithmType>& types, const std::vector<std::string>& stringTypes);

    /// confMd5 + "|" + kind. confMd5 is filled on first use and then kept, even if
    /// algorithmConf changes later.
    std::string algorithmKey(const std::string& stringType);
    /// confMd5 + "|" + the kind's number.
    std::string algorithmKey(Vantor::AlgorithmType type);

    ResourceList resList;                      ///< the pictures
    std::vector<Vantor::AlgorithmType> types;  ///< the kinds wanted
    std::vector<std::string> stringTypes;      ///< the string kinds wanted
    std::string algorithmConf;                 ///< the graph JSON
    std::string confMd5;                       ///< the graph's digest once computed

private:
    const std::string& confDigest();
};

}  // namespace VQFeature
