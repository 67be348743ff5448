#include "encoding/record_conversion.h"

#include <gtest/gtest.h>

#include "encoding/encoder_test_support.h"

namespace VQFeature {
namespace {

TEST(RecordConversionTest, RectangleKeepsFrameworkYAndFlipsY) {
    CRect* rect = allocCRect({0.1f, 0.2f, 0.3f, 0.4f});
    EXPECT_FLOAT_EQ(rect->x, 0.1f);
    EXPECT_FLOAT_EQ(rect->y, 0.4f);
    EXPECT_EQ(rect->y, (1.0f - 0.2f) - 0.4f);  // single precision, as computed
    EXPECT_FLOAT_EQ(rect->y_vantor, 0.2f);
    EXPECT_FLOAT_EQ(rect->width, 0.3f);
    EXPECT_FLOAT_EQ(rect->height, 0.4f);
    freeCRect(rect);
}

TEST(RecordConversionTest, BytesWidenByTheirSignedness) {
    Vantor::FaceMouthMask mask;
    mask.faceMaskSize = 2;
    mask.faceMask = {0, 1, 128, 255};
    mask.warpMat = {1.5f, -2.25f};
    mask.id = 9;
    CFaceMouthMask* record = allocCFaceMouthMask(mask);
    ASSERT_EQ(record->n_face_mask, 4u);
    EXPECT_EQ(record->face_mask[2], 128u);
    EXPECT_EQ(record->face_mask[3], 255u);  // zero-extended, not -1
    ASSERT_EQ(record->n_warp_mat, 2u);
    EXPECT_EQ(record->warp_mat[1], -2.25f);
    EXPECT_EQ(record->face_mask_size, 2);
    EXPECT_EQ(record->id, 9);
    freeCFaceMouthMask(record);

    Vantor::NHClassificationInfo info;
    info.id = {3, 7};
    info.confidence = {0.5f, 0.25f};
    info.exceedThresh = {1, -1, -128};
    info.numClasses = 2;
    CNHClassificationInfo* classification = allocCNHClassificationInfo(info);
    ASSERT_EQ(classification->n_exceedthresh, 3u);
    EXPECT_EQ(classification->exceedthresh[0], 1);
    EXPECT_EQ(classification->exceedthresh[1], -1);  // sign-extended
    EXPECT_EQ(classification->exceedthresh[2], -128);
    EXPECT_EQ(classification->id[1], 7);
    EXPECT_EQ(classification->confidence[1], 0.25f);
    EXPECT_EQ(classification->numclasses, 2);
    freeCNHClassificationInfo(classification);
}

TEST(RecordConversionTest, EmptyListsGiveZeroCountsThatFreeAccepts) {
    unsigned long count = 99;
    CFloat2** none = allocCFloat2({}, &count);
    EXPECT_EQ(count, 0u);
    freeCFloat2(none, count);

    CFaceExtra* extra = allocCFaceExtra(Vantor::FaceExtra());
    EXPECT_EQ(extra->n_eye_left + extra->n_right_iris + extra->n_lips, 0u);
    freeCFaceExtra(extra);

    // Every free function takes null.
    freeCFace106(nullptr);
    freeCFaceExtra(nullptr);
    freeFaceAttr(nullptr);
    freeCFaceVerifyInfo(nullptr);
    freeCSkeletonInfo(nullptr);
    freeCFloat2(nullptr, 3);

    Glintcore::SharePtr<Vantor::FaceVerifyInfo> missing;
    EXPECT_EQ(allocCFaceVerifyInfo(missing), nullptr);
}

TEST(RecordConversionTest, SkeletonInfoLeavesOrientationZero) {
    Vantor::SkeletonInfo person;
    person.id = 4;
    person.rect = {0.25f, 0.5f, 0.25f, 0.125f};
    person.keyPoints = testing_support::points(17, 0.5f);
    person.keyPointsDetected = Glintcore::PrimitiveVector<uint8_t>(17, 200);
    person.keyPointsScore = Glintcore::PrimitiveVector<float>(17, 0.75f);
    person.orientation = 3;
    CSkeletonInfo* record = allocCSkeletonInfo(person);
    EXPECT_EQ(record->id, 4);
    EXPECT_EQ(record->orientation, 0);
    EXPECT_FLOAT_EQ(record->rect->y, 0.375f);
    ASSERT_EQ(record->n_key_points_xy, 17u);
    EXPECT_EQ(record->key_points_xy[16]->x, 16.5f);
    EXPECT_EQ(record->key_points_detected[5], 200u);
    EXPECT_EQ(record->key_points_score[16], 0.75f);
    freeCSkeletonInfo(record);
}

}  // namespace
}  // namespace VQFeature
