#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "vantor/cover_util.h"
#include "vantor/graph_texts.h"
#include "vantor/md5.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1) {
        parts.push_back(text.substr(start, end - start));
    }
    parts.push_back(text.substr(start));
    return parts;
}

std::string conf(int kind) { return CoverUtil::getAlgorithmConf(static_cast<AlgorithmType>(kind)); }

// The texts are part of every algorithm key, so a changed byte silently invalidates the
// hosts' caches: each text is pinned by its digest.
TEST(GraphTemplatesTest, EveryTextKeepsItsDigest) {
    const std::map<int, std::string> kinds = {
        {4, "b02be161f2b3d4010043d146038f9278"},   {7, "88b0f45e250bac56e6246738c956c97b"},
        {8, "08693cc468f2b96a365fdce9b33fc9ab"},   {9, "89f3910b4fce149c421824d9ab6cc125"},
        {10, "93b897393f17725fcbca7d58f2b6b1a2"},  {12, "a7cf901a7184e5eea831dcbec6bfac14"},
        {25, "f8c53760b4c128a80f27ef122aa0e1ce"},  {29, "782d95b5d78ff4c21719dbf2b484b0be"},
        {30, "c8e9796311b94302a406b65be83a0ff5"},  {33, "59c86cd3b4aa8224cb079cbc88e135e8"},
        {58, "7b232ba8be5720276361c7b50c5f4684"},  {60, "a592c4c68a93c4e446cf4b6c9d86a586"},
        {71, "a1f0330e12a096b707f39f85470de8e6"},  {95, "17a746ac1580963f200e37b2d0508c0c"},
        {121, "2fab30e9890de3821ca23b52e6f2a8e4"}, {130, "eb800034ab83f5f2876409c025eb0d86"},
    };
    for (int kind = -2; kind <= 140; ++kind) {
        auto pinned = kinds.find(kind);
        EXPECT_EQ(md5(conf(kind)), pinned == kinds.end() ? md5("") : pinned->second) << "kind " << kind;
    }
    EXPECT_EQ(md5(VantorGraph::gradingGraph()), "4f055237d0c44be300b320ed3dc4a685");
    EXPECT_EQ(md5(VantorGraph::recognitionGraph()), "3d884b6788c09fe5482c64b7bfa944dd");
    EXPECT_EQ(md5(CoverUtil::getDefaultModels()), "e65eeff7d540d97410ab863dbf9ff8e2");
}

TEST(GraphTemplatesTest, PetFaceKindsDifferInTheImageModeOnly) {
    const std::string cat = conf(71);
    const std::string dog = conf(95);
    ASSERT_EQ(cat.size(), dog.size());
    std::vector<size_t> differences;
    for (size_t i = 0; i < cat.size(); ++i) {
        if (cat[i] != dog[i]) {
            differences.push_back(i);
        }
    }
    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(cat.substr(differences[0] - 32, 33), "\"face_pet_detect_use_imagemode\":0");
}

TEST(GraphTemplatesTest, ClassificationGraphAndModelListShapes) {
    auto labels = split(GraphTexts::kClassLabels208, ',');
    ASSERT_EQ(labels.size(), 208u);
    EXPECT_EQ(split(GraphTexts::kClassThresholds208, ',').size(), 208u);
    EXPECT_EQ(labels[17], "Swimming_c2");
    EXPECT_EQ(labels[142], "Swimming_c2");
    const std::string text = conf(121);
    EXPECT_NE(text.find(std::string("\"class_labels\":\"") + GraphTexts::kClassLabels208 + "\""), std::string::npos);
    EXPECT_NE(text.find("\"num_classes\":208"), std::string::npos);

    auto names = split(CoverUtil::getDefaultModels(), ',');
    ASSERT_EQ(names.size(), 24u);
    EXPECT_EQ(names[14], "qm_sim");
    EXPECT_EQ(names[23], "qm_sim");
}

TEST(CoverUtilBlobTest, CopiesIntoAnArrayAndReleasesWithFree) {
    char source[] = {1, 2, 3, 4};
    char* copy = CoverUtil::getMemoryAddress(source, sizeof source);
    EXPECT_EQ(std::memcmp(copy, source, sizeof source), 0);
    delete[] copy;
    char* empty = CoverUtil::getMemoryAddress(nullptr, 3);
    EXPECT_EQ(std::vector<char>(empty, empty + 3), std::vector<char>(3, 0));
    delete[] empty;

    CoverUtil::releaseObject(static_cast<char*>(std::malloc(8)), 999);  // size ignored
    CoverUtil::releaseObject(nullptr, 0);
}

}  // namespace
}  // namespace VQFeature
