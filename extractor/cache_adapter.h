/// CacheAdapter: the result cache interface the Extractor consults and fills.
///
/// Results are keyed by asset id + algorithm key (flat concatenation, no separator).
/// Hosts may implement it (also from Java); MemoryCache is the library's own.
/// Implementations decide their own thread-safety; the engine does not lock around them.
/// A Java implementation: an exception thrown by query or a clear reaches the caller of
/// the Extractor call unchanged (the call stops; the Extractor stays usable). One thrown
/// by save while a run stores a new result does not stop the call: the error pair gets
/// 500, "Vantor Throw Exception:" and its message, and the Result is still returned (a
/// MultiResult keeps only the items collected before the failing save).
/// query(Input) returns a list, never null. A method the engine calls that the class
/// does not override throws RuntimeException ("Attempted to invoke pure virtual method").
/// The order of the virtual functions is the binding's slot order; do not reorder.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Vantor/AlgorithmType.h"
#include "extractor/input.h"
#include "extractor/result.h"

namespace VQFeature {

class CacheAdapter {
public:
    virtual ~CacheAdapter() = default;
    /// The cached results of the input's resources under the input's key, in resource
    /// order; misses are skipped.
    virtual std::vector<std::shared_ptr<Result>> query(const std::shared_ptr<Input>& input) = 0;
    /// The result stored under assetId + algorithmKey, or null.
    virtual std::shared_ptr<Result> query(const std::string& assetId, const std::string& algorithmKey) = 0;
    /// Stores each result under its asset id + algorithm key.
    virtual void save(const std::vector<std::shared_ptr<Result>>& results) = 0;
    /// Stores the result under its asset id + algorithm key, replacing an earlier one.
    virtual void save(const std::shared_ptr<Result>& result) = 0;
    /// Forgets the results of these assets.
    virtual void clear(const std::vector<std::string>& assetIds) = 0;
    /// Forgets the results of these kinds.
    virtual void clearTypes(const std::vector<Vantor::AlgorithmType>& types) = 0;
    /// Forgets the results of these string kinds.
    virtual void clearTypes(const std::vector<std::string>& types) = 0;
    /// Forgets everything.
    virtual void clearAll() = 0;
};

}  // namespace VQFeature
