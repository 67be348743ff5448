// Networks through the SDK: damaged or foreign model bytes are INVALID_MODEL at graph load,
// a graph loaded again, also after other graphs, reads no network again, and images of
// extreme shapes go through every network.
#include <fstream>
#include <iterator>
#include <tuple>

#include <gtest/gtest.h>

#include "Korvid/Diagnostics.h"
#include "testing/builtin_templates.h"
#include "testing/file_bytes.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;

std::string modelBytes(const std::string& name) {
    return vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/" + name + ".model");
}

TEST(Networks, DamagedOrForeignModelsAreInvalidModel) {
    const std::string face = modelBytes("qm_face");
    ASSERT_GT(face.size(), 100000u);
    std::string scrambled = face;
    for (size_t i = 16; i < 4096; ++i) scrambled[i] = static_cast<char>(scrambled[i] * 31 + 7);
    const std::string candidates[] = {
        face.substr(0, face.size() / 2), face.substr(0, face.size() - 1), face.substr(0, 64), scrambled,
        modelBytes("qm_skeleton"),   // a network with other outputs
        modelBytes("qm_petface"),    // a bundle of a cascade and a network
    };
    SystemHarness h;
    for (const std::string& content : candidates) {
        h.finder.overrides = {{"qm_face", content}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(4)), INVALID_MODEL) << content.size() << " bytes";
        EXPECT_EQ(h.finder.outstanding, 0);
    }
    // The skeleton's bundle of two networks: a bare network with other outputs, a damaged or
    // foreign second network, neither network.
    const std::string single = modelBytes("qm_skeleton_single"), multi = modelBytes("qm_skeleton_multi");
    const auto bundle = [&](const std::string& second) {
        return "korvid-bundle\nsingle " + std::to_string(single.size()) + "\n" + single + "multi " +
               std::to_string(second.size()) + "\n" + second;
    };
    for (const std::string& content : {face, bundle(multi.substr(0, multi.size() / 2)), bundle(face),
                                       std::string("korvid-bundle\nsingles 1\nx")}) {
        h.finder.overrides = {{"qm_skeleton", content}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(7)), INVALID_MODEL) << content.size() << " bytes";
    }
    // The sensitive-content bundle: its network cut short or another network in its place, no
    // network at all (the bare parameter file), a pet bundle whose "drawing" part is damaged.
    const std::string params = vqfe_testing::fileBytes(std::string(KORVID_TEST_SOURCE_DIR) + "/models/qm_porn_classifier.yml");
    const std::string nsfw = modelBytes("qm_nsfw");
    const auto withNetwork = [&](const std::string& network) {
        return "korvid-bundle\nparams " + std::to_string(params.size()) + "\n" + params + "network " + std::to_string(network.size()) + "\n" + network;
    };
    for (const std::string& content : {withNetwork(nsfw.substr(0, nsfw.size() / 2)), withNetwork(face), params}) {
        h.finder.overrides = {{"qm_porn_classifier", content}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(33)), INVALID_MODEL) << content.size() << " bytes";
    }
    const std::string pets = modelBytes("qm_petface");
    h.finder.overrides = {{"qm_petface", pets.substr(0, pets.size() - 1000)}};
    EXPECT_EQ(h->loadGraph(builtinTemplate(95)), INVALID_MODEL);
    h.finder.overrides.clear();
    EXPECT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    EXPECT_EQ(h->loadGraph(builtinTemplate(7)), NO_ERROR);
    EXPECT_EQ(h->loadGraph(builtinTemplate(33)), NO_ERROR);
}

TEST(Networks, DamagedBundlesAreInvalidModel) {
    const std::string bundle = modelBytes("qm_petface");
    const std::string cascade = bundle.substr(bundle.find('\n', 14) + 1, bundle.find("network ") - bundle.find('\n', 14) - 1);
    ASSERT_NE(cascade.find("<cascade"), std::string::npos);
    const std::string head = "korvid-bundle\ncascade " + std::to_string(cascade.size()) + "\n" + cascade;
    const std::string candidates[] = {
        bundle.substr(0, bundle.size() - 1),                 // cut short
        head,                                                // no network
        head + "network 12\nnot a network",                  // a foreign network
        head + "network x\n",                                // a size that is no number
        head + "network 99999999999999\n",                   // a size beyond the file
        "korvid-bundle\ncascade",                            // a header without its end
    };
    SystemHarness h;
    for (const std::string& content : candidates) {
        h.finder.overrides = {{"qm_petface", content}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(95)), INVALID_MODEL) << content.size() << " bytes";
        EXPECT_EQ(h.finder.outstanding, 0);
    }
    // The classification's bundle: its table of object labels must name COCO classes.
    const std::string classification = modelBytes("nodehub_c3_300");
    const size_t network = classification.find("\nnetwork ") + 1, eol = classification.find('\n', network);
    const size_t labels = eol + 1 + std::stoul(classification.substr(network + 8, eol - network - 8));
    ASSERT_EQ(classification.compare(labels, 7, "labels "), 0);
    const std::string before = classification.substr(0, labels);
    for (const std::string& table : {std::string("193\tcat_c1_c2\t1+\tunicorn\n"), std::string("193\tcat_c1_c2\t2-1\tcat\n"),
                                     std::string("# nothing\n")}) {
        h.finder.overrides = {{"nodehub_c3_300", before + "labels " + std::to_string(table.size()) + "\n" + table}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(121)), INVALID_MODEL) << table;
    }
    const std::string cats = "193\tcat_c1_c2\t1+\tcat\n";
    const std::string catsBundle = before + "labels " + std::to_string(cats.size()) + "\n" + cats;
    h.finder.overrides = {{"nodehub_c3_300", catsBundle}};
    EXPECT_EQ(h->loadGraph(builtinTemplate(121)), NO_ERROR);
    // Its body network (which confirms the persons it counts): cut short, or a face detector.
    const std::string single = modelBytes("qm_skeleton_single");
    for (const std::string& body : {single.substr(0, single.size() / 2), modelBytes("qm_face")}) {
        h.finder.overrides = {{"nodehub_c3_300", catsBundle + "single " + std::to_string(body.size()) + "\n" + body}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(121)), INVALID_MODEL) << body.size() << " bytes";
    }

    // The face mesh's bundle needs both networks, each sound; the bare mesh loads alone.
    const std::string mesh = modelBytes("qm_face_mesh");
    const std::string meshPart = "korvid-bundle\nmesh " + std::to_string(mesh.size()) + "\n" + mesh;
    const std::string emotion = modelBytes("qm_face_attribute_exp");
    for (const std::string& content : {meshPart, meshPart + "iris " + std::to_string(emotion.size()) + "\n" + emotion,
                                       meshPart + "iris 64\n" + mesh.substr(0, 64)}) {
        h.finder.overrides = {{"qm_face_extra", content}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(4)), INVALID_MODEL) << content.size() << " bytes";
    }
    h.finder.overrides = {{"qm_face_extra", mesh}};
    ASSERT_EQ(h.run(builtinTemplate(4), "astronaut.jpg", 4), NO_ERROR);
    auto* faces = static_cast<FaceBuffer*>(h->getResult(AlgorithmType::Face));
    ASSERT_EQ(faces->faces.size(), 1u);
    EXPECT_EQ(faces->faces[0]->points.size(), 106u);
    EXPECT_EQ(faces->extras[0]->irisCount, 0);
    EXPECT_TRUE(faces->extras[0]->leftIris.empty());

    // The scene and matting nodes' own models: damaged ones fail the load although the
    // graph does not name them. The scene's and the sensitive-content bundles' body network
    // and detector (which confirm persons) are checked like their other networks.
    const std::string matting = modelBytes("qm_matting"), object = modelBytes("qm_object");
    const std::string params = "%YAML:1.0\n---\nformat: \"korvid-params\"\nkind: \"matting\"\n";
    auto part = [](const std::string& name, const std::string& bytes) { return name + " " + std::to_string(bytes.size()) + "\n" + bytes; };
    const std::string sceneParams = vqfe_testing::fileBytes(std::string(KORVID_TEST_SOURCE_DIR) + "/models/qm_c1_small.yml");
    const std::string pornParams = vqfe_testing::fileBytes(std::string(KORVID_TEST_SOURCE_DIR) + "/models/qm_porn_classifier.yml");
    for (const auto& [kind, name, content] :
         {std::tuple<int, std::string, std::string>{25, "qm_c1_small", modelBytes("qm_c1_small").substr(0, 100000)},
          {58, "qm_c1_det", modelBytes("qm_face")},
          {25, "qm_c1_small", "korvid-bundle\n" + part("params", sceneParams) + part("network", object) + part("single", modelBytes("qm_face"))},
          {33, "qm_porn_classifier",
           "korvid-bundle\n" + part("params", pornParams) + part("network", modelBytes("qm_nsfw")) + part("objects", object.substr(0, 5000))},
          {12, "qm_matting", matting.substr(0, matting.size() / 2)},
          {12, "qm_matting", "korvid-bundle\n" + part("params", params) + part("network", object) + part("objects", object)},
          {12, "qm_matting", "korvid-bundle\n" + part("params", params) + part("network", modelBytes("qm_selfie"))}}) {
        h.finder.overrides = {{name, content}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(kind)), INVALID_MODEL) << name << ", " << content.size() << " bytes";
        EXPECT_EQ(h.finder.outstanding, 0);
    }

    // The face-api bundles: a damaged network, another network in its place, or no network.
    for (const auto& [name, kind] : {std::pair<std::string, int>{"qm_faceverify", 8}, {"qm_face_attribute_age", 9}}) {
        const std::string bundle = modelBytes(name);
        const size_t at = bundle.find("\nnetwork ") + 1;
        const std::string params = bundle.substr(0, at), network = bundle.substr(bundle.find('\n', at) + 1);
        auto withNetwork = [&](const std::string& net) { return params + "network " + std::to_string(net.size()) + "\n" + net; };
        std::string scrambledNetwork = network;
        for (size_t i = 64; i < 8192; ++i) scrambledNetwork[i] = static_cast<char>(scrambledNetwork[i] * 17 + 3);
        for (const std::string& content : {withNetwork(network.substr(0, network.size() / 3)), withNetwork(scrambledNetwork),
                                           withNetwork(modelBytes("qm_face")), params}) {
            h.finder.overrides = {{name, content}};
            EXPECT_EQ(h->loadGraph(builtinTemplate(kind)), INVALID_MODEL) << name << ", " << content.size() << " bytes";
        }
        h.finder.overrides = {{name, withNetwork(network)}};
        EXPECT_EQ(h->loadGraph(builtinTemplate(kind)), NO_ERROR) << name;
    }
    h.finder.overrides.clear();

    // A bare cascade still loads: cat faces in the whole image, as without a detector, on
    // any shape.
    h.finder.overrides = {{"qm_petface", cascade}};
    EXPECT_EQ(h->loadGraph(builtinTemplate(95)), NO_ERROR);
    h.input = rgbaInput(cv::Mat(cv::Size(1, 16384), CV_8UC3, cv::Scalar(90, 120, 200)));
    EXPECT_EQ(h->execute(h.input->buffer, AlgorithmType::FacePetDetect), NO_ERROR);
}

TEST(Networks, AReloadedGraphReadsNoNetworkAgain) {
    SystemHarness h;
    const long before = Korvid::networksRead();
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);  // detector, mesh and iris
    EXPECT_EQ(Korvid::networksRead(), before + 3);
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    ASSERT_EQ(h->loadGraph(builtinTemplate(8)), NO_ERROR);  // the same three and the descriptor
    EXPECT_EQ(Korvid::networksRead(), before + 4);
    // Switching to a graph of other networks (the skeleton: two; the content classifier that
    // tells drawings and the object detector that confirms a person are named, fetched while
    // it runs) and back reads only the new ones, once.
    for (int kind : {7, 4, 7, 8}) ASSERT_EQ(h->loadGraph(builtinTemplate(kind)), NO_ERROR);
    EXPECT_EQ(Korvid::networksRead(), before + 6);
    // The same size and the same ends, one weight different: another network, read anew.
    std::string changed = modelBytes("qm_face");
    changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
    h.finder.overrides = {{"qm_face", changed}};
    ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
    EXPECT_EQ(Korvid::networksRead(), before + 7);
}

TEST(Networks, ExtremeImageShapesFindNothing) {
    SystemHarness h;
    // The skeleton's MultiPose network runs only when a second person is likely: here alone.
    const std::string multi = modelBytes("qm_skeleton_multi");
    const std::string multiOnly = "korvid-bundle\nmulti " + std::to_string(multi.size()) + "\n" + multi;
    for (cv::Size size : {cv::Size(1, 1), cv::Size(16384, 1), cv::Size(1, 16384), cv::Size(3, 9000)}) {
        h.input = rgbaInput(cv::Mat(size, CV_8UC3, cv::Scalar(90, 120, 200)));
        for (int kind : {95, 12, 25, 58, 4, 7}) {  // the skeleton last: its result is read below
            ASSERT_EQ(h->loadGraph(builtinTemplate(kind)), NO_ERROR);
            ASSERT_EQ(h->execute(h.input->buffer, static_cast<AlgorithmType>(kind)), NO_ERROR) << size << h->getLastErrorMessage();
        }
        EXPECT_TRUE(static_cast<SkeletonBuffer*>(h->getResult(AlgorithmType::Skeleton))->infos.empty()) << size;
        h.finder.overrides = {{"qm_skeleton", multiOnly}};
        ASSERT_EQ(h->loadGraph(builtinTemplate(7)), NO_ERROR);
        ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::Skeleton), NO_ERROR) << size;
        EXPECT_TRUE(static_cast<SkeletonBuffer*>(h->getResult(AlgorithmType::Skeleton))->infos.empty()) << size;
        h.finder.overrides.clear();
        ASSERT_EQ(h->loadGraph(builtinTemplate(4)), NO_ERROR);
        ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::Face), NO_ERROR);
        EXPECT_TRUE(static_cast<FaceBuffer*>(h->getResult(AlgorithmType::Face))->faces.empty()) << size;
    }
}

}  // namespace
}  // namespace kv::testing
