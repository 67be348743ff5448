#include "extractor/input.h"

#include <utility>

#include "vantor/md5.h"

namespace VQFeature {

Input::Input() : type(static_cast<Vantor::AlgorithmType>(0)) {}

Input::Input(const ResourceList& resList, const std::string& algorithmConf, const IntParams& intParams,
             Vantor::AlgorithmType type)
    : resList(resList), algorithmConf(algorithmConf), intParams(intParams), type(type) {}

Input::Input(const ResourceList& resList, const std::string& algorithmConf, const IntParams& intParams,
             const FloatParams& floatParams, const StringParams& stringParams, Vantor::AlgorithmType type)
    : resList(resList),
      algorithmConf(algorithmConf),
      intParams(intParams),
      floatParams(floatParams),
      stringParams(stringParams),
      type(type) {}

std::string Input::algorithmKey(Vantor::AlgorithmType /*ignored: the request's own type is hashed*/) const {
    // Appended piece by piece into one buffer: the graph text can be ten kilobytes.
    std::string text;
    text.reserve(algorithmConf.size() + 256);
    auto entry = [&text](const std::string& name, const std::string& value) {
        text.append(name).append(1, ':').append(value);
    };
    text.append(algorithmConf).append(1, '|').append(std::to_string(static_cast<int>(type))).append(1, '|');
    for (const auto& [name, value] : intParams) entry(name, std::to_string(value));
    for (const auto& [name, value] : floatParams) entry(name, std::to_string(value));
    for (const auto& [name, value] : stringParams) entry(name, value);
    return md5(std::move(text));
}

MultiAlgorithmInput::MultiAlgorithmInput(const ResourceList& resList, const std::string& algorithmConf,
                                         const std::vector<Vantor::AlgorithmType>& types,
                                         const std::vector<std::string>& stringTypes)
    : resList(resList), types(types), stringTypes(stringTypes), algorithmConf(algorithmConf) {}

const std::string& MultiAlgorithmInput::confDigest() {
    if (confMd5.empty()) confMd5 = md5(algorithmConf);
    return confMd5;
}

std::string MultiAlgorithmInput::algorithmKey(const std::string& stringType) {
    return confDigest() + "|" + stringType;
}

std::string MultiAlgorithmInput::algorithmKey(Vantor::AlgorithmType type) {
    return confDigest() + "|" + std::to_string(static_cast<int>(type));
}

}  // namespace VQFeature
