// A new Result made from stored bytes: the one way every store hands a result out.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "extractor/result.h"

namespace VQFeature {

/// A Result owning a fresh malloc'd copy of length bytes at data. A null data pointer
/// means "no blob" (kept apart from an empty blob, which gets a one-byte allocation so
/// its pointer is not null). A non-empty stringType makes a string-kind result.
std::shared_ptr<Result> storedResult(const std::string& assetId, const std::string& algorithmKey, int algorithmType,
                                     const std::string& stringType, const void* data, size_t length);

/// The bytes of result's blob a store reads: resultLength of them, never past the end of
/// the block (a public field a caller may have set too large). A null data() is no blob.
std::string_view blobBytes(const Result& result);

/// A copy of result that owns its own copy of blobBytes(result).
std::shared_ptr<Result> copyResult(const Result& result);

}  // namespace VQFeature
