// A new Result made from stored bytes: the one way every store hands a result out.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "extractor/result.h"

namespace VQFeature {

/// A Result owning a fresh malloc'd copy of length bytes at data. A null data pointer
/// means "no blob" (kept apart from an empty blob, which gets a one-byte allocation so
/// its pointer is not null). A non-empty stringType makes a string-kind result.
std::shared_ptr<Result> storedResult(const std::string& assetId, const std::string& algorithmKey, int algorithmType,
                                     const std::string& stringType, const void* data, size_t length);

/// A copy of result that owns its own blob: resultLength bytes, of which those past the
/// end of the blob (a resultLength set too large) are zero.
std::shared_ptr<Result> copyResult(const Result& result);

}  // namespace VQFeature
