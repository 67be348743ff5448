// Bundle parts that name another model's part: the form of a reference, and through the SDK
// a named body network fetched on first need, kept for the graph, taken from the graph's own
// load when it holds that model, and failing safe when the named model is missing, damaged
// or foreign.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Korvid/Diagnostics.h"
#include "Vantor/SceneBuffers.h"
#include "model/error.h"
#include "model/model_reference.h"
#include "testing/builtin_templates.h"
#include "testing/file_bytes.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

std::optional<ModelReference> referenceIn(const std::string& bytes) {
    return modelReference(ModelBlob{"bundle/part", reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), nullptr});
}

TEST(ModelReference, OnlyAWellFormedReferenceNamesAModel) {
    const auto ref = referenceIn("korvid-ref\nqm_skeleton/single\n");
    ASSERT_TRUE(ref);
    EXPECT_EQ(ref->model, "qm_skeleton");
    EXPECT_EQ(ref->part, "single");
    EXPECT_EQ(ref->text(), "qm_skeleton/single");
    EXPECT_FALSE(referenceIn("\x08\x07korvid-ref\n"));  // bytes of their own (an ONNX file)
    EXPECT_FALSE(referenceIn(""));
    for (const std::string& bad : std::vector<std::string>{"korvid-ref\n", "korvid-ref\nqm_skeleton/single", "korvid-ref\nqm_skeleton\n",
                                   "korvid-ref\n/single\n", "korvid-ref\nqm_skeleton/\n", "korvid-ref\nqm_skeleton/single\nmore\n",
                                   "korvid-ref\n../etc/passwd\n", "korvid-ref\nqm skeleton/single\n", "korvid-ref\na/b/c\n",
                                   "korvid-ref\n" + std::string(129, 'a') + "/single\n", std::string("korvid-ref\nqm\0x/single\n", 23)}) {
        try {
            referenceIn(bad);
            ADD_FAILURE() << bad;
        } catch (const Error& e) {
            EXPECT_EQ(e.code, INVALID_MODEL) << bad;
        }
    }
}

std::string modelBytes(const std::string& name) {
    return vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/" + name + ".model");
}

std::string part(const std::string& name, const std::string& bytes) { return name + " " + std::to_string(bytes.size()) + "\n" + bytes; }

long fetches(const RecordingFinder& finder, const std::string& name) {
    return std::count(finder.requested.begin(), finder.requested.end(), name);
}

// The "people" label of the scene kind on photo, run on the loaded graph.
const SceneRecogInfo& people(SystemHarness& h, const std::string& photo) {
    h.input = rgbaInput(loadTestImage(photo));
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::SceneRecog), NO_ERROR) << h->getLastErrorMessage();
    const auto* scene = static_cast<SceneRecogBuffer*>(h->getResult(AlgorithmType::SceneRecog));
    EXPECT_EQ(scene->infos[7]->name, "people");
    return *scene->infos[7];
}

TEST(NetworkParts, ANamedBodyNetworkIsFetchedOnFirstNeed) {
    SystemHarness h;
    ASSERT_EQ(h->loadGraph(builtinTemplate(25)), NO_ERROR);
    EXPECT_EQ(fetches(h.finder, "qm_skeleton"), 0);  // the scene's bundle names it, the load reads it not
    EXPECT_FALSE(people(h, "coffee.jpg").satisfied);
    EXPECT_EQ(fetches(h.finder, "qm_skeleton"), 0);  // no person to check
    EXPECT_TRUE(people(h, "astronaut.jpg").satisfied);
    EXPECT_EQ(fetches(h.finder, "qm_skeleton"), 1);
    EXPECT_EQ(h.finder.outstanding, 0);  // handed back at once
    EXPECT_NE(std::find(h.finder.events.begin(), h.finder.events.end(), "2 qm_skeleton"), h.finder.events.end());
    EXPECT_TRUE(people(h, "astronaut.jpg").satisfied);
    EXPECT_EQ(fetches(h.finder, "qm_skeleton"), 1);  // kept for the graph's lifetime

    // A graph that loads qm_skeleton itself (the skeleton beside the scene) takes the body
    // network from its own load: no fetch, no network read.
    const char* both =
        R"({"nodes":[{"name":"input_0","type":"imageProducer"},)"
        R"({"name":"skeleton_0","type":"skeleton","config":{"keyMaps":{"stringParam":{"skeleton_model_key":"qm_skeleton"}}}},)"
        R"({"name":"scene_0","type":"scene_recognition","config":{"keymaps":{"intParam":{"scene_recog_use_old":1}}}}],"links":[)"
        R"({"fromNode":"input_0","fromIndex":0,"toNode":"skeleton_0","toIndex":0},{"fromNode":"input_0","fromIndex":0,"toNode":"scene_0","toIndex":0}]})";
    ASSERT_EQ(h->loadGraph(both), NO_ERROR) << h->getLastErrorMessage();
    const long requested = fetches(h.finder, "qm_skeleton"), read = Korvid::networksRead();
    EXPECT_TRUE(people(h, "astronaut.jpg").satisfied);
    EXPECT_EQ(fetches(h.finder, "qm_skeleton"), requested);
    EXPECT_EQ(Korvid::networksRead(), read);
}

TEST(NetworkParts, AMissingDamagedOrForeignNamedModelConfirmsNoPerson) {
    const std::string skeleton = modelBytes("qm_skeleton");
    std::string scrambled = skeleton;
    for (size_t i = 100; i < 8000; ++i) scrambled[i] = static_cast<char>(scrambled[i] * 31 + 7);
    const std::string candidates[] = {
        skeleton.substr(0, skeleton.size() / 2),     // cut short
        scrambled,                                   // damaged headers and weights
        modelBytes("qm_skeleton_single"),            // a bare network: no bundle
        modelBytes("qm_petface"),                    // a bundle without the part
        "korvid-bundle\n" + part("single", "korvid-ref\nqm_skeleton/single\n"),  // a reference again
        "korvid-bundle\n" + part("single", modelBytes("qm_face")),  // another network
    };
    SystemHarness h;
    for (const std::string& content : candidates) {
        h.finder.overrides = {{"qm_skeleton", content}};
        ASSERT_EQ(h->loadGraph(builtinTemplate(25)), NO_ERROR) << content.size();
        const SceneRecogInfo& person = people(h, "astronaut.jpg");
        EXPECT_FALSE(person.satisfied) << content.size() << " bytes";
        EXPECT_LT(person.prob, 0.5f);
        EXPECT_GT(person.prob, 0.f);  // the detector's person still counts for something
        EXPECT_EQ(h.finder.outstanding, 0);
        people(h, "astronaut.jpg");  // the failure is kept: no second fetch of a damaged model
        EXPECT_EQ(fetches(h.finder, "qm_skeleton"), 1);
        h.finder.requested.clear();
    }
    h.finder.overrides.clear();
    h.finder.missing = {"qm_skeleton"};
    ASSERT_EQ(h->loadGraph(builtinTemplate(25)), NO_ERROR);
    EXPECT_FALSE(people(h, "astronaut.jpg").satisfied);
    EXPECT_NE(std::find(h.finder.events.begin(), h.finder.events.end(), "1 qm_skeleton"), h.finder.events.end());

    // A malformed reference is a damaged part of the bundle itself: refused at load.
    const std::string scene = modelBytes("qm_c1_small");
    const size_t single = scene.rfind("single ");
    ASSERT_NE(single, std::string::npos);
    h.finder.missing.clear();
    h.finder.overrides = {{"qm_c1_small", scene.substr(0, single) + part("single", "korvid-ref\nqm_skel\n")}};
    EXPECT_EQ(h->loadGraph(builtinTemplate(25)), INVALID_MODEL);
    EXPECT_EQ(h.finder.outstanding, 0);
}

}  // namespace
}  // namespace kv::testing
