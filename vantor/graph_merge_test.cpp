#include "vantor/graph_merge.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "vantor/cover_util.h"

namespace VQFeature {
namespace {

// Two graphs sharing an identical source node and a same-named node that differs.
const char* const kFaces =
    R"({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},)"
    R"({"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":5,"face_detect_mode":0x40000,},}}}],)"
    R"("links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0}]})";
const char* const kVerify =
    R"({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},)"
    R"({"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":10}}}},)"
    R"({"name":"face_verify_0","type":"face_verify"}],)"
    R"("links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},)"
    R"({"fromNode":"face_0","fromIndex":0,"toNode":"face_verify_0","toIndex":1}]})";

TEST(GraphMergeTest, SharesIdenticalNodesAndRenamesClashingOnesWithTheirLinks) {
    const std::string merged = mergeGraphs({kFaces, kVerify});
    EXPECT_EQ(merged,
              R"({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},)"
              R"({"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":5,"face_detect_mode":0x40000,},}}},)"
              R"({"name":"face_0_1","type":"face","config":{"keymaps":{"intParam":{"face_max_num":10}}}},)"
              R"({"name":"face_verify_0","type":"face_verify"}],)"
              R"("links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},)"
              R"({"fromNode":"input_0","fromIndex":0,"toNode":"face_0_1","toIndex":0},)"
              R"({"fromNode":"face_0_1","fromIndex":0,"toNode":"face_verify_0","toIndex":1}]})");
    EXPECT_EQ(mergeGraphs({kFaces, kFaces}), mergeGraphs({kFaces}));
}

TEST(GraphMergeTest, ANodeFedByARenamedNodeIsNotShared) {
    // Same verify node in both graphs, but fed by different face nodes: sharing it would
    // link its slot 1 twice.
    const std::string verifyOther = renameNode(kVerify, "input_0", "input_0");  // same text
    const std::string faces10 =
        R"({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},)"
        R"({"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":3}}}},)"
        R"({"name":"face_verify_0","type":"face_verify"}],)"
        R"("links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},)"
        R"({"fromNode":"face_0","fromIndex":0,"toNode":"face_verify_0","toIndex":1}]})";
    const std::string merged = mergeGraphs({verifyOther, faces10});
    EXPECT_NE(merged.find(R"({"fromNode":"face_0_1","fromIndex":0,"toNode":"face_verify_0_1","toIndex":1})"),
              std::string::npos)
        << merged;
    EXPECT_EQ(merged.find(R"({"fromNode":"face_0_1","fromIndex":0,"toNode":"face_verify_0","toIndex":1})"),
              std::string::npos);
}

TEST(GraphMergeTest, RenamesANodeEverywhereAndRejectsWhatIsNotAGraph) {
    const std::string renamed = renameNode(kVerify, "face_0", "detector");
    EXPECT_EQ(renamed.find("\"face_0\""), std::string::npos);
    EXPECT_NE(renamed.find(R"({"fromNode":"detector","fromIndex":0,"toNode":"face_verify_0","toIndex":1})"),
              std::string::npos);
    // An escaped quote inside a string neither ends it nor goes missing.
    const std::string escaped = R"({"nodes":[{"name":"n","labels":"a\",b"}],"links":[]})";
    EXPECT_EQ(renameNode(escaped, "n", "m"), R"({"version":"1.0","mode":2,"nodes":[{"name":"m","labels":"a\",b"}],"links":[]})");
    EXPECT_THROW(mergeGraphs({"not json"}), std::invalid_argument);
    EXPECT_THROW(mergeGraphs({R"({"nodes":[]})"}), std::invalid_argument);  // no links
    EXPECT_THROW(renameNode(R"({"nodes":[{"name":1}],"links":[]})", "a", "b"), std::invalid_argument);
}

TEST(SeveralKindGraphTest, BuiltInGraphsOfEveryKindMergeIntoOneAndUnknownKindsAreNamed) {
    using Vantor::AlgorithmType;
    // One kind: its template unchanged; FaceAttribute comes from the expression graph.
    EXPECT_EQ(severalKindGraph({AlgorithmType::Face}, {}), CoverUtil::getAlgorithmConf(AlgorithmType::Face));
    EXPECT_EQ(severalKindGraph({AlgorithmType::FaceAttribute, AlgorithmType::FaceExpression}, {}),
              CoverUtil::getAlgorithmConf(AlgorithmType::FaceExpression));
    // A named output: the classification graph with its post-processor renamed.
    const std::string c300 = severalKindGraph({}, {"ClassificationPostProcess_c300"});
    EXPECT_NE(c300.find(R"("name":"ClassificationPostProcess_c300")"), std::string::npos);
    EXPECT_EQ(c300.find(R"("name":"ClassificationPostProcess")"), std::string::npos);

    // Every kind with a graph at once: one graph holding every kind's nodes.
    std::vector<AlgorithmType> all;
    for (int number : {4, 7, 8, 9, 10, 12, 25, 29, 30, 33, 46, 58, 60, 71, 95, 121, 130}) {
        all.push_back(static_cast<AlgorithmType>(number));
    }
    const std::string merged =
        severalKindGraph(all, {"ClassificationPostProcess_c300", "ClassificationPostProcess_relation"});
    EXPECT_NE(merged.find("ClassificationPostProcess_relation"), std::string::npos);
    EXPECT_EQ(renameNode(merged, "x", "y"), merged);  // still a graph of the dialect

    const auto message = [](auto call) {
        try {
            call();
        } catch (const std::invalid_argument& e) {
            return std::string(e.what());
        }
        return std::string("no exception");
    };
    EXPECT_EQ(message([] { severalKindGraph({AlgorithmType::AllNodes}, {}); }),
              "no built-in graph produces algorithm kind -1");
    EXPECT_EQ(message([] { severalKindGraph({static_cast<AlgorithmType>(5)}, {}); }),
              "no built-in graph produces algorithm kind 5");
    EXPECT_EQ(message([] { severalKindGraph({}, {"ClassificationPostProcess_clip128"}); }),
              "no built-in graph produces the output \"ClassificationPostProcess_clip128\"");
    EXPECT_EQ(message([] { severalKindGraph({}, {}); }), "no algorithm kind asked for");
}

}  // namespace
}  // namespace VQFeature
