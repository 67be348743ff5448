#include "extractor/extractor_impl.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "encoding/blob_encoders.h"
#include "encoding/result_convert.h"
#include "extractor/algorithm_types.h"
#include "extractor/blob_blocks.h"
#include "extractor/image_bytes.h"

namespace VQFeature {

namespace {

using Vantor::AlgorithmType;

// Values outside the framework's meaningful ranges become 0.
int32_t frameworkFormat(int format) { return format >= -1 && format <= 8 ? format : 0; }
int32_t frameworkRotation(int rotateMode) { return rotateMode >= 0 && rotateMode <= 3 ? rotateMode : 0; }

bool isClassificationOutput(const std::string& name) {
    return name == AlgorithmTypeClip128 || name == AlgorithmTypeC300 || name == AlgorithmTypeRelation;
}

// The output of one kind from the last whole-graph run, or null.
void* fetchOutput(VantorSystem& system, AlgorithmType kind) { return system.algorithmSystem()->getResult(kind); }
void* fetchOutput(VantorSystem& system, const std::string& kind) {
    return system.algorithmSystem()->getResultByName(kind);
}

void* encodeOutput(AlgorithmType kind, void* output, unsigned long* length) {
    return Extractor::ExtractorImpl::resultConvert(kind, output, length);
}
// Only the three classification post-processors have an encoder among the named outputs.
void* encodeOutput(const std::string& kind, void* output, unsigned long* length) {
    if (!isClassificationOutput(kind)) {
        return nullptr;
    }
    return convertToBlob(static_cast<Vantor::NHClassificationBuffer*>(output), length);
}

void reportError(ErrorPair* error, int code, const std::string& message) {
    if (error != nullptr) {
        *error = {code, message};  // the last failure of a call wins
    }
}

// The error a run reports when init() never made the framework wrapper.
void reportNotInitialised(AlgorithmType type, ErrorPair* error) {
    reportError(error, Vantor::NOT_INIT,
                "Vantor Execute error:NOT_INIT, algorithmType:" + std::to_string(static_cast<int>(type)));
}

// The failure of an image the framework must not see: INVALID_FORMAT with the usual
// prefix and what is wrong with the image.
void reportUnusableImage(AlgorithmType type, const std::string& what, ErrorPair* error) {
    reportError(error, Vantor::INVALID_FORMAT,
                "Vantor Execute error:INVALID_FORMAT, algorithmType:" + std::to_string(static_cast<int>(type)) +
                    ": " + what);
}

}  // namespace

// A call made on the thread that already holds the gate (a cache or callback of a run
// calling back into its own Extractor) does not wait for itself: the scope is then
// nested, takes nothing, and the caller decides what it may still do.
class Extractor::ExtractorImpl::RunScope {
public:
    explicit RunScope(ExtractorImpl& impl) : impl_(impl), nested_(!impl_.enterRun()) {}
    ~RunScope() {
        if (!nested_) impl_.leaveRun();
    }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;
    bool nested() const { return nested_; }

private:
    ExtractorImpl& impl_;
    const bool nested_;
};

namespace {

const char kNestedRun[] = "called from inside a run of the same Extractor";

void reportNestedRun(AlgorithmType type, ErrorPair* error) {
    reportError(error, Vantor::INTERNAL_ERROR,
                "Vantor Execute error:INTERNAL_ERROR, algorithmType:" + std::to_string(static_cast<int>(type)) +
                    ": " + kNestedRun);
}

void reportNullRequest(ErrorPair* error) {
    reportError(error, Vantor::INVALID_CONFIG, "extractFeatures: the request is null");
}

}  // namespace

Extractor::ExtractorImpl::ExtractorImpl(std::shared_ptr<Config> config, std::shared_ptr<CacheAdapter> cache,
                                        std::shared_ptr<CacheAdapter> storeCache, const std::string& modelDir,
                                        const std::string& frameworkConfigPath, bool initFlag)
    : cache(std::move(cache)),
      storeCache(std::move(storeCache)),
      config(std::move(config)),
      modelDir(modelDir),
      frameworkConfigPath(frameworkConfigPath),
      initFlag(initFlag) {}

Extractor::ExtractorImpl::~ExtractorImpl() = default;

void* Extractor::ExtractorImpl::resultConvert(AlgorithmType type, void* buffer, unsigned long* size) {
    return encodeResult(type, buffer, size);
}

// Runners wait while a run is in progress or a reader is active; they are let in one at
// a time. Nothing takes the reader side yet; it is kept so a reader role can be added.
bool Extractor::ExtractorImpl::enterRun() {
    std::unique_lock<std::mutex> lock(gateMutex);
    if (running && runner == std::this_thread::get_id()) {
        return false;
    }
    ++waitingRunners;
    runnerCv.wait(lock, [this] { return readers == 0 && !running; });
    running = true;
    runner = std::this_thread::get_id();
    return true;
}

void Extractor::ExtractorImpl::leaveRun() {
    std::lock_guard<std::mutex> lock(gateMutex);
    running = false;
    runner = std::thread::id();
    --waitingRunners;
    if (waitingRunners != 0) {
        runnerCv.notify_one();
    } else {
        idleCv.notify_all();
    }
}

int Extractor::ExtractorImpl::init() {
    // Replacing the wrapper while a run uses it would pull the framework from under it:
    // init waits for the run in progress, and refuses inside one.
    RunScope gate(*this);
    if (gate.nested()) {
        return Vantor::INTERNAL_ERROR;
    }
    vantorSystem = std::make_unique<VantorSystem>(config, modelDir, frameworkConfigPath, initFlag);
    const int code = vantorSystem->init();
    if (code != 0) {
        return code;  // the new wrapper is kept
    }
    if (config && !config->graph.empty()) {
        vantorSystem->setGraph(config->graph);
    }
    return 0;
}

void Extractor::ExtractorImpl::setGraphAndParams(const std::string& graph, AlgorithmType type,
                                                 const IntParams& intParams, const FloatParams& floatParams,
                                                 const StringParams& stringParams) {
    if (!vantorSystem) {
        return;
    }
    if (!graph.empty()) {
        vantorSystem->setGraph(graph);
    }
    vantorSystem->setParams(type, intParams);
    vantorSystem->setParams(type, floatParams);
    vantorSystem->setParams(type, stringParams);
}

void Extractor::ExtractorImpl::saveToCaches(const std::shared_ptr<Result>& result, bool useCache) {
    if (storeCache) {
        storeCache->save(result);
    }
    if (useCache && cache) {
        cache->save(result);
    }
}

void Extractor::ExtractorImpl::runAlgorithm(std::shared_ptr<ImageBuffer>& buffer, AlgorithmType type, bool,
                                            std::string&, ErrorPair* error,
                                            std::function<void(void*)> onResult) {
    if (!buffer || buffer->width == 0 || buffer->height == 0 || buffer->length == 0) {
        return;  // nothing to analyse: no run, no error
    }
    if (!vantorSystem) {
        reportNotInitialised(type, error);
        return;
    }
    Vantor::VantorImageBuffer image;
    image.width = buffer->width;
    image.height = buffer->height;
    image.data = buffer->data;
    image.format = frameworkFormat(buffer->format);
    image.rotation = frameworkRotation(buffer->rotateMode);
    // The framework reads width x height pixels whatever length says: a length or a
    // block shorter than that is refused here, before any framework code sees the pointer.
    if (buffer->width < 0 || buffer->height < 0) {
        reportUnusableImage(type,
                            "image size " + std::to_string(buffer->width) + "x" + std::to_string(buffer->height) +
                                " is negative",
                            error);
        return;
    }
    image.dataLength = std::min<uint64_t>(buffer->length, buffer->readableBytes());
    const uint64_t needed = imageBytesNeeded(image.width, image.height, image.format);
    if (image.dataLength < needed) {
        reportUnusableImage(type,
                            "image data holds " + std::to_string(image.dataLength) + " bytes, " +
                                std::to_string(needed) + " needed for " + std::to_string(image.width) + "x" +
                                std::to_string(image.height) + " in format " + std::to_string(image.format),
                            error);
        return;
    }
    vantorSystem->exec(image, type, onResult,
                       [error](int code, const std::string& message) { reportError(error, code, message); });
}

std::vector<std::shared_ptr<Result>> Extractor::ExtractorImpl::extractFeatures(const std::shared_ptr<Input>& input,
                                                                               bool useCache, ErrorPair* error) {
    std::vector<std::shared_ptr<Result>> output;
    if (!input) {
        reportNullRequest(error);
        return output;
    }
    RunScope gate(*this);
    if (gate.nested()) {
        reportNestedRun(input->type, error);
        return output;
    }
    setGraphAndParams(input->algorithmConf, input->type, input->intParams, input->floatParams,
                      input->stringParams);
    const std::string key = input->algorithmKey(AlgorithmType::AllNodes);
    const AlgorithmType type = input->type;
    // The caches called below (Java ones too) may change the request: walk a copy.
    const auto resources = input->resList;
    for (const auto& resource : resources) {
        if (!resource) {
            output.push_back(std::make_shared<Result>("", key, type));
            continue;
        }
        if (useCache && cache) {
            if (auto hit = cache->query(resource->assetId, key)) {
                output.push_back(std::move(hit));
                continue;
            }
        }
        auto result = std::make_shared<Result>(resource->assetId, key, type);
        runAlgorithm(resource->buffer, type, useCache, result->assetId, error,
                     [this, result, type, useCache](void* out) {
                         result->result = resultConvert(type, out, &result->resultLength);
                         blobs::hold(result->result, result->resultLength);
                         saveToCaches(result, useCache);
                     });
        output.push_back(std::move(result));  // also after a failure: a Result without blob
    }
    return output;
}

template <typename K>
bool Extractor::ExtractorImpl::skipCurrentRes(const std::vector<K>& kinds, MultiAlgorithmInput& input,
                                              const Resource& resource, MultiResult& mr) {
    for (const auto& kind : kinds) {
        auto hit = cache->query(resource.assetId, input.algorithmKey(kind));
        if (!hit) {
            return false;  // blobs taken so far stay in mr until the caller drops them
        }
        // The blob moves: mr's item owns it now and the cached Result has none.
        mr.emplace(kind, hit->result, hit->resultLength);
        hit->resetData();
    }
    return true;
}

template <typename K>
void Extractor::ExtractorImpl::getAndCacheResult(const std::vector<K>& kinds, MultiAlgorithmInput& input,
                                                 const Resource& resource, MultiResult& mr, bool useCache) {
    for (const auto& kind : kinds) {
        const std::string key = input.algorithmKey(kind);
        void* out = fetchOutput(*vantorSystem, kind);
        if (out == nullptr) {
            continue;  // absent output: no item, no cache traffic
        }
        unsigned long length = 0;
        void* blob = encodeOutput(kind, out, &length);
        mr.emplace(kind, blob, length);
        auto result = std::make_shared<Result>(resource.assetId, key, kind, blob, static_cast<int>(length));
        saveToCaches(result, useCache);
        // The item owns the blob; caches that keep the object hold a Result without blob.
        // (A cache's save may already have let go of it.)
        result->resetData();
    }
}

std::vector<std::shared_ptr<MultiResult>> Extractor::ExtractorImpl::extractFeatures(
    const std::shared_ptr<MultiAlgorithmInput>& input, bool useCache, ErrorPair* error) {
    std::vector<std::shared_ptr<MultiResult>> output;
    if (!input) {
        reportNullRequest(error);
        return output;
    }
    RunScope gate(*this);
    if (gate.nested()) {
        reportNestedRun(AlgorithmType::AllNodes, error);
        return output;
    }
    if (!input->algorithmConf.empty() && vantorSystem) {
        vantorSystem->setGraph(input->algorithmConf);  // no parameters on this path
    }
    // The caches called below (Java ones too) may change the request: the run keeps to
    // copies of what it was asked.
    const auto resources = input->resList;
    const auto types = input->types;
    const auto stringTypes = input->stringTypes;
    for (const auto& resource : resources) {
        auto mr = std::make_shared<MultiResult>();
        mr->types = types;
        mr->stringTypes = stringTypes;
        if (!resource) {
            output.push_back(std::move(mr));
            continue;
        }
        mr->assetId = resource->assetId;
        if (useCache && cache) {
            if (skipCurrentRes(mr->types, *input, *resource, *mr) &&
                skipCurrentRes(mr->stringTypes, *input, *resource, *mr)) {
                output.push_back(std::move(mr));
                continue;
            }
            mr->clear();  // a partial hit is run again; the blobs taken are dropped
        }
        runAlgorithm(resource->buffer, AlgorithmType::AllNodes, useCache, mr->assetId, error,
                     [this, input, resource, mr, useCache](void*) {
                         getAndCacheResult(mr->types, *input, *resource, *mr, useCache);
                         getAndCacheResult(mr->stringTypes, *input, *resource, *mr, useCache);
                     });
        output.push_back(std::move(mr));
    }
    return output;
}

std::vector<std::shared_ptr<Result>> Extractor::ExtractorImpl::queryFeatures(const std::shared_ptr<Input>& input,
                                                                             bool firstCacheOnly) {
    if (!cache || !input) {
        return {};
    }
    RunScope gate(*this);  // caches are read between runs, never during one
    auto results = cache->query(input);
    if (firstCacheOnly || !storeCache) {
        return results;
    }
    auto stored = storeCache->query(input);
    results.insert(results.end(), stored.begin(), stored.end());
    // By address on purpose: the same object always collapses, equal answers held in
    // distinct objects survive unless they happen to end up side by side.
    std::sort(results.begin(), results.end());
    auto sameAnswer = [](const std::shared_ptr<Result>& a, const std::shared_ptr<Result>& b) {
        if (!a || !b) {
            return a == b;
        }
        return a->assetId == b->assetId && a->algorithmKey == b->algorithmKey;
    };
    results.erase(std::unique(results.begin(), results.end(), sameAnswer), results.end());
    return results;
}

void* Extractor::ExtractorImpl::extractFeatureByVantor(const Vantor::VantorAlgorithmInput& input, AlgorithmType type,
                                                       const std::string& graph, const IntParams& intParams,
                                                       const FloatParams& floatParams,
                                                       const StringParams& stringParams) {
    RunScope gate(*this);
    if (gate.nested() || !vantorSystem) {
        return nullptr;
    }
    setGraphAndParams(graph, type, intParams, floatParams, stringParams);
    void* out = nullptr;
    vantorSystem->exec(input, type, [&out](void* result) { out = result; }, [](int, const std::string&) {});
    return out;
}

void Extractor::ExtractorImpl::clearAll() {
    if (cache) {
        RunScope gate(*this);
        cache->clearAll();
    }
}

void Extractor::ExtractorImpl::clearAssets(const std::vector<std::string>& assetIds) {
    if (cache) {
        RunScope gate(*this);
        cache->clear(assetIds);
    }
}

void Extractor::ExtractorImpl::clearTypes(const std::vector<std::string>& types) {
    if (cache) {
        RunScope gate(*this);
        cache->clearTypes(types);
    }
}

void Extractor::ExtractorImpl::clearTypes(const std::vector<AlgorithmType>& types) {
    if (cache) {
        RunScope gate(*this);
        cache->clearTypes(types);
    }
}

}  // namespace VQFeature
