#include "cache/stored_result.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "extractor/blob_blocks.h"

namespace VQFeature {

std::shared_ptr<Result> storedResult(const std::string& assetId, const std::string& algorithmKey, int algorithmType,
                                     const std::string& stringType, const void* data, size_t length) {
    void* blob = nullptr;
    if (data != nullptr) {
        blob = std::malloc(length > 0 ? length : 1);
        if (blob == nullptr) throw std::bad_alloc();
        if (length > 0) std::memcpy(blob, data, length);
    }
    // Freed here if making the Result throws; owned by the Result once it exists.
    std::unique_ptr<void, decltype(&std::free)> owned(blob, &std::free);
    const int size = static_cast<int>(length);
    auto result = stringType.empty()
                      ? std::make_shared<Result>(assetId, algorithmKey,
                                                 static_cast<Vantor::AlgorithmType>(algorithmType), blob, size)
                      : std::make_shared<Result>(assetId, algorithmKey, stringType, blob, size);
    owned.release();
    return result;
}

std::string_view blobBytes(const Result& result) {
    if (result.result == nullptr) return {};
    return {static_cast<const char*>(result.result), blobs::readable(result.result, result.resultLength)};
}

std::shared_ptr<Result> copyResult(const Result& result) {
    const std::string_view bytes = blobBytes(result);
    return storedResult(result.assetId, result.algorithmKey, static_cast<int>(result.algorithmType),
                        result.algorithmStringType, bytes.data(), bytes.size());
}

}  // namespace VQFeature
