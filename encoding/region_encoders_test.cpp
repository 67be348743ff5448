// Round trips of the region encoders, with their deliberate field shifts.
#include <gtest/gtest.h>

#include "encoding/encoder_test_support.h"

namespace VQFeature {
namespace {

using namespace testing_support;
using Glintcore::makeShared;

TEST(RegionEncoderTest, PetMattingAndPetFacesRoundTrip) {
    Vantor::PetMattingBuffer matting;
    auto info = makeShared<Vantor::PetMattingInfo>();
    info->maskCount = 2;
    info->maskWidth = 2;
    info->maskHeight = 2;
    info->mask0 = {0, 255, 255, 0};
    info->mask1 = {1, 2, 3, 254};
    matting.info = info;
    Blob mattingBlob = encode(&matting);
    auto m = decode(mattingBlob, pet_matting_buffer_alloc, pet_matting_buffer_free);
    ASSERT_NE(m, nullptr);
    const CPetMattingInfo* mi = m->m_petmattinginfo;
    EXPECT_EQ(mi->maskcount, 2);
    EXPECT_EQ(mi->maskwidth, 2);
    EXPECT_EQ(mi->maskheight, 2);
    ASSERT_EQ(mi->n_mask0, 4u);
    EXPECT_EQ(mi->mask0[1], 255u);
    ASSERT_EQ(mi->n_mask1, 4u);
    EXPECT_EQ(mi->mask1[3], 254u);

    Vantor::PetMattingBuffer noInfo;  // the info is required: no result
    unsigned long size = 5;
    EXPECT_EQ(convertToBlob(&noInfo, &size), nullptr);
    EXPECT_EQ(size, 5u);

    Vantor::FacePetDetectBuffer pets;
    auto cat = makeShared<Vantor::FacePetInfo>();
    cat->facePetType = 1;
    cat->rect = {0.1f, 0.2f, 0.3f, 0.4f};
    cat->score = 0.95f;
    cat->points = points(9, 0.25f);
    cat->yaw = -12.5f;
    cat->pitch = 3.f;
    cat->roll = 0.5f;
    cat->id = 6;
    cat->action = 2u;
    cat->earType = -1;
    pets.infos = {cat, nullptr};
    Blob petBlob = encode(&pets);
    auto p = decode(petBlob, face_pet_detect_buffer_alloc, face_pet_detect_buffer_free);
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(p->n_m_facepetinfos, 1u);
    const CFacePetInfo* pet = p->m_facepetinfos[0];
    EXPECT_EQ(pet->face_pet_type, 1);
    EXPECT_EQ(pet->rect->y, flippedY(cat->rect));
    EXPECT_EQ(pet->rect->y_vantor, 0.2f);
    EXPECT_EQ(pet->score, 0.f);  // never carried
    ASSERT_EQ(pet->n_points_array, 9u);
    EXPECT_EQ(pet->points_array[8]->y, 0.25f - 8.f);
    EXPECT_EQ(pet->yaw, -12.5f);
    EXPECT_EQ(pet->pitch, 3.f);
    EXPECT_EQ(pet->roll, 0.5f);
    EXPECT_EQ(pet->id, 6);
    EXPECT_EQ(pet->action, 2u);
    EXPECT_EQ(pet->ear_type, -1);
}

TEST(RegionEncoderTest, SaliencyNeedsAGenericBufferOfType47) {
    Vantor::VantorBuffer buffer(Vantor::BUFFER_TYPE_SALIENCY_SEG);
    auto info = makeShared<Vantor::SaliencySegInfo>();
    info->valid = true;
    info->realW = 640.f;
    info->realH = 480.f;
    info->imgW = 2.f;
    info->imgH = 2.f;
    info->bboxCenterX = 0.5f;
    info->bboxCenterY = 0.25f;
    info->bboxWidth = 0.125f;
    info->bboxHeight = 0.0625f;
    info->bboxRotateAngle = 90.f;
    info->modelIndex = 3;
    info->alpha = {255, 0, 128, 1};
    info->input = {9, 8, 7, 255};
    buffer.infos = {info};
    Blob blob = encode(&buffer);
    auto s = decode(blob, saliency_seg_info_alloc, saliency_seg_info_free);
    ASSERT_NE(s, nullptr);
    EXPECT_TRUE(s->valid);
    EXPECT_EQ(s->realw, 640.f);
    EXPECT_EQ(s->realh, 480.f);
    EXPECT_EQ(s->img_w, 2.f);
    EXPECT_EQ(s->img_h, 2.f);
    EXPECT_EQ(s->bboxcenterx, 0.5f);
    EXPECT_EQ(s->bboxcentery, 0.25f);
    EXPECT_EQ(s->bboxwidth, 0.125f);
    EXPECT_EQ(s->bboxheight, 0.0625f);
    EXPECT_EQ(s->bboxrotateangle, 90.f);
    EXPECT_EQ(s->modelindex, 3);
    ASSERT_EQ(s->n_alpha, 4u);
    EXPECT_EQ(s->alpha[0], 255u);
    ASSERT_EQ(s->n_input, 4u);
    EXPECT_EQ(s->input[3], 255u);
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
    person->rect = {0.f, 0.f, 1.f, 1.f};
    person->keyPoints = points(17, 0.5f);
    person->keyPointsDetected = Glintcore::PrimitiveVector<uint8_t>(17, 1);
    person->keyPointsDetected[3] = 255;
    person->keyPointsScore = Glintcore::PrimitiveVector<float>(17, 0.5f);
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
    Blob blob = encode(&buffer);
    auto s = decode(blob, skeleton_buffer_alloc, skeleton_buffer_free);
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->n_m_skeletoninfos, 2u);
    const CSkeletonInfo* info = s->m_skeletoninfos[1];
    EXPECT_EQ(info->id, 2);
    EXPECT_EQ(info->rect->y, 0.f);
    EXPECT_EQ(info->rect->height, 1.f);
    ASSERT_EQ(info->n_key_points_xy, 17u);
    ASSERT_EQ(info->n_key_points_detected, 17u);
    EXPECT_EQ(info->key_points_detected[3], 255u);
    ASSERT_EQ(info->n_key_points_score, 17u);
    EXPECT_EQ(info->orientation, 0);
    EXPECT_TRUE(s->m_isexecuted);
    EXPECT_EQ(s->m_sourcewidth, 1);   // the executed flag, not the width
    EXPECT_EQ(s->m_sourceheight, 1);  // the executed flag, not the height
    ASSERT_EQ(s->n_m_backbonefeats, 3u);
    EXPECT_EQ(s->m_backbonefeats[2], 3.f);
    EXPECT_EQ(s->m_backbonfeatdim, 3);
    ASSERT_EQ(s->n_m_heatmaps, 2u);
    EXPECT_EQ(s->m_heatmaps[1], 0.75f);
    EXPECT_EQ(s->m_heatmapdim, 1);  // the backbone-valid flag, not the dimension
    EXPECT_FALSE(s->m_isbackbonefeatsvalid);
}

TEST(RegionEncoderTest, MattingRoundTripsAndNeedsItsResult) {
    Vantor::MattingBuffer buffer;
    auto result = makeShared<Vantor::MattingResult>();
    result->width = 3;
    result->height = 1;
    result->mask = {255, 0, 200};
    result->rect = {0.25f, 0.5f, 0.5f, 0.25f};
    buffer.result = result;
    Blob blob = encode(&buffer);
    auto m = decode(blob, matting_result_alloc, matting_result_free);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->width, 3);
    EXPECT_EQ(m->height, 1);
    ASSERT_EQ(m->n_maskdata, 3u);
    EXPECT_EQ(m->maskdata[0], 255u);
    EXPECT_EQ(m->maskdata[2], 200u);
    EXPECT_EQ(m->resultrect->x, 0.25f);
    EXPECT_EQ(m->resultrect->y, 0.25f);
    EXPECT_EQ(m->resultrect->y_vantor, 0.5f);
    EXPECT_EQ(m->resultrect->width, 0.5f);

    Vantor::MattingBuffer empty;
    unsigned long size = 0;
    EXPECT_EQ(convertToBlob(&empty, &size), nullptr);
}

}  // namespace
}  // namespace VQFeature
