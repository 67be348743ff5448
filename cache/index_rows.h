// The index rows one stored result gives: faces from the face-verify kind, the face count,
// the perceptual hash from the similarity kind, a class signature and labels from the
// scene and classification kinds. Each part is set only when the result's kind has it;
// a set part replaces what the index held for that image (and, for labels, that source).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cache/store_index.h"
#include "extractor/result.h"

namespace VQFeature {

struct IndexRows {
    std::optional<std::vector<IndexedFace>> faces;  // with descriptors, person 0
    std::optional<int> faceCount;
    std::optional<uint64_t> hash;
    std::optional<std::vector<float>> signature;
    std::string labelSource;                         // the kind's number or output-node name
    std::optional<std::vector<IndexedLabel>> labels; // satisfied labels of labelSource

    bool empty() const { return !faces && !faceCount && !hash && !signature && !labels; }
};

/// Rows of one result; empty for kinds the index does not use, no blob or a blob that
/// does not decode.
IndexRows indexRowsOf(const Result& result);

/// Descriptors travel as little-endian float32 bytes.
std::string floatBytes(const std::vector<float>& values);
std::vector<float> floatsOf(const std::string& bytes);

}  // namespace VQFeature
