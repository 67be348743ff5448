// Networks through the SDK: damaged or foreign model bytes are INVALID_MODEL at graph load,
// a reloaded graph reads no network again, and images of extreme shapes go through every
// network.
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "Korvid/Diagnostics.h"
#include "testing/builtin_templates.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

std::string modelBytes(const std::string& name) {
    std::ifstream in(std::string(KORVID_TEST_MODEL_DIR) + "/" + name + ".model", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(Networks, DamagedOrForeignModelsAreInvalidModel) {
    const std::string face = modelBytes("qm_face");
    ASSERT_GT(face.size(), 100000u);
    std::string scrambled = face;
    for (size_t i = 16; i < 4096; ++i) scrambled[i] = static_cast<char>(scrambled[i] * 31 + 7);
    const std::string candidates[] = {
        face.substr(0, face.size() / 2), face.substr(0, face.size() - 1), face.substr(0, 64), scrambled,
        modelBytes("qm_skeleton"),   // a network with other outputs
        modelBytes("qm_petface"),    // a cascade
    };
    SystemHarness h;
    for (const std::string& content : candidates) {
        h.finder.overrides = {{"qm_face", content}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(4)), INVALID_MODEL) << content.size() << " bytes";
        EXPECT_EQ(h.finder.outstanding, 0);
    }
    h.finder.overrides.clear();
    EXPECT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
}

TEST(Networks, AReloadedGraphReadsNoNetworkAgain) {
    SystemHarness h;
    const long before = Korvid::networksRead();
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);  // detector and mesh
    EXPECT_EQ(Korvid::networksRead(), before + 2);
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    ASSERT_EQ(h->loadGraph(builtinTemplate(8)), NO_ERROR);  // the same two in another graph
    EXPECT_EQ(Korvid::networksRead(), before + 2);
    // A graph without them lets them go; the next one that needs them reads them again.
    ASSERT_EQ(h->loadGraph(builtinTemplate(7)), NO_ERROR);
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    EXPECT_EQ(Korvid::networksRead(), before + 5);
    // The same size and the same ends, one weight different: another network, read anew.
    std::string changed = modelBytes("qm_face");
    changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
    h.finder.overrides = {{"qm_face", changed}};
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    EXPECT_EQ(Korvid::networksRead(), before + 6);
}

TEST(Networks, ExtremeImageShapesFindNothing) {
    SystemHarness h;
    for (cv::Size size : {cv::Size(1, 1), cv::Size(16384, 1), cv::Size(1, 16384), cv::Size(3, 9000)}) {
        h.input = rgbaInput(cv::Mat(size, CV_8UC3, cv::Scalar(90, 120, 200)));
        for (int kind : {4, 7}) {
            ASSERT_EQ(h->loadGraph(builtinTemplate(kind)), NO_ERROR);
            ASSERT_EQ(h->execute(h.input->buffer, static_cast<AlgorithmType>(kind)), NO_ERROR) << size;
        }
        EXPECT_TRUE(static_cast<SkeletonBuffer*>(h->getResult(AlgorithmType::Skeleton))->infos.empty()) << size;
        ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
        ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::Face), NO_ERROR);
        EXPECT_TRUE(static_cast<FaceBuffer*>(h->getResult(AlgorithmType::Face))->faces.empty()) << size;
    }
}

}  // namespace
}  // namespace kv::testing
