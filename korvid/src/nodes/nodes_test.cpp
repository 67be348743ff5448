// Every node's output on real photographs (testdata/), through the built-in templates
// and the built model directory, and determinism of every result.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "testing/builtin_templates.h"
#include "testing/file_bytes.h"
#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

using namespace Vantor;
using vqfe_testing::fileBytes;

template <typename B>
B* run(SystemHarness& h, int kind, const std::string& image, int type = 0) {
    int code = h.run(builtinTemplate(kind), image, type == 0 ? kind : type);
    EXPECT_EQ(code, NO_ERROR) << h->getLastErrorMessage();
    return code == NO_ERROR ? static_cast<B*>(h->getResult(static_cast<AlgorithmType>(type == 0 ? kind : type))) : nullptr;
}

bool inUnit(float v) { return v >= 0.f && v <= 1.f; }

TEST(Nodes, FaceFindsTheAstronautWithEyes) {
    SystemHarness h;
    auto* faces = run<FaceBuffer>(h, 4, "astronaut.jpg");
    ASSERT_NE(faces, nullptr);
    EXPECT_EQ(faces->getType(), 4);
    EXPECT_EQ(faces->imageWidth, 384);
    ASSERT_EQ(faces->faces.size(), 1u);
    const Face106& f = *faces->faces[0];
    EXPECT_GT(f.score, 0.5f);
    EXPECT_NEAR(f.rect.x + f.rect.width / 2, 0.435f, 0.06f);  // the face is left of centre, upper third
    EXPECT_NEAR(f.rect.y + f.rect.height / 2, 0.22f, 0.06f);
    ASSERT_EQ(f.points.size(), 106u);
    ASSERT_EQ(f.visibility.size(), 106u);
    // Pupils 104 and 105 in their eyes, image-left first; chin (16) below the lips (84-95).
    EXPECT_LT(f.points[104].x, f.points[105].x);
    EXPECT_GT(f.points[16].y, f.points[93].y);
    EXPECT_GT(f.eyeDist, 0.04f);
    EXPECT_LT(f.eyeDist, f.rect.width);
    // A frontal portrait: small head angles; the mesh's outlines where they belong.
    EXPECT_LT(std::abs(f.yaw), 15.f);
    EXPECT_LT(std::abs(f.pitch), 20.f);
    EXPECT_LT(std::abs(f.roll), 10.f);
    ASSERT_EQ(faces->extras.size(), 1u);
    const FaceExtra& x = *faces->extras[0];
    EXPECT_EQ(x.eyeCount, 2);
    ASSERT_EQ(x.eyeLeft.size(), 16u);
    ASSERT_EQ(x.eyebrowRight.size(), 8u);
    ASSERT_EQ(x.lips.size(), 20u);
    auto mean = [](const auto& points) {
        Glintcore::Vector2f m{0, 0};
        for (const auto& p : points) m = Glintcore::Vector2f{m.x + p.x / points.size(), m.y + p.y / points.size()};
        return m;
    };
    // The irises: centre (the pupil) first, inside the eye, four edge points around it.
    EXPECT_EQ(x.irisCount, 2);
    ASSERT_EQ(x.leftIris.size(), 5u);
    ASSERT_EQ(x.rightIris.size(), 5u);
    EXPECT_EQ(x.leftIris[0].x, f.points[104].x);
    EXPECT_EQ(x.rightIris[0].y, f.points[105].y);
    EXPECT_NEAR(mean(x.eyeLeft).x, f.points[104].x, 0.005f);
    EXPECT_NEAR(mean(x.eyeRight).y, f.points[105].y, 0.005f);
    const float radius = x.leftIris[1].x - x.leftIris[0].x;  // towards the inner corner: right
    EXPECT_GT(radius, 0.002f);
    EXPECT_LT(radius, 0.012f);
    EXPECT_LT(mean(x.eyebrowLeft).y, mean(x.eyeLeft).y);
    EXPECT_LT(mean(x.eyebrowRight).x, f.rect.x + f.rect.width);
    EXPECT_GT(mean(x.eyebrowRight).x, mean(x.eyebrowLeft).x);
    EXPECT_GT(mean(x.lips).y, f.points[105].y + 0.05f);

    EXPECT_TRUE(run<FaceBuffer>(h, 4, "coffee.jpg")->faces.empty());
    EXPECT_TRUE(run<FaceBuffer>(h, 4, "rocket.jpg")->faces.empty());
}

// Nodes of one graph share the input image and, where networks and parameters are the
// same, one face detection: neither may leak into another node's result.
TEST(Nodes, NodesOfOneGraphDoNotDisturbEachOther) {
    SystemHarness alone, relation, both;
    const float score = run<FaceBuffer>(alone, 4, "astronaut.jpg")->faces.at(0)->score;
    // The relation graph converts the image to RGB for its inference before its face node runs.
    ASSERT_EQ(relation.run(builtinTemplate(130), "astronaut.jpg", -1), NO_ERROR);
    EXPECT_EQ(static_cast<FaceBuffer*>(relation->getResult(AlgorithmType::Face))->faces.at(0)->score, score);

    auto faceNode = [](const char* name, const char* models) {
        return std::string(R"({"name":")") + name + R"(","type":"face","config":{"keyMaps":{"intParam":{},"stringParam":{)" +
               models + "}}}}";
    };
    const std::string graph =
        R"({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},)" +
        faceNode("plain", R"("face_base_model_key":"qm_face")") + "," +
        faceNode("meshed", R"("face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra")") +
        R"(],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"plain","toIndex":0},)"
        R"({"fromNode":"input_0","fromIndex":0,"toNode":"meshed","toIndex":0}]})";
    ASSERT_EQ(both.run(graph, "astronaut.jpg", -1), NO_ERROR) << both->getLastErrorMessage();
    auto* plain = static_cast<FaceBuffer*>(both->getResultByName("plain"));
    auto* meshed = static_cast<FaceBuffer*>(both->getResultByName("meshed"));
    ASSERT_TRUE(plain != nullptr && meshed != nullptr);
    EXPECT_EQ(plain->faces.at(0)->score, score);
    EXPECT_EQ(plain->faces.at(0)->points.size(), 2u);
    EXPECT_EQ(meshed->faces.at(0)->points.size(), 106u);

    // The two pet nodes share one search for pets, and with the classification one object
    // detection, each with its own score threshold: all give what they give alone.
    SystemHarness pets, masks, classes, together;
    auto* cat = run<FacePetDetectBuffer>(pets, 95, "chelsea.jpg");
    auto* mask = run<PetMattingBuffer>(masks, 71, "chelsea.jpg");
    auto* c300 = run<NHClassificationBuffer>(classes, 121, "chelsea.jpg");
    ASSERT_TRUE(cat != nullptr && mask != nullptr && c300 != nullptr && cat->infos.size() == 1);
    std::string merged = builtinTemplate(121);
    const std::string input = R"({"name":"input_0","type":"imageProducer"},)";
    for (const char* node : {"pets", "masks"}) {
        merged.insert(merged.find(input) + input.size(),
                      std::string(R"({"name":")") + node + R"(","type":"face_pet_detect","config":{"keyMaps":{"intParam":{)" +
                          R"("face_pet_detect_use_imagemode":)" + (node[0] == 'p' ? "1" : "0") +
                          R"(},"stringParam":{"face_pet_detect_model_key":"qm_petface"}}}},)");
        merged.insert(merged.find(R"("links":[)") + 9,
                      std::string(R"({"fromNode":"input_0","fromIndex":0,"toNode":")") + node + R"(","toIndex":0},)");
    }
    ASSERT_EQ(together.run(merged, "chelsea.jpg", -1), NO_ERROR) << together->getLastErrorMessage();
    auto* catToo = static_cast<FacePetDetectBuffer*>(together->getResult(AlgorithmType::FacePetDetect));
    auto* c300Too = static_cast<NHClassificationBuffer*>(together->getResult(static_cast<AlgorithmType>(121)));
    ASSERT_TRUE(catToo != nullptr && c300Too != nullptr && catToo->infos.size() == 1);
    EXPECT_EQ(catToo->infos[0]->score, cat->infos[0]->score);
    EXPECT_EQ(catToo->infos[0]->rect.x, cat->infos[0]->rect.x);
    auto* maskToo = static_cast<PetMattingBuffer*>(together->getResult(AlgorithmType::PetMatting));
    ASSERT_NE(maskToo, nullptr);
    EXPECT_TRUE(std::equal(maskToo->info->mask0.begin(), maskToo->info->mask0.end(), mask->info->mask0.begin(), mask->info->mask0.end()));
    ASSERT_TRUE(c300Too->infos[0] && c300->infos[0]);
    EXPECT_TRUE(std::equal(c300Too->infos[0]->confidence.begin(), c300Too->infos[0]->confidence.end(), c300->infos[0]->confidence.begin(),
                           c300->infos[0]->confidence.end()));

    // Saliency and matting find the salient region once per image: each gives what it gives alone.
    SystemHarness salientAlone, mattingAlone, salientAndMatting;
    auto* salient = run<VantorBuffer>(salientAlone, 60, "coffee.jpg");
    auto* matting = run<MattingBuffer>(mattingAlone, 12, "coffee.jpg");
    ASSERT_TRUE(salient != nullptr && matting != nullptr && salient->infos.size() == 1);
    std::string regions = builtinTemplate(60);
    regions.insert(regions.find(input) + input.size(), R"({"name":"matting_0","type":"matting","config":{"keyMaps":{}}},)");
    regions.insert(regions.find(R"("links":[)") + 9, R"({"fromNode":"input_0","fromIndex":0,"toNode":"matting_0","toIndex":0},)");
    ASSERT_EQ(salientAndMatting.run(regions, "coffee.jpg", -1), NO_ERROR) << salientAndMatting->getLastErrorMessage();
    auto* salientToo = static_cast<VantorBuffer*>(salientAndMatting->getResult(AlgorithmType::SaliencySeg));
    auto* mattingToo = static_cast<MattingBuffer*>(salientAndMatting->getResult(AlgorithmType::Matting));
    ASSERT_TRUE(salientToo != nullptr && mattingToo != nullptr && salientToo->infos.size() == 1);
    const auto& one = static_cast<const SaliencySegInfo&>(*salient->infos[0]);
    const auto& two = static_cast<const SaliencySegInfo&>(*salientToo->infos[0]);
    EXPECT_EQ(two.bboxWidth, one.bboxWidth);
    EXPECT_TRUE(std::equal(two.alpha.begin(), two.alpha.end(), one.alpha.begin(), one.alpha.end()));
    const MattingResult& byItself = *matting->result;
    EXPECT_GT(std::count(byItself.mask.begin(), byItself.mask.end(), 255), 0);
    EXPECT_TRUE(std::equal(mattingToo->result->mask.begin(), mattingToo->result->mask.end(), byItself.mask.begin(), byItself.mask.end()));
}

TEST(Nodes, VerificationClusteringAndAttributes) {
    SystemHarness h;
    auto* verify = run<FaceVerifyBuffer>(h, 8, "astronaut.jpg");
    ASSERT_NE(verify, nullptr);
    ASSERT_EQ(verify->faceVerifyInfos.size(), 1u);
    const FaceVerifyInfo& info = *verify->faceVerifyInfos[0];
    ASSERT_EQ(info.features.size(), 128u);
    double norm = 0;
    for (float v : info.features) norm += double(v) * v;
    EXPECT_NEAR(norm, 1.0, 1e-4);
    EXPECT_EQ(info.modelVersion, "dlib-resnet29-128");
    EXPECT_EQ(info.faceStatus, 1);
    EXPECT_TRUE(verify->needUpdate);
    EXPECT_EQ(verify->validFaceNum, 1);
    EXPECT_FLOAT_EQ(info.rect.x, info.face.rect.x);

    auto* clusters = run<FaceClustingBuffer>(h, 10, "astronaut.jpg");
    ASSERT_NE(clusters, nullptr);
    ASSERT_EQ(clusters->results.size(), 1u);
    EXPECT_EQ(clusters->results[0], 0);
    ASSERT_EQ(clusters->clusters.size(), 1u);
    EXPECT_EQ(clusters->clustingInfo.flag, 1);
    EXPECT_TRUE(run<FaceClustingBuffer>(h, 10, "coffee.jpg")->clusters.empty());

    auto* attrs = run<FaceAttributeBuffer>(h, 9, "astronaut.jpg", 46);
    ASSERT_NE(attrs, nullptr);
    EXPECT_EQ(attrs->getType(), 46);
    EXPECT_EQ(static_cast<void*>(attrs), h->getResult(AlgorithmType::FaceExpression));
    ASSERT_EQ(attrs->attributes.size(), 1u);
    const FaceAttribute& a = *attrs->attributes[0];
    EXPECT_GT(a.happyScore, 0.5f);  // she smiles
    EXPECT_EQ(a.expType, 3);        // happy, in the emotion network's class order
    ASSERT_EQ(a.expProbs.size(), 7u);
    EXPECT_FLOAT_EQ(a.expProbs[3], a.happyScore);
    EXPECT_NEAR(std::accumulate(a.expProbs.begin(), a.expProbs.end(), 0.f), 1.f, 1e-4f);
    EXPECT_TRUE(inUnit(a.quality) && a.quality > 0.f);
    EXPECT_GT(a.realFaceProb, 0.3f);
    // Eileen Collins, about 40 when photographed.
    EXPECT_GT(a.age, 25.f);
    EXPECT_LT(a.age, 55.f);
    EXPECT_LT(a.boyProb, 0.5f);
    EXPECT_EQ(a.gender, 0);
}

std::vector<float> descriptorOf(SystemHarness& h, const std::string& image) {
    auto* verify = run<FaceVerifyBuffer>(h, 8, image);
    if (verify == nullptr || verify->faceVerifyInfos.size() != 1) return {};
    const auto& f = verify->faceVerifyInfos[0]->features;
    return std::vector<float>(f.begin(), f.end());
}

float similarity(const std::vector<float>& a, const std::vector<float>& b) {
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.f);
}

// The same portrait cropped two ways is one person, the astronaut another: the descriptors
// say so, and the clustering's default threshold lies between them.
TEST(Nodes, DescriptorsSeparatePeople) {
    SystemHarness h;
    const auto hopper = descriptorOf(h, "grace_hopper.jpg"), crop = descriptorOf(h, "grace_hopper_crop.jpg"),
               astronaut = descriptorOf(h, "astronaut.jpg");
    ASSERT_EQ(hopper.size(), 128u);
    ASSERT_EQ(crop.size(), 128u);
    ASSERT_EQ(astronaut.size(), 128u);
    EXPECT_GT(similarity(hopper, crop), similarity(hopper, astronaut) + 0.05f);
    EXPECT_GT(similarity(hopper, crop), similarity(crop, astronaut) + 0.05f);
    cv::FileStorage fs(std::string(KORVID_TEST_MODEL_DIR) + "/qm_bigbrother.model", cv::FileStorage::READ);
    const float threshold = float(fs["similarity_threshold"]);
    EXPECT_GT(similarity(hopper, crop), threshold);
    EXPECT_LT(similarity(hopper, astronaut), threshold);

    // A bare parameter file still selects the LBP features, and a bare age file no age.
    h.finder.overrides = {{"qm_faceverify", fileBytes(std::string(KORVID_TEST_SOURCE_DIR) + "/models/qm_faceverify.yml")},
                          {"qm_face_attribute_age", fileBytes(std::string(KORVID_TEST_SOURCE_DIR) + "/models/qm_face_attribute_age.yml")}};
    auto* verify = run<FaceVerifyBuffer>(h, 8, "astronaut.jpg");
    ASSERT_NE(verify, nullptr);
    EXPECT_EQ(verify->faceVerifyInfos.at(0)->features.size(), 16u * 59u);
    EXPECT_EQ(verify->faceVerifyInfos.at(0)->modelVersion, "korvid-lbp-64x4");
    auto* attrs = run<FaceAttributeBuffer>(h, 9, "astronaut.jpg", 46);
    ASSERT_NE(attrs, nullptr);
    EXPECT_EQ(attrs->attributes.at(0)->age, 0.f);
}

TEST(Nodes, WholeImageStatistics) {
    SystemHarness h;
    auto* ae = run<AfterEffectBuffer>(h, 30, "astronaut.jpg");
    ASSERT_NE(ae, nullptr);
    ASSERT_EQ(ae->scores.size(), 1u);
    const AEScoreInfo portrait = ae->scores[0];
    for (float v : {portrait.score, portrait.faceScore, portrait.qualityScore, portrait.sharpnessScore,
                    portrait.meaninglessScore, portrait.portraitScore}) {
        EXPECT_TRUE(inUnit(v)) << v;
    }
    EXPECT_GT(portrait.portraitScore, 0.1f);
    const AEScoreInfo rocket = run<AfterEffectBuffer>(h, 30, "rocket.jpg")->scores[0];
    EXPECT_EQ(rocket.portraitScore, 0.f);
    EXPECT_EQ(rocket.faceScore, 0.f);

    // Close-ups and a launch pad at dusk are no sky, sunset, water, snow or greenery scene
    // (the cup and the cat were once "sunset 1.00", the rocket "water 1.00"); no label is
    // ever certain.
    for (const char* photo : {"rocket.jpg", "coffee.jpg", "chelsea.jpg"}) {
        auto* scene = run<SceneRecogBuffer>(h, 25, photo);
        ASSERT_NE(scene, nullptr);
        ASSERT_EQ(scene->infos.size(), 10u);
        EXPECT_EQ(scene->infos[0]->name, "sky");
        for (size_t i : {0, 1, 2, 4, 5, 6}) EXPECT_FALSE(scene->infos[i]->satisfied) << photo << " " << scene->infos[i]->name;
        for (const auto& info : scene->infos) EXPECT_LT(info->prob, 0.96f) << photo << " " << info->name;
        if (scene->choose >= 0) {
            EXPECT_TRUE(scene->infos[static_cast<size_t>(scene->choose)]->satisfied);
        }
    }
    auto* person = run<SceneRecogBuffer>(h, 25, "astronaut.jpg");
    ASSERT_GE(person->choose, 0);
    EXPECT_EQ(person->infos[static_cast<size_t>(person->choose)]->name, "people");

    auto* v3 = run<SceneRecogV3Buffer>(h, 58, "coffee.jpg");
    ASSERT_NE(v3, nullptr);
    ASSERT_EQ(v3->infos.size(), 10u);
    EXPECT_EQ(v3->infos[3]->id, 3);
    EXPECT_FLOAT_EQ(v3->infos[3]->thres, 0.5f);
    EXPECT_EQ(v3->c3Feature.size(), 14u);
    // "people" from the detected persons: the portrait, not the cup, the cat or the rocket
    // (the skin-coloured cup and cat once were "people 1.00").
    ASSERT_EQ(v3->infos[7]->name, "people");
    EXPECT_LT(v3->infos[7]->confidence, 0.1f);
    EXPECT_GT(run<SceneRecogV3Buffer>(h, 58, "astronaut.jpg")->infos[7]->confidence, 0.7f);
    for (const char* nobody : {"chelsea.jpg", "rocket.jpg"}) {
        EXPECT_LT(run<SceneRecogBuffer>(h, 25, nobody)->infos[7]->prob, 0.1f) << nobody;
    }
    EXPECT_TRUE(run<SceneRecogBuffer>(h, 25, "astronaut.jpg")->infos[7]->satisfied);

    auto* porn = run<PornClsBuffer>(h, 33, "rocket.jpg");
    ASSERT_NE(porn, nullptr);
    EXPECT_EQ(porn->isPorn, 0);
    EXPECT_TRUE(inUnit(porn->confidence));
    EXPECT_LT(porn->confidence, 0.1f);

    auto* sim = run<SimilarityBuffer>(h, 29, "coffee.jpg");
    ASSERT_NE(sim, nullptr);
    ASSERT_EQ(sim->feature.size(), 8u);
    std::vector<uint8_t> coffee(sim->feature.begin(), sim->feature.end());
    auto* other = run<SimilarityBuffer>(h, 29, "rocket.jpg");
    int distance = 0;
    for (size_t i = 0; i < 8; ++i) distance += __builtin_popcount(coffee[i] ^ other->feature[i]);
    EXPECT_GT(distance, 10);
}

TEST(Nodes, RegionsMasksAndPets) {
    SystemHarness h;
    auto* generic = run<VantorBuffer>(h, 60, "coffee.jpg");
    ASSERT_NE(generic, nullptr);
    EXPECT_EQ(generic->getType(), BUFFER_TYPE_SALIENCY_SEG);
    ASSERT_EQ(generic->infos.size(), 1u);
    auto* sal = static_cast<SaliencySegInfo*>(generic->infos[0].get());
    EXPECT_TRUE(sal->valid);
    EXPECT_EQ(sal->realW, 400.f);
    EXPECT_EQ(sal->alpha.size(), size_t(sal->imgW * sal->imgH));
    EXPECT_EQ(sal->input.size(), sal->alpha.size());
    EXPECT_GT(sal->bboxWidth, 0.f);
    EXPECT_LE(sal->bboxCenterX + sal->bboxWidth / 2, 1.0001f);

    auto* matting = run<MattingBuffer>(h, 12, "coffee.jpg");
    ASSERT_NE(matting, nullptr);
    const MattingResult& m = *matting->result;
    ASSERT_EQ(m.mask.size(), size_t(m.width) * size_t(m.height));
    const size_t fg = static_cast<size_t>(std::count(m.mask.begin(), m.mask.end(), 255));
    EXPECT_GT(fg, m.mask.size() / 50);
    EXPECT_LT(fg, m.mask.size());
    EXPECT_GT(m.rect.width, 0.f);
    // A person: the segmentation network's mask, the face and the suit in it, the wall
    // above her shoulder out.
    const MattingResult& portrait = *run<MattingBuffer>(h, 12, "astronaut.jpg")->result;
    ASSERT_EQ(portrait.mask.size(), size_t(portrait.width) * size_t(portrait.height));
    auto at = [&portrait](float x, float y) { return portrait.mask[size_t(y * portrait.height) * size_t(portrait.width) + size_t(x * portrait.width)]; };
    EXPECT_EQ(at(0.43f, 0.22f), 255);
    EXPECT_EQ(at(0.3f, 0.8f), 255);
    EXPECT_EQ(at(0.6f, 0.1f), 0);
    EXPECT_GT(portrait.rect.height, 0.8f);

    auto* pets = run<FacePetDetectBuffer>(h, 95, "chelsea.jpg");
    ASSERT_NE(pets, nullptr);
    EXPECT_EQ(pets->getType(), 95);
    ASSERT_EQ(pets->infos.size(), 1u);
    EXPECT_EQ(pets->infos[0]->facePetType, 1);
    EXPECT_NEAR(pets->infos[0]->rect.x + pets->infos[0]->rect.width / 2, 0.54f, 0.1f);
    // The unframed close-up: the detector's cat fills the photo, the cascade's face inside it
    // leaves out the shoulder on the left.
    EXPECT_GT(pets->infos[0]->rect.x, 0.1f);
    EXPECT_LT(pets->infos[0]->rect.width, 0.9f);
    EXPECT_GT(pets->infos[0]->score, 0.35f);
    EXPECT_TRUE(run<FacePetDetectBuffer>(h, 95, "astronaut.jpg")->infos.empty());

    auto* petMatting = run<PetMattingBuffer>(h, 71, "chelsea.jpg");
    ASSERT_NE(petMatting, nullptr);
    EXPECT_EQ(petMatting->getType(), 71);
    const PetMattingInfo& pm = *petMatting->info;
    EXPECT_EQ(pm.maskCount, 1);
    ASSERT_EQ(pm.mask0.size(), size_t(pm.maskWidth) * size_t(pm.maskHeight));
    EXPECT_GT(std::count(pm.mask0.begin(), pm.mask0.end(), 255), 100);
    EXPECT_TRUE(pm.mask1.empty());
    EXPECT_EQ(run<PetMattingBuffer>(h, 71, "coffee.jpg")->info->maskCount, 0);

    auto* skeleton = run<SkeletonBuffer>(h, 7, "astronaut.jpg");
    ASSERT_NE(skeleton, nullptr);
    EXPECT_TRUE(skeleton->isExecuted);
    EXPECT_EQ(skeleton->sourceWidth, 384);
    ASSERT_EQ(skeleton->infos.size(), 1u);
    const SkeletonInfo& person = *skeleton->infos[0];
    ASSERT_EQ(person.keyPoints.size(), 17u);
    ASSERT_EQ(person.keyPointsScore.size(), 17u);
    // Nose inside the face, between the eyes, above the shoulders; her right shoulder is
    // on the image's left. Hips and ankles are outside the portrait: not detected.
    EXPECT_NEAR(person.keyPoints[0].x, 0.435f, 0.05f);
    EXPECT_NEAR(person.keyPoints[0].y, 0.22f, 0.05f);
    EXPECT_TRUE(person.keyPointsDetected[5] && person.keyPointsDetected[6]);
    EXPECT_GT(person.keyPoints[5].x, person.keyPoints[6].x);
    EXPECT_GT(person.keyPoints[5].y, person.keyPoints[0].y + 0.15f);
    EXPECT_FALSE(person.keyPointsDetected[15] || person.keyPointsDetected[16]);
    EXPECT_GT(person.rect.height, 0.2f);
    for (const char* nobody : {"coffee.jpg", "rocket.jpg", "chelsea.jpg"}) {
        EXPECT_TRUE(run<SkeletonBuffer>(h, 7, nobody)->infos.empty()) << nobody;
    }
    // The group photo: as many people as the graph asks for (two), different people.
    auto* group = run<SkeletonBuffer>(h, 7, "solvay.jpg");
    ASSERT_EQ(group->infos.size(), 2u);
    const Glintcore::Rect a = group->infos[0]->rect, b = group->infos[1]->rect;
    EXPECT_GT(std::fabs((a.x + a.width / 2) - (b.x + b.width / 2)) + std::fabs((a.y + a.height / 2) - (b.y + b.height / 2)), 0.1f);
    for (const auto& p : group->infos) {
        EXPECT_EQ(p->keyPoints.size(), 17u);
        EXPECT_GT(p->rect.width * p->rect.height, 0.f);
        EXPECT_LT(p->rect.width * p->rect.height, 0.3f);
    }
}

TEST(Nodes, ClassificationGraphs) {
    SystemHarness h;
    auto* c300 = run<NHClassificationBuffer>(h, 121, "rocket.jpg");
    ASSERT_NE(c300, nullptr);
    EXPECT_EQ(c300->getType(), 121);
    EXPECT_EQ(c300->bufferSize, 1u);
    ASSERT_TRUE(c300->infos[0]);
    const NHClassificationInfo& info = *c300->infos[0];
    EXPECT_EQ(info.numClasses, 208);
    ASSERT_EQ(info.id.size(), 208u);
    ASSERT_TRUE(c300->features[0]);
    EXPECT_EQ(c300->features[0]->features.size(), 1280u);
    EXPECT_FALSE(c300->features[1]);
    EXPECT_EQ(c300->labels.size(), 208u);
    EXPECT_EQ(c300->labels[0], "98_Shoes");
    EXPECT_EQ(c300->thresh.size(), 208u);
    // Sorted by threshold: every exceeding class comes before every other one.
    bool seenBelow = false;
    for (size_t i = 0; i < 208; ++i) {
        if (!info.exceedThresh[i]) seenBelow = true;
        else EXPECT_FALSE(seenBelow);
        EXPECT_TRUE(inUnit(info.confidence[i]));
    }
    std::vector<int32_t> ids(info.id.begin(), info.id.end());
    std::sort(ids.begin(), ids.end());
    for (int32_t i = 0; i < 208; ++i) EXPECT_EQ(ids[size_t(i)], i);
    EXPECT_EQ(h->getResultByName("ClassificationPostProcess"), static_cast<void*>(c300));

    // Labels from detected objects and people, scene classes from regions of the scene (never
    // 0.8): the blue suit is no ship, the cat no swimmer; at most two classes reach 0.99.
    auto confidenceOf = [](const NHClassificationBuffer& b, const std::string& label) {
        const NHClassificationInfo& in = *b.infos[0];
        for (size_t i = 0; i < in.id.size(); ++i) {
            if (b.labels[size_t(in.id[i])] == label) return in.confidence[i];
        }
        return -1.f;
    };
    for (const char* photo : {"astronaut.jpg", "chelsea.jpg", "coffee.jpg", "rocket.jpg"}) {
        auto* c = run<NHClassificationBuffer>(h, 121, photo);
        ASSERT_NE(c, nullptr);
        const std::string top = c->labels[size_t(c->infos[0]->id[0])];
        const bool astronaut = photo == std::string("astronaut.jpg"), cat = photo == std::string("chelsea.jpg");
        EXPECT_EQ(confidenceOf(*c, "2252_alone") > 0.5f, astronaut) << photo;
        EXPECT_EQ(confidenceOf(*c, "cat_c1_c2") > 0.35f, cat) << photo << " cat " << confidenceOf(*c, "cat_c1_c2") << " flower " << confidenceOf(*c, "flower_c1_c2");
        for (const char* never : {"1421_Ship", "Swimming_c2", "beach_c1_c2", "dog_c1_c2", "1248_crowd", "qrcode_c2"}) {
            EXPECT_LE(confidenceOf(*c, never), 0.5f) << photo << " " << never;
        }
        for (const char* scene : {"2584_sky", "2568_Sunset", "lake_c1_c2", "xuejing_c2", "text_c1_c2"}) {
            EXPECT_LT(confidenceOf(*c, scene), 0.8f) << photo << " " << scene;
        }
        const auto& conf = c->infos[0]->confidence;
        EXPECT_LE(std::count_if(conf.begin(), conf.end(), [](float v) { return v >= 0.99f; }), 2) << photo;
        if (cat) {
            EXPECT_EQ(top, "cat_c1_c2");
        }
        // A scene class is shown (0.3 or more) only where the scene kind found that scene
        // (the next run replaces the classification's buffer: its values are read first).
        const float sky = confidenceOf(*c, "2584_sky"), sunset = confidenceOf(*c, "2568_Sunset");
        auto* scene = run<SceneRecogBuffer>(h, 25, photo);
        ASSERT_NE(scene, nullptr);
        EXPECT_EQ(sky >= 0.3f, scene->infos[0]->satisfied) << photo << " sky " << sky;
        EXPECT_EQ(sunset >= 0.3f, scene->infos[5]->satisfied) << photo << " sunset " << sunset;
    }

    auto* relation = run<NHClassificationBuffer>(h, 130, "astronaut.jpg");
    ASSERT_NE(relation, nullptr);
    EXPECT_EQ(relation->getType(), 130);
    EXPECT_EQ(relation->infos[0]->numClasses, 10);
    EXPECT_EQ(relation->infos[0]->id[0], 0);  // unsorted: class order
    EXPECT_GT(relation->infos[0]->confidence[0], 0.5f);  // "peopletype": a face is there
    EXPECT_FALSE(relation->features[0]);
    EXPECT_TRUE(relation->labels.empty());  // the template stores them under "_class_labels"
    EXPECT_EQ(relation->thresh.size(), 10u);
    EXPECT_EQ(h->getResult(AlgorithmType::NHClassification), nullptr);

    // A caller-supplied graph serves the string kind by its post-processor's name.
    std::string named = builtinTemplate(121);
    for (size_t at; (at = named.find("\"ClassificationPostProcess\"")) != std::string::npos;) {
        named.replace(at, 27, "\"ClassificationPostProcess_c300\"");
    }
    ASSERT_EQ(h->loadGraph(named), NO_ERROR);
    ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::AllNodes), NO_ERROR);
    EXPECT_NE(h->getResultByName("ClassificationPostProcess_c300"), nullptr);
    EXPECT_EQ(h->getResultByName("ClassificationPostProcess_c300"), h->getResult(AlgorithmType::NHClassification));
}

// A photo turned into a cartoon: smoothed, its colours posterised, dark outlines.
cv::Mat cartoon(const std::string& photo) {
    const cv::Mat image = cv::imread(std::string(KORVID_TEST_DATA_DIR) + "/" + photo, cv::IMREAD_COLOR);
    cv::Mat smooth = image.clone(), next;
    for (int i = 0; i < 5; ++i) {
        cv::bilateralFilter(smooth, next, 9, 75, 75);
        std::swap(smooth, next);
    }
    cv::Mat flat = smooth / 48 * 48 + cv::Scalar::all(24), gray, edges;
    cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY);
    cv::medianBlur(gray, gray, 7);
    cv::adaptiveThreshold(gray, edges, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 9, 2);
    cv::Mat out(image.size(), CV_8UC3, cv::Scalar::all(0));
    flat.copyTo(out, edges);
    return out;
}

// The content classifier behind kinds 33 and 121: photos are neither drawings nor
// sensitive, the same photos drawn as cartoons are drawings (anime or sketch by their
// colours). Pixels fed unscaled (0..255 where the network takes 0..1) turn the astronaut
// and the rocket photos into drawings (0.78, 0.91).
TEST(Nodes, SensitiveContentAndDrawings) {
    SystemHarness h;
    auto label = [](const NHClassificationBuffer& b, const std::string& name) {
        const NHClassificationInfo& in = *b.infos[0];
        for (size_t i = 0; i < in.id.size(); ++i) {
            if (b.labels[size_t(in.id[i])] == name) return in.confidence[i];
        }
        return -1.f;
    };
    for (const char* photo : {"astronaut.jpg", "chelsea.jpg", "coffee.jpg", "rocket.jpg", "grace_hopper.jpg"}) {
        auto* porn = run<PornClsBuffer>(h, 33, photo);
        ASSERT_NE(porn, nullptr);
        EXPECT_EQ(porn->isPorn, 0) << photo;
        EXPECT_LT(porn->confidence, 0.1f) << photo;
        auto* c = run<NHClassificationBuffer>(h, 121, photo);
        ASSERT_NE(c, nullptr);
        EXPECT_LT(label(*c, "2098_Anime") + label(*c, "725_sketch"), 0.1f) << photo;
    }
    for (const char* photo : {"astronaut.jpg", "rocket.jpg"}) {
        h.input = rgbaInput(cartoon(photo));
        ASSERT_EQ(h->loadGraph(builtinTemplate(33)), NO_ERROR);
        ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::PornCls), NO_ERROR) << h->getLastErrorMessage();
        EXPECT_LT(static_cast<PornClsBuffer*>(h->getResult(AlgorithmType::PornCls))->confidence, 0.1f) << photo;
        ASSERT_EQ(h->loadGraph(builtinTemplate(121)), NO_ERROR);
        ASSERT_EQ(h->execute(h.input->buffer, AlgorithmType::NHClassification), NO_ERROR) << h->getLastErrorMessage();
        auto* c = static_cast<NHClassificationBuffer*>(h->getResult(AlgorithmType::NHClassification));
        EXPECT_GT(label(*c, "2098_Anime") + label(*c, "725_sketch"), 0.3f) << photo;  // 0.42, 0.65
    }
}

// A text summary of every result of a whole-graph run, for comparing runs.
std::string summary(SystemHarness& h) {
    std::ostringstream out;
    out.precision(9);
    if (auto* f = static_cast<FaceBuffer*>(h->getResult(AlgorithmType::Face))) {
        out << "faces=" << f->faces.size() << ';';
        for (const auto& face : f->faces) out << face->rect.x << ',' << face->rect.y << ',' << face->score << ';';
    }
    if (auto* v = static_cast<FaceVerifyBuffer*>(h->getResult(AlgorithmType::FaceVerify))) {
        for (const auto& i : v->faceVerifyInfos) out << std::accumulate(i->features.begin(), i->features.end(), 0.0) << ';';
    }
    if (auto* m = static_cast<MattingBuffer*>(h->getResult(AlgorithmType::Matting))) {
        out << std::accumulate(m->result->mask.begin(), m->result->mask.end(), 0L) << ';';
    }
    if (auto* p = static_cast<PetMattingBuffer*>(h->getResult(AlgorithmType::PetMatting))) {
        out << std::accumulate(p->info->mask0.begin(), p->info->mask0.end(), 0L) << ';';
    }
    if (auto* c = static_cast<NHClassificationBuffer*>(h->getResult(AlgorithmType::NHClassification))) {
        for (float v : c->infos[0]->confidence) out << v << ',';
        out << std::accumulate(c->features[0]->features.begin(), c->features[0]->features.end(), 0.0) << ';';
    }
    if (auto* a = static_cast<AfterEffectBuffer*>(h->getResult(AlgorithmType::AfterEffect))) out << a->scores[0].score << ';';
    if (auto* s = static_cast<VantorBuffer*>(h->getResult(AlgorithmType::SaliencySeg))) {
        auto* info = static_cast<SaliencySegInfo*>(s->infos[0].get());
        out << info->bboxCenterX << ',' << info->bboxWidth << ';';
    }
    return out.str();
}

TEST(Nodes, SameImageSameResults) {
    for (int kind : {8, 12, 30, 60, 71, 121}) {
        for (const char* image : {"astronaut.jpg", "chelsea.jpg"}) {
            SystemHarness first, second;
            ASSERT_EQ(first.run(builtinTemplate(kind), image, -1), NO_ERROR);
            ASSERT_EQ(second.run(builtinTemplate(kind), image, -1), NO_ERROR);
            const std::string a = summary(first);
            EXPECT_FALSE(a.empty()) << kind;
            EXPECT_EQ(a, summary(second)) << kind << ' ' << image;
            ASSERT_EQ(first->execute(first.input->buffer, AlgorithmType::AllNodes), NO_ERROR);
            EXPECT_EQ(a, summary(first)) << kind << ' ' << image;
        }
    }
}

}  // namespace
}  // namespace kv::testing
