#include "extractor/input.h"

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
    std::string text = algorithmConf + "|" + std::to_string(static_cast<int>(type)) + "|";
    for (const auto& [name, value] : intParams) text += name + ":" + std::to_string(value);
    for (const auto& [name, value] : floatParams) text += name + ":" + std::to_string(value);
    for (const auto& [name, value] : stringParams) text += name + ":" + value;
    return md5(text);
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
