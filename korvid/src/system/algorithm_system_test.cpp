// The open algorithm system: lifecycle, model delivery through the resource finder,
// execute codes, faults, parameter overrides and the operations the engine never calls.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "Korvid/Diagnostics.h"
#include "testing/builtin_templates.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

std::vector<std::string> sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
}

TEST(AlgorithmSystem, RequestsEveryNamedModelAndReleasesItOnceLoaded) {
    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(10)), NO_ERROR) << h->getLastErrorMessage();
    EXPECT_EQ(sorted(h.finder.requested), sorted({"qm_face", "qm_face_extra", "qm_faceverify", "qm_bigbrother"}));
    // The nodes keep what they read; the blocks went back as each node loaded.
    EXPECT_EQ(sorted(h.finder.released), sorted(h.finder.requested));
    EXPECT_EQ(h.finder.outstanding, 0);
    ASSERT_EQ(h.run(builtinTemplate(10), "astronaut.jpg", 10), NO_ERROR);
    h->releaseGraph();  // nothing left to release
    EXPECT_EQ(h.finder.outstanding, 0);
}

TEST(AlgorithmSystem, NodesLoadTheirOwnDefaultModelsWhereTheGraphNamesNone) {
    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(25)), NO_ERROR) << h->getLastErrorMessage();
    EXPECT_EQ(h.finder.requested, std::vector<std::string>{"qm_c1_small"});
    ASSERT_EQ(h->loadGraph(builtinTemplate(58)), NO_ERROR);
    ASSERT_EQ(h->loadGraph(builtinTemplate(12)), NO_ERROR);
    h->releaseGraph();
    EXPECT_EQ(h.finder.requested, (std::vector<std::string>{"qm_c1_small", "qm_c1_det", "qm_matting"}));
    EXPECT_EQ(h.finder.released, h.finder.requested);
    EXPECT_EQ(h.finder.outstanding, 0);
    EXPECT_EQ(h.finder.events, (std::vector<std::string>{"0 qm_c1_small", "2 qm_c1_small", "0 qm_c1_det", "2 qm_c1_det",
                                                         "0 qm_matting", "2 qm_matting"}));

    // Defaults the finder cannot deliver: the nodes run without them; nothing is reported.
    h.finder.events.clear();
    h.finder.missing = {"qm_matting", "qm_c1_small"};
    EXPECT_EQ(h.run(builtinTemplate(12), "astronaut.jpg", 12), NO_ERROR);
    EXPECT_EQ(h.run(builtinTemplate(25), "astronaut.jpg", 25), NO_ERROR);
    EXPECT_EQ(h.finder.outstanding, 0);
    EXPECT_TRUE(h.finder.events.empty());
    // A key the graph names is loaded as named, never replaced by the default.
    h.finder.requested.clear();
    const std::string named = R"({"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"m","type":"matting",)"
                              R"("config":{"keyMaps":{"stringParam":{"matting_model_key":"qm_c1_det"}}}}],)"
                              R"("links":[{"fromNode":"input_0","fromIndex":0,"toNode":"m","toIndex":0}]})";
    EXPECT_EQ(h->loadGraph(named), INVALID_MODEL);  // a scene model is no matting model
    EXPECT_EQ(h.finder.requested, std::vector<std::string>{"qm_c1_det"});
}

TEST(AlgorithmSystem, UnusableModelsFailWithInvalidModelAndReleaseWhatWasTaken) {
    SystemHarness h;
    h.finder.missing = {"qm_faceverify"};
    EXPECT_EQ(h->loadGraph(builtinTemplate(8)), INVALID_MODEL);
    EXPECT_EQ(h.finder.outstanding, 0);
    EXPECT_FALSE(h->hasGraph());
    // An execute after a failed load reports that load's code.
    h.input = rgbaInput(loadTestImage("astronaut.jpg"));
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::FaceVerify), INVALID_MODEL);
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::AllNodes), INVALID_MODEL);

    for (const char* content : {"", "garbage", "<opencv_storage></opencv_storage>",
                                "%YAML:1.0\n---\nformat: \"korvid-params\"\nkind: \"similarity\"\n"}) {
        h.finder.missing.clear();
        h.finder.overrides = {{"qm_face", content}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(4)), INVALID_MODEL) << content;
        EXPECT_EQ(h.finder.outstanding, 0);
    }
    h.finder.overrides = {{"qm_sim", "%YAML:1.0\n---\nformat: \"korvid-params\"\nkind: \"similarity\"\nhash: \"md5\"\n"}};
    EXPECT_EQ(h->loadGraph(builtinTemplate(29)), INVALID_MODEL);
    // A graph whose node lacks its required model key is malformed.
    EXPECT_EQ(h->loadGraph(R"({"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"f","type":"face"}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"f","toIndex":0}]})"),
              INVALID_GRAPH);
}

// Two face nodes naming the same models, the second one's own detector differently
// tuned: a merged graph of several kinds looks like this.
std::string twoFaceNodes() {
    const std::string face = R"("config":{"keymaps":{"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}})";
    return R"({"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"a","type":"face",)" + face +
           R"(,{"name":"b","type":"face",)" + face +
           R"(],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"a","toIndex":0},)"
           R"({"fromNode":"input_0","fromIndex":0,"toNode":"b","toIndex":0}]})";
}

TEST(AlgorithmSystem, ModelsSharedByNodesAreReadOncePerLoadAndReadAgainOnTheNext) {
    SystemHarness h;
    ASSERT_EQ(h->loadGraph(twoFaceNodes()), NO_ERROR) << h->getLastErrorMessage();
    EXPECT_EQ(sorted(h.finder.requested), sorted({"qm_face", "qm_face_extra"}));
    EXPECT_EQ(sorted(h.finder.released), sorted(h.finder.requested));
    EXPECT_EQ(sorted(h.finder.events), sorted({"0 qm_face", "2 qm_face", "0 qm_face_extra", "2 qm_face_extra"}));
    EXPECT_EQ(h.finder.outstanding, 0);
    ASSERT_EQ(h.run(twoFaceNodes(), "astronaut.jpg", 4), NO_ERROR);
    EXPECT_EQ(h.finder.requested.size(), 4u);  // a later load asks the finder again

    // The networks of the first loads are cached by content: bytes that changed since are
    // read as what they are now, and damaged ones fail as on a first load.
    h.finder.overrides = {{"qm_face", "garbage"}};
    EXPECT_EQ(h->loadGraph(twoFaceNodes()), INVALID_MODEL);
    EXPECT_EQ(h.finder.outstanding, 0);
    EXPECT_FALSE(h->hasGraph());
    h.finder.overrides.clear();
    EXPECT_EQ(h->loadGraph(twoFaceNodes()), NO_ERROR);
    h->releaseGraph();
    EXPECT_EQ(h.finder.outstanding, 0);
}

TEST(AlgorithmSystem, LifecycleCodes) {
    VantorAlgorithmSystem* s = VantorAlgorithmFactory::CreateAlgorithmSystem();
    auto input = rgbaInput(loadTestImage("coffee.jpg"));
    EXPECT_FALSE(s->isInitialized());
    EXPECT_EQ(s->loadGraph(builtinTemplate(60)), NOT_INIT);
    EXPECT_EQ(s->execute(input->buffer, AlgorithmType::SaliencySeg), NOT_INIT);
    VantorResourceFinderConfig none;
    EXPECT_EQ(s->setResourceFinder(none), NOT_INIT);
    char* config = static_cast<char*>(std::malloc(2));
    std::memcpy(config, "{}", 2);
    ASSERT_EQ(s->initFromMemory(false, config, 2), NO_ERROR);
    EXPECT_EQ(s->setResourceFinder(none), INVALID_RES_FINDER);
    EXPECT_EQ(s->loadGraph(builtinTemplate(60)), INVALID_RES_FINDER);  // names a model, no finder
    EXPECT_EQ(s->execute(input->buffer, AlgorithmType::Matting), INVALID_RES_FINDER);
    EXPECT_EQ(s->loadGraph(builtinTemplate(12)), NO_ERROR);  // no model needed
    EXPECT_EQ(s->execute(input->buffer, AlgorithmType::Matting), NO_ERROR);
    EXPECT_NE(s->getResult(AlgorithmType::Matting), nullptr);
    s->releaseGraph();
    EXPECT_EQ(s->execute(input->buffer, AlgorithmType::Matting), INVALID_GRAPH);
    EXPECT_EQ(s->getResult(AlgorithmType::Matting), nullptr);
    s->uninit();
    EXPECT_FALSE(s->isInitialized());
    VantorAlgorithmFactory::DestroyAlgorithmSystem(s);
}

TEST(AlgorithmSystem, ExecuteCodesAndResultFetching) {
    SystemHarness h;
    ASSERT_EQ(h.run(builtinTemplate(30), "astronaut.jpg", 30), NO_ERROR) << h->getLastErrorMessage();
    EXPECT_NE(h->getResult(AlgorithmType::AfterEffect), nullptr);
    EXPECT_NE(h->getResult(AlgorithmType::Face), nullptr);  // the face node ran as a dependency
    EXPECT_EQ(h->getResult(AlgorithmType::SceneRecog), nullptr);
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::SceneRecog), INVALID_TYPE);
    EXPECT_EQ(h->getResult(AlgorithmType::AfterEffect), nullptr);  // results go with the next execute
    EXPECT_EQ(h->getResultByName("after_effect_0"), nullptr);

    ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::AllNodes), NO_ERROR);
    EXPECT_EQ(h->getResultByName("after_effect_0"), h->getResult(AlgorithmType::AfterEffect));
    EXPECT_EQ(h->getResultByName("face_0"), h->getResult(AlgorithmType::Face));
    EXPECT_EQ(h->getResultByName("input_0"), nullptr);
    EXPECT_EQ(h->getResultByName("nobody"), nullptr);
    h->clearResults();
    EXPECT_EQ(h->getResult(AlgorithmType::Face), nullptr);

    // The rest of the operation table.
    EXPECT_EQ(h->getNodeCount(), 3);
    EXPECT_TRUE(h->producesType(AlgorithmType::Face));
    EXPECT_TRUE(h->producesType(AlgorithmType::AllNodes));
    EXPECT_FALSE(h->producesType(AlgorithmType::Matting));
    EXPECT_EQ(h->getExecuteCount(), 3u);
    EXPECT_STREQ(h->getVersion(), "korvid-open 1.0");
    EXPECT_EQ(h->getLastErrorMessage(), "");
}

TEST(AlgorithmSystem, FaultsApplyToTheirTypeBeforeAnyCheck) {
    SystemHarness h(R"({"faults":{"4":{"execute":7},"29":{"result":null},"33":{"throw":"boom"},"58":{"execute":0}}})");
    h.input = rgbaInput(loadTestImage("coffee.jpg"));
    // No graph is loaded: the fault still comes first.
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::Face), INVALID_NODE);
    ASSERT_EQ(h->loadGraph(builtinTemplate(29)), NO_ERROR);
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::Similarity), NO_ERROR);
    EXPECT_EQ(h->getResult(AlgorithmType::Similarity), nullptr);
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::AllNodes), NO_ERROR);  // whole-graph runs are never faulted
    EXPECT_NE(h->getResult(AlgorithmType::Similarity), nullptr);
    ASSERT_EQ(h->loadGraph(builtinTemplate(33)), NO_ERROR);
    try {
        h->execute(h.input->buffer, AlgorithmType::PornCls);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "boom");
    }
    EXPECT_EQ(Korvid::currentExecutes(), 0);  // the counter unwinds with the exception
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::SceneRecogV3), NO_ERROR);
    EXPECT_EQ(h->getResult(AlgorithmType::SceneRecogV3), nullptr);
}

TEST(AlgorithmSystem, ParameterOverridesReachTheProducingNodes) {
    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(71)), NO_ERROR);
    EXPECT_TRUE(h->producesType(AlgorithmType::PetMatting));
    EXPECT_EQ(h->setIntParams(AlgorithmType::PetMatting, {{"face_pet_detect_use_imagemode", 1}}), NO_ERROR);
    EXPECT_TRUE(h->producesType(AlgorithmType::FacePetDetect));
    EXPECT_FALSE(h->producesType(AlgorithmType::PetMatting));
    EXPECT_EQ(h->setIntParams(AlgorithmType::Matting, {{"x", 1}}), INVALID_TYPE);
    EXPECT_EQ(h->setIntParams(AlgorithmType::Matting, {}), NO_ERROR);

    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    EXPECT_EQ(h->setIntParams(AlgorithmType::Face, {{"face_max_num", 0}}), NO_ERROR);
    h.input = rgbaInput(loadTestImage("astronaut.jpg"));
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::Face), INVALID_NODE);
    EXPECT_EQ(h->setIntParams(AlgorithmType::AllNodes, {{"face_max_num", 1}}), NO_ERROR);
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::Face), NO_ERROR);

    ASSERT_EQ(h->loadGraph(builtinTemplate(25)), NO_ERROR);
    EXPECT_EQ(h->setStringParams(AlgorithmType::SceneRecog, {{"scene_labels", "sky,night"}}), NO_ERROR);
    EXPECT_EQ(h->setFloatParams(AlgorithmType::SceneRecog, {{"unused", 1.f}}), NO_ERROR);
    ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::SceneRecog), NO_ERROR);
    auto* scene = static_cast<SceneRecogBuffer*>(h->getResult(AlgorithmType::SceneRecog));
    ASSERT_EQ(scene->infos.size(), 2u);
    EXPECT_EQ(scene->infos[1]->name, "night");
    EXPECT_EQ(h->setStringParams(AlgorithmType::SceneRecog, {{"scene_labels", "sky,unicorn"}}), NO_ERROR);
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::SceneRecog), INVALID_NODE);
    h->releaseGraph();
    EXPECT_EQ(h->setIntParams(AlgorithmType::Face, {{"face_max_num", 1}}), INVALID_GRAPH);
}

TEST(AlgorithmSystem, CountsConcurrentExecutes) {
    SystemHarness h;
    Korvid::resetExecuteCounters();
    EXPECT_EQ(Korvid::maxConcurrentExecutes(), 0);
    ASSERT_EQ(h.run(builtinTemplate(29), "coffee.jpg", 29), NO_ERROR);
    ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::Similarity), NO_ERROR);
    EXPECT_EQ(Korvid::maxConcurrentExecutes(), 1);
    EXPECT_EQ(Korvid::currentExecutes(), 0);
}

}  // namespace
}  // namespace kv::testing
