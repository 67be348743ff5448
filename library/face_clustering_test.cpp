#include "library/face_clustering.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

namespace vqfe {
namespace {

using VQFeature::IndexedFace;

std::vector<float> normalised(std::vector<float> v) {
    float norm = 0;
    for (float x : v) norm += x * x;
    for (float& x : v) x /= std::sqrt(norm);
    return v;
}

// A face near centre: the centre plus a little noise in other dimensions.
IndexedFace faceNear(const std::vector<float>& centre, std::mt19937& random, const std::string& asset, float noise,
                     long long person = 0) {
    std::normal_distribution<float> normal(0, noise);
    std::vector<float> v = centre;
    for (float& x : v) x += normal(random);
    IndexedFace face;
    face.assetId = asset;
    face.descriptor = normalised(v);
    face.person = person;
    return face;
}

std::vector<float> axis(size_t i, size_t dimension = 128) {
    std::vector<float> v(dimension, 0.0f);
    v[i] = 1;
    return v;
}

TEST(FaceClusteringTest, ABridgeFaceDoesNotChainTwoPeopleAndNewFacesJoinKnownPersons) {
    std::mt19937 random(7);
    std::vector<IndexedFace> faces;
    for (int i = 0; i < 6; ++i) faces.push_back(faceNear(axis(0), random, "a" + std::to_string(i), 0.01f));
    // B sits at 0.93 from A: two different people, close but apart.
    std::vector<float> b = axis(0);
    b[1] = 0.4f;
    b = normalised(b);
    for (int i = 0; i < 6; ++i) faces.push_back(faceNear(b, random, "b" + std::to_string(i), 0.01f));
    // Halfway: 0.98 from each, over the threshold with every face of both.
    std::vector<float> middle = axis(0);
    middle[1] = 0.2f;
    IndexedFace bridge;
    bridge.assetId = "bridge";
    bridge.descriptor = normalised(middle);
    faces.push_back(bridge);
    faces.push_back({});  // a face without descriptor is left out

    const auto first = clusterFaces(faces);
    ASSERT_EQ(first.newPersons.size(), 2u);
    EXPECT_TRUE(first.joins.empty());
    for (const auto& person : first.newPersons) {
        const char letter = person.front().assetId[0];
        for (const auto& face : person) {
            if (face.assetId != "bridge") {
                EXPECT_EQ(face.assetId[0], letter) << "two people chained";
            }
        }
    }

    // The same faces as known persons 1 and 2, and newcomers: each joins its own person;
    // a stranger becomes a new person; known persons are never merged.
    std::vector<IndexedFace> known;
    for (const auto& face : faces) {
        if (face.descriptor.empty() || face.assetId == "bridge") continue;
        known.push_back(face);
        known.back().person = face.assetId[0] == 'a' ? 1 : 2;
    }
    known.push_back(faceNear(axis(0), random, "new-a", 0.01f));
    known.push_back(faceNear(b, random, "new-b", 0.01f));
    known.push_back(faceNear(axis(5), random, "stranger", 0.01f));
    known.push_back(bridge);
    const auto second = clusterFaces(known);
    std::map<std::string, long long> joined;
    for (const auto& [face, person] : second.joins) joined[face.assetId] = person;
    EXPECT_EQ(joined["new-a"], 1);
    EXPECT_EQ(joined["new-b"], 2);
    ASSERT_EQ(second.newPersons.size(), 1u);
    EXPECT_EQ(second.newPersons[0].size(), 1u);
    EXPECT_EQ(second.newPersons[0][0].assetId, "stranger");
}

TEST(FaceClusteringTest, ManyFacesAreGroupedThroughTheHashedCandidates) {
    // Over the all-pairs limit: 400 persons of 10 faces each.
    std::mt19937 random(11);
    std::normal_distribution<float> normal;
    std::vector<IndexedFace> faces;
    for (int p = 0; p < 400; ++p) {
        std::vector<float> centre(128);
        for (float& x : centre) x = normal(random);
        centre = normalised(centre);
        for (int f = 0; f < 10; ++f) faces.push_back(faceNear(centre, random, std::to_string(p), 0.012f));
    }
    const auto assignment = clusterFaces(faces);
    size_t pure = 0;
    for (const auto& person : assignment.newPersons) {
        bool same = true;
        for (const auto& face : person) same = same && face.assetId == person.front().assetId;
        pure += same;
    }
    EXPECT_EQ(pure, assignment.newPersons.size());  // nobody mixed
    EXPECT_LE(assignment.newPersons.size(), 440u);   // few persons split
}

}  // namespace
}  // namespace vqfe
