// Duplicate photos across a store: the same picture resized, recompressed, lightly
// cropped or brightened, found by the perceptual hash (a 64-bit DCT hash: few bits
// differ between such copies) and confirmed by a finer check, the class signature (the
// 208 class confidences of the classification, nearly equal for copies) and the aspect
// ratio. With `similar`, different shots of one scene too (looser limits, any aspect).
#pragma once

#include <string>
#include <vector>

#include "cache/store_index.h"

namespace vqfe {

struct DuplicateLimits {
    int hashBits;           // at most this many differing hash bits
    float signature;        // at least this cosine similarity of the class signatures
    float aspect;           // at most this relative difference of width / height; < 0: any
};

// Copies of the test photos differ by 0 to 9 bits with signatures of 0.95 to 0.99;
// distinct photos by 16 bits and more.
constexpr DuplicateLimits kSamePhoto{10, 0.90f, 0.12f};
constexpr DuplicateLimits kSimilarPhoto{22, 0.80f, -1.0f};

// Groups of two or more paths (asset ids where no path is known) of the same photo, each
// sorted, the groups by their first member. Byte-identical files are always one group.
std::vector<std::vector<std::string>> findDuplicates(const std::vector<VQFeature::IndexedImage>& images,
                                                     const DuplicateLimits& limits);

// True when two images pass limits (both must have a hash).
bool alike(const VQFeature::IndexedImage& a, const VQFeature::IndexedImage& b, const DuplicateLimits& limits);

// The name an image goes by in answers: its path, or its asset id when no path is known.
std::string displayPath(const VQFeature::ImageRecord& image);

}  // namespace vqfe
