// Extractor::ExtractorImpl: the engine behind Extractor (see extractor.h for the
// contract). Internal header: used by the engine, its tests and the encoders.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "extractor/extractor.h"
#include "vantor/vantor_system.h"

namespace VQFeature {

class Extractor::ExtractorImpl {
public:
    ExtractorImpl(std::shared_ptr<Config> config, std::shared_ptr<CacheAdapter> cache,
                  std::shared_ptr<CacheAdapter> storeCache, const std::string& modelDir,
                  const std::string& frameworkConfigPath, bool initFlag);
    ~ExtractorImpl();

    int init();
    std::vector<std::shared_ptr<Result>> extractFeatures(const std::shared_ptr<Input>& input, bool useCache,
                                                         ErrorPair* error);
    std::vector<std::shared_ptr<MultiResult>> extractFeatures(const std::shared_ptr<MultiAlgorithmInput>& input,
                                                              bool useCache, ErrorPair* error);
    std::vector<std::shared_ptr<Result>> queryFeatures(const std::shared_ptr<Input>& input, bool firstCacheOnly);
    void* extractFeatureByVantor(const Vantor::VantorAlgorithmInput& input, Vantor::AlgorithmType type,
                                 const std::string& graph, const IntParams& intParams,
                                 const FloatParams& floatParams, const StringParams& stringParams);
    void clearAll();
    void clearAssets(const std::vector<std::string>& assetIds);
    void clearTypes(const std::vector<std::string>& types);
    void clearTypes(const std::vector<Vantor::AlgorithmType>& types);

    // Encodes one framework output of kind type into a new malloc blob of *size bytes.
    // Null (and *size untouched) for a kind without encoder or an unusable buffer.
    static void* resultConvert(Vantor::AlgorithmType type, void* buffer, unsigned long* size);

private:
    // Holds the exclusive-run gate for its lifetime (released on every exit, exceptions
    // included).
    class RunScope;

    // False (and nothing taken) when the calling thread already holds the gate.
    bool enterRun();
    void leaveRun();
    // One framework run of type on the buffer; errors land in *error when it is not null.
    // A null buffer or one with zero width, height or length is skipped silently.
    void runAlgorithm(std::shared_ptr<ImageBuffer>& buffer, Vantor::AlgorithmType type, bool useCache,
                      std::string& assetId, ErrorPair* error, std::function<void(void*)> onResult);
    void setGraphAndParams(const std::string& graph, Vantor::AlgorithmType type, const IntParams& intParams,
                           const FloatParams& floatParams, const StringParams& stringParams);
    // Moves the cached blobs of every kind into mr; false at the first kind not cached.
    template <typename K>
    bool skipCurrentRes(const std::vector<K>& kinds, MultiAlgorithmInput& input, const Resource& resource,
                        MultiResult& mr);
    // After a whole-graph run: encodes each kind's output into an item of mr and offers a
    // Result for it to the caches (the blob stays with the item).
    template <typename K>
    void getAndCacheResult(const std::vector<K>& kinds, MultiAlgorithmInput& input, const Resource& resource,
                           MultiResult& mr, bool useCache);
    void saveToCaches(const std::shared_ptr<Result>& result, bool useCache);

    // The exclusive-run gate: readers, waitingRunners, running, gateMutex, idleCv, runnerCv.

    std::shared_ptr<CacheAdapter> cache;
    std::shared_ptr<CacheAdapter> storeCache;
    std::shared_ptr<Config> config;
    std::unique_ptr<VantorSystem> vantorSystem;
    int readers = 0;
    int waitingRunners = 0;
    bool running = false;
    std::thread::id runner;  // the thread holding the gate while running
    std::mutex gateMutex;
    std::condition_variable idleCv;
    std::condition_variable runnerCv;
    std::string modelDir;
    std::string frameworkConfigPath;
    bool initFlag;
};

}  // namespace VQFeature
