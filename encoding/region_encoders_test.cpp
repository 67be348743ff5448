// Round trips of the region encoders, with their deliberate field shifts.
#include <gtest/gtest.h>

#include "testing/encoder_test_support.h"

namespace VQFeature {
namespace {

using namespace testing_support;
using Glintcore::makeShared;

TEST(RegionEncoderTest, PetMattingAndPetFacesRoundTrip) {
    Vantor::PetMattingBuffer matting;
    auto info = makeShared<Vantor::PetMattingInfo>();
    info->maskCount = 2;
    info->maskWidth = 3;
    info->maskHeight = 1;
    info->mask0 = {0, 255, 255};
    info->mask1 = {1, 2, 254};
    matting.info = info;
    EXPECT_EQ(json(encode(&matting), pet_matting_buffer_alloc, pet_matting_buffer_free),
              R"({"m_petMattingInfo":{"maskCount":2,"maskWidth":3,"maskHeight":1,"mask0":[0,255,255],"mask1":[1,2,254]}})");
    Vantor::PetMattingBuffer noInfo;  // the info is required: no result
    unsigned long size = 5;
    EXPECT_EQ(convertToBlob(&noInfo, &size), nullptr);
    EXPECT_EQ(size, 5u);

    Vantor::FacePetDetectBuffer pets;
    auto cat = makeShared<Vantor::FacePetInfo>();
    cat->facePetType = 1;
    cat->rect = {0.25f, 0.5f, 0.25f, 0.125f};
    cat->score = 0.75f;
    cat->points = points(2, 0.25f);
    cat->yaw = -12.5f;
    cat->pitch = 3.f;
    cat->roll = 0.5f;
    cat->id = 6;
    cat->action = 0x80000002u;
    cat->earType = -1;
    pets.infos = {cat, nullptr};
    EXPECT_EQ(json(encode(&pets), face_pet_detect_buffer_alloc, face_pet_detect_buffer_free),
              R"({"m_facePetInfos":[{"face_pet_type":1,)"
              R"("rect":{"x":0.25,"y":0.375,"y_vantor":0.5,"width":0.25,"height":0.125},)"
              R"("score":0,)"  // never carried
              R"("points_array":[{"x":0.25,"y":0.25},{"x":1.25,"y":-0.75}],)"
              R"("yaw":-12.5,"pitch":3,"roll":0.5,"Id":6,"action":2147483650,"ear_type":-1}]})");
}

TEST(RegionEncoderTest, SaliencyNeedsAGenericBufferOfType47) {
    Vantor::VantorBuffer buffer(Vantor::BUFFER_TYPE_SALIENCY_SEG);
    auto info = makeShared<Vantor::SaliencySegInfo>();
    info->valid = true;
    info->realW = 640.f;
    info->realH = 480.f;
    info->imgW = 2.f;
    info->imgH = 3.f;
    info->bboxCenterX = 0.5f;
    info->bboxCenterY = 0.25f;
    info->bboxWidth = 0.125f;
    info->bboxHeight = 0.0625f;
    info->bboxRotateAngle = 90.f;
    info->modelIndex = 3;
    info->alpha = {255, 0, 128};
    info->input = {9, 8, 255};
    buffer.infos = {info};
    EXPECT_EQ(json(encode(&buffer), saliency_seg_info_alloc, saliency_seg_info_free),
              R"({"valid":true,"realW":640,"realH":480,"img_w":2,"img_H":3,"bboxcenterX":0.5,"bboxcenterY":0.25,)"
              R"("bboxwidth":0.125,"bboxheight":0.0625,"bboxrotateAngle":90,"modelIndex":3,)"
              R"("alpha":[255,0,128],"input":[9,8,255]})");
    EXPECT_EQ(info->refCount(), 2);  // the reference held while converting is given back

    unsigned long size = 0;
    Vantor::VantorBuffer otherType(Vantor::BUFFER_TYPE_GENERIC);
    otherType.infos = {info};
    EXPECT_EQ(convertToBlob(&otherType, &size), nullptr);
    Vantor::VantorBuffer noInfo(Vantor::BUFFER_TYPE_SALIENCY_SEG);
    EXPECT_EQ(convertToBlob(&noInfo, &size), nullptr);
    noInfo.infos = {nullptr};
    EXPECT_EQ(convertToBlob(&noInfo, &size), nullptr);
    Vantor::VantorBuffer wrongInfo(Vantor::BUFFER_TYPE_SALIENCY_SEG);
    wrongInfo.infos = {makeShared<Vantor::VantorBufferInfo>()};
    EXPECT_EQ(convertToBlob(&wrongInfo, &size), nullptr);
}

TEST(RegionEncoderTest, SkeletonKeepsItsFieldShifts) {
    Vantor::SkeletonBuffer buffer;
    auto person = makeShared<Vantor::SkeletonInfo>();
    person->id = 2;
    person->rect = {0.25f, 0.5f, 0.25f, 0.125f};
    person->keyPoints = points(2, 0.5f);
    person->keyPointsDetected = {1, 255};
    person->keyPointsScore = {0.5f, 0.75f};
    person->orientation = 2;
    buffer.infos = {person, nullptr, person};
    buffer.isExecuted = true;
    buffer.sourceWidth = 1920;
    buffer.sourceHeight = 1080;
    buffer.backboneFeats = {1.f, 2.f, 3.f};
    buffer.backboneFeatDim = 3;
    buffer.heatmaps = {0.25f, 0.75f};
    buffer.heatmapDim = 64;
    buffer.isBackboneFeatsValid = true;
    const std::string person2 =
        R"({"ID":2,"rect":{"x":0.25,"y":0.375,"y_vantor":0.5,"width":0.25,"height":0.125},)"
        R"("key_points_xy":[{"x":0.5,"y":0.5},{"x":1.5,"y":-0.5}],"key_points_detected":[1,255],)"
        R"("key_points_score":[0.5,0.75],"orientation":0})";  // orientation never filled
    EXPECT_EQ(json(encode(&buffer), skeleton_buffer_alloc, skeleton_buffer_free),
              R"({"m_skeletonInfos":[)" + person2 + "," + person2 + R"(],"m_isExecuted":true,)"
              R"("m_sourceWidth":1,"m_sourceHeight":1,)"  // the executed flag, not the size
              R"("m_backboneFeats":[1,2,3],"m_backbonFeatDim":3,"m_heatmaps":[0.25,0.75],)"
              R"("m_heatmapDim":1,"m_isBackboneFeatsValid":false})");  // shifted by one field
}

TEST(RegionEncoderTest, MattingRoundTripsAndNeedsItsResult) {
    Vantor::MattingBuffer buffer;
    auto result = makeShared<Vantor::MattingResult>();
    result->width = 3;
    result->height = 1;
    result->mask = {255, 0, 200};
    result->rect = {0.25f, 0.5f, 0.5f, 0.25f};
    buffer.result = result;
    EXPECT_EQ(json(encode(&buffer), matting_result_alloc, matting_result_free),
              R"({"width":3,"height":1,"maskData":[255,0,200],)"
              R"("resultRect":{"x":0.25,"y":0.25,"y_vantor":0.5,"width":0.5,"height":0.25}})");
    Vantor::MattingBuffer empty;
    unsigned long size = 0;
    EXPECT_EQ(convertToBlob(&empty, &size), nullptr);
}

}  // namespace
}  // namespace VQFeature
