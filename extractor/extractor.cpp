#include "extractor/extractor.h"

#include "extractor/extractor_impl.h"

namespace VQFeature {

Extractor::Extractor(std::shared_ptr<Config>& config, std::shared_ptr<CacheAdapter> cache,
                     std::shared_ptr<CacheAdapter> storeCache, const std::string& modelDir,
                     const std::string& frameworkConfigPath, bool initFlag)
    : impl_(std::make_unique<ExtractorImpl>(config, std::move(cache), std::move(storeCache), modelDir,
                                            frameworkConfigPath, initFlag)) {}

Extractor::~Extractor() = default;

std::shared_ptr<Extractor> Extractor::makeInstance(std::shared_ptr<Config>& config,
                                                   std::shared_ptr<CacheAdapter>& cache,
                                                   std::shared_ptr<CacheAdapter>& storeCache,
                                                   const std::string& modelDir,
                                                   const std::string& frameworkConfigPath, bool initFlag) {
    return std::make_shared<Extractor>(config, cache, storeCache, modelDir, frameworkConfigPath, initFlag);
}

int Extractor::init() { return impl_->init(); }

std::vector<std::shared_ptr<Result>> Extractor::extractFeatures(const std::shared_ptr<Input>& input, bool useCache,
                                                                ErrorPair* error) {
    return impl_->extractFeatures(input, useCache, error);
}

std::vector<std::shared_ptr<MultiResult>> Extractor::extractFeatures(
    const std::shared_ptr<MultiAlgorithmInput>& input, bool useCache, ErrorPair* error) {
    return impl_->extractFeatures(input, useCache, error);
}

std::vector<std::shared_ptr<Result>> Extractor::queryFeatures(const std::shared_ptr<Input>& input,
                                                              bool firstCacheOnly) {
    return impl_->queryFeatures(input, firstCacheOnly);
}

void* Extractor::extractFeatureByVantor(const Vantor::VantorAlgorithmInput& input, Vantor::AlgorithmType type,
                                        std::string graph, IntParams intParams, FloatParams floatParams,
                                        StringParams stringParams) {
    return impl_->extractFeatureByVantor(input, type, graph, intParams, floatParams, stringParams);
}

void Extractor::clearAll() { impl_->clearAll(); }

void Extractor::clearAssets(const std::vector<std::string>& assetIds) { impl_->clearAssets(assetIds); }

void Extractor::clearTypes(const std::vector<std::string>& types) { impl_->clearTypes(types); }

void Extractor::clearTypes(const std::vector<Vantor::AlgorithmType>& types) { impl_->clearTypes(types); }

}  // namespace VQFeature
