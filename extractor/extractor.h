#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Vantor/AlgorithmType.h"
#include "Vantor/VantorAlgorithmInput.h"
#include "extractor/cache_adapter.h"
#include "extractor/config.h"
#include "extractor/input.h"
#include "extractor/multi_result.h"
#include "extractor/result.h"

namespace VQFeature {

/// (code, message) of a call's last failure; written only when something fails.
using ErrorPair = std::pair<int, std::string>;

/// Extractor: the engine's facade. Runs algorithm kinds over lists of assets through the
/// framework, encodes each output into a result blob, and answers from and fills its two
/// caches: `cache` (consulted before running when asked, receives clears) and the
/// optional `storeCache` (receives every new result, read only by queryFeatures).
///
/// Thread safety: any thread may call any operation. One gate serialises, per Extractor,
/// every framework run (both extractFeatures, extractFeatureByVantor), init,
/// queryFeatures and the clears: init and the cache calls wait until the run in progress
/// has finished, so init never replaces the framework under a run and the caches are
/// never used by two of this Extractor's calls at once. A call made from inside a run on
/// the same thread (a host cache or callback calling back into its own Extractor) does
/// not wait for itself: the cache calls go ahead, init returns INTERNAL_ERROR (9) and
/// the runs report INTERNAL_ERROR in the error pair. Records (inputs, buffers, results)
/// are not synchronised: a cached Result is shared by everyone who gets it, so threads
/// that read the same asset's results serialise those reads. Failures never throw: they
/// land in the error pair (the last failure of a call wins; the pair is never cleared by
/// the engine). A null request reports INVALID_CONFIG (3); an image whose width, height
/// and format need more bytes than its length or its data block hold reports
/// INVALID_FORMAT (8) with both counts, before the framework sees it. In Java,
/// close() (delete()) waits for a call in progress on another thread and makes later
/// calls throw IllegalStateException.
/// REQUIRES: init() before any extraction.
class Extractor {
public:
    class ExtractorImpl;

    /// cache: when a call passes useCache true, consulted before each run and given each
    /// new result; answers queryFeatures and receives the clears; may be null.
    /// storeCache: given every new result whatever useCache says, read only by
    /// queryFeatures(input, false); may be null. modelDir (model files),
    /// frameworkConfigPath (the framework's configuration file, asset name or path) and
    /// initFlag (passed to the framework's initialisation) go unchanged to the framework.
    Extractor(std::shared_ptr<Config>& config, std::shared_ptr<CacheAdapter> cache,
              std::shared_ptr<CacheAdapter> storeCache, const std::string& modelDir,
              const std::string& frameworkConfigPath, bool initFlag);
    Extractor(const Extractor&) = delete;
    Extractor& operator=(const Extractor&) = delete;
    ~Extractor();

    /// Constructs in one shared allocation; does not call init.
    static std::shared_ptr<Extractor> makeInstance(std::shared_ptr<Config>& config,
                                                   std::shared_ptr<CacheAdapter>& cache,
                                                   std::shared_ptr<CacheAdapter>& storeCache,
                                                   const std::string& modelDir,
                                                   const std::string& frameworkConfigPath, bool initFlag);

    /// 0, or the framework wrapper's error code. Waits for a run in progress; creates a
    /// new framework wrapper each time.
    int init();

    /// One Result per resource, in resource order (a failed or skipped asset gives a
    /// Result without blob). useCache: answer from `cache` where it holds the asset id +
    /// algorithm key, and give it the new results. error: receives the last failure of
    /// the whole call (null: failures are not reported).
    std::vector<std::shared_ptr<Result>> extractFeatures(const std::shared_ptr<Input>& input, bool useCache,
                                                         ErrorPair* error = nullptr);
    /// One MultiResult per resource, in resource order; one framework run per asset.
    /// useCache and error as for an Input.
    std::vector<std::shared_ptr<MultiResult>> extractFeatures(const std::shared_ptr<MultiAlgorithmInput>& input,
                                                              bool useCache, ErrorPair* error = nullptr);
    /// Cache read only; with firstCacheOnly false also the store cache, de-duplicated.
    std::vector<std::shared_ptr<Result>> queryFeatures(const std::shared_ptr<Input>& input,
                                                       bool firstCacheOnly = true);
    /// The raw framework output of one run (owned by the framework), or null.
    void* extractFeatureByVantor(const Vantor::VantorAlgorithmInput& input, Vantor::AlgorithmType type,
                                 std::string graph, IntParams intParams, FloatParams floatParams,
                                 StringParams stringParams);

    /// Forwards to clearAll of the first cache (storeCache is left alone).
    void clearAll();
    /// Forwards to clear of the first cache.
    void clearAssets(const std::vector<std::string>& assetIds);
    /// Forwards to clearTypes (by name) of the first cache.
    void clearTypes(const std::vector<std::string>& types);
    /// Forwards to clearTypes of the first cache.
    void clearTypes(const std::vector<Vantor::AlgorithmType>& types);

private:
    std::unique_ptr<ExtractorImpl> impl_;
};

}  // namespace VQFeature
