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

std::shared_ptr<Result> copyResult(const Result& result) {
    // resultLength is a public field a caller may have set beyond the blob: the copy
    // stops where the blob ends.
    std::string bytes;
    const unsigned long length = blobs::readable(result.result, result.resultLength);
    if (result.result != nullptr && length > 0) {
        bytes.assign(length, '\0');
        const_cast<Result&>(result).memcpyStructResult(bytes.data(), bytes.size());
    }
    return storedResult(result.assetId, result.algorithmKey, static_cast<int>(result.algorithmType),
                        result.algorithmStringType, result.result != nullptr ? bytes.data() : nullptr, bytes.size());
}

}  // namespace VQFeature
