// Duplicate photos across a store: the same picture resized, recompressed, lightly
// cropped or brightened, found by the perceptual hash (a 64-bit DCT hash: few bits
// differ between such copies) and the aspect ratio. With `similar`, also other shots of
// one scene (a little zoomed or panned), with a looser hash limit, any aspect, and the
// class signatures (the 208 class confidences of the classification) as a veto: photos
// the classifier sees as wholly different things are not one scene.
#pragma once

#include <string>
#include <vector>

#include "cache/store_index.h"

namespace vqfe {

struct DuplicateLimits {
    int hashBits;           // at most this many differing hash bits
    float signature;        // at least this cosine of the class signatures, which both need;
                            // <= 0: not compared
    float aspect;           // at most this relative difference of width / height; < 0: any
};

// Measured on the 89 quality photos at 512 px (docs/quality.md, "Duplicates and similar
// photos"): copies (256 px, JPEG quality 40, brightened) differ by 0 to 11 bits, 266 of
// 267 by 8 or fewer; the 3,915 pairs of distinct photos by 11 bits and more. The class
// signature is no check for copies: a quarter of them have a cosine under 0.9 (low
// confidences move freely), so same-photo does not compare it. A 10 % zoom or 12 % pan
// differs by 2 to 33 bits; at 14 bits one pair of distinct photos remains (two flat
// images, 11 bits), and its signatures contradict (cosine 0.001), as do those of every
// distinct pair up to 16 bits.
constexpr DuplicateLimits kSamePhoto{10, 0.0f, 0.12f};
constexpr DuplicateLimits kSimilarPhoto{14, 0.05f, -1.0f};

// Groups of two or more paths (asset ids where no path is known) of the same photo, each
// sorted, the groups by their first member. Byte-identical files are always one group.
// Two photos are alike when they pass any of limits (similar photos: kSamePhoto and
// kSimilarPhoto, so that a copy whose signature moved is still one). Every two photos of
// a group are alike: groups grow from the closest pairs and two
// groups join only when all their photos are alike, so no chain of neighbours puts two
// unlike photos together.
std::vector<std::vector<std::string>> findDuplicates(const std::vector<VQFeature::IndexedImage>& images,
                                                     const std::vector<DuplicateLimits>& limits);

// True when two images pass limits (both must have a hash).
bool alike(const VQFeature::IndexedImage& a, const VQFeature::IndexedImage& b, const DuplicateLimits& limits);

// The name an image goes by in answers: its path, or its asset id when no path is known.
std::string displayPath(const VQFeature::ImageRecord& image);

}  // namespace vqfe
