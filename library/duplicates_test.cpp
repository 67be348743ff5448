// Duplicate groups from what the index holds: hashes, signatures and sizes written by hand,
// so each case sits just inside or just outside a limit.
#include "library/duplicates.h"

#include <gtest/gtest.h>

#include <map>

namespace vqfe {
namespace {

using Groups = std::vector<std::vector<std::string>>;

// An image named path whose hash is base with the low `flipped` bits inverted.
VQFeature::IndexedImage image(const std::string& path, uint64_t base, int flipped, std::vector<float> signature = {},
                              int width = 400, int height = 300) {
    VQFeature::IndexedImage out;
    out.record.assetId = "id-" + path;
    out.record.path = path;
    out.record.width = width;
    out.record.height = height;
    out.paths = {path};
    out.hash = base ^ (flipped >= 64 ? ~0ull : (1ull << flipped) - 1);
    out.signature = std::move(signature);
    return out;
}

const std::vector<DuplicateLimits> kSame{kSamePhoto};
const std::vector<DuplicateLimits> kSimilar{kSamePhoto, kSimilarPhoto};
const uint64_t kBase = 0x5a5a5a5a5a5a5a5aull;

TEST(DuplicatesTest, CopiesGroupWhateverTheirSignatureSays) {
    // A re-encoded copy whose low class confidences moved (cosine near 0) is still the
    // same photo; one 11 bits away, or of another aspect, is not.
    const std::vector<float> cat{0.8f, 0.1f};
    std::vector<VQFeature::IndexedImage> images{
        image("a.jpg", kBase, 0, {0.01f, 0.0f}), image("a_small.jpg", kBase, kSamePhoto.hashBits, {0.0f, 0.01f}),
        image("b.jpg", ~kBase, 0, cat), image("b_far.jpg", ~kBase, kSamePhoto.hashBits + 1, cat),
        image("c.jpg", 0, 0, cat), image("c_tall.jpg", 0, 0, cat, 300, 400)};
    EXPECT_EQ(findDuplicates(images, kSame), (Groups{{"a.jpg", "a_small.jpg"}}));
    // The copy is also in the similar groups, though its signature contradicts; the other
    // shot of b and the other crop of c are similar.
    EXPECT_EQ(findDuplicates(images, kSimilar),
              (Groups{{"a.jpg", "a_small.jpg"}, {"b.jpg", "b_far.jpg"}, {"c.jpg", "c_tall.jpg"}}));
    // Without the classification the looser limit has no veto: only copies are similar.
    for (auto& each : images) each.signature.clear();
    EXPECT_EQ(findDuplicates(images, kSimilar), (Groups{{"a.jpg", "a_small.jpg"}}));
}

TEST(DuplicatesTest, SimilarNeedsCloseHashesAndNoContradictingSignatures) {
    const std::vector<float> sky{0.9f, 0.1f, 0.0f}, splash{0.0f, 0.05f, 0.8f};
    std::vector<VQFeature::IndexedImage> images{
        image("sky.jpg", kBase, 0, sky), image("sky_pan.jpg", kBase, kSimilarPhoto.hashBits, sky),
        image("splash.jpg", ~kBase, 0, splash), image("sky_like.jpg", ~kBase, 11, sky),
        image("far.jpg", 0x0f0f0f0f0f0f0f0full, 0, sky), image("far_shot.jpg", 0x0f0f0f0f0f0f0f0full,
                                                                 kSimilarPhoto.hashBits + 1, sky)};
    EXPECT_EQ(findDuplicates(images, kSimilar), (Groups{{"sky.jpg", "sky_pan.jpg"}}));
}

TEST(DuplicatesTest, GroupsDoNotChainUnlikePhotos) {
    // a-b and b-c are 8 bits apart, a-c 16: beyond the similar limit, so b joins its
    // closer neighbour and c stays alone; all three only when a-c is alike too.
    const uint64_t a = 0, b = 0xffull, c = 0xffffull;
    auto at = [](const std::string& path, uint64_t hash) { return image(path, hash, 0, {1.0f}); };
    EXPECT_EQ(findDuplicates({at("a", a), at("b", b), at("c", c)}, kSimilar), (Groups{{"a", "b"}}));
    EXPECT_EQ(findDuplicates({at("a", a), at("b", b), at("c", c ^ 0x8000ull ^ 0x4000ull)}, kSimilar),
              (Groups{{"a", "b", "c"}}));
    // Byte-identical files are one image with two paths: a group without any hash.
    VQFeature::IndexedImage twice;
    twice.record.assetId = "same";
    twice.paths = {"x/one.jpg", "y/one.jpg"};
    EXPECT_EQ(findDuplicates({twice, at("a", a)}, kSame), (Groups{{"x/one.jpg", "y/one.jpg"}}));
}

TEST(DuplicatesTest, LargeGroupsHoldOnlyPhotosAlikeTwoByTwo) {
    // 150 photos along a line of hashes (the lowest m bits set, m from 0 to 63): two are
    // alike while their m differ by 10 or less, so all form one chain of neighbours, wider
    // than 64 photos, that must break into groups of mutual copies.
    std::vector<VQFeature::IndexedImage> images;
    for (int k = 0; k < 150; ++k) images.push_back(image("p" + std::to_string(k), 0, k * 64 / 150));
    std::map<std::string, const VQFeature::IndexedImage*> byPath;
    for (const auto& each : images) byPath[each.record.path] = &each;
    size_t grouped = 0;
    for (const auto& group : findDuplicates(images, kSame)) {
        grouped += group.size();
        for (size_t i = 0; i < group.size(); ++i) {
            for (size_t j = i + 1; j < group.size(); ++j) {
                EXPECT_TRUE(alike(*byPath[group[i]], *byPath[group[j]], kSamePhoto)) << group[i] << " " << group[j];
            }
        }
    }
    // Every photo has another at its own m, so none is left alone.
    EXPECT_EQ(grouped, images.size());
}

}  // namespace
}  // namespace vqfe
