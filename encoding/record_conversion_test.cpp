// The record converters' edge cases; their field mappings are checked through the
// encoder round trips.
#include "encoding/record_conversion.h"

#include <gtest/gtest.h>

namespace VQFeature {
namespace {

TEST(RecordConversionTest, EmptyListsGiveZeroCountsAndEveryFreeTakesNull) {
    unsigned long count = 99;
    CFloat2** none = allocCFloat2({}, &count);
    EXPECT_EQ(count, 0u);
    freeCFloat2(none, count);

    CFaceExtra* extra = allocCFaceExtra(Vantor::FaceExtra());
    EXPECT_EQ(extra->n_eye_left + extra->n_right_iris + extra->n_lips, 0u);
    freeCFaceExtra(extra);

    freeCFace106(nullptr);
    freeCFaceExtra(nullptr);
    freeFaceAttr(nullptr);
    freeCFaceVerifyInfo(nullptr);
    freeCSkeletonInfo(nullptr);
    freeCFloat2(nullptr, 3);

    Glintcore::SharePtr<Vantor::FaceVerifyInfo> missing;
    EXPECT_EQ(allocCFaceVerifyInfo(missing), nullptr);
}

}  // namespace
}  // namespace VQFeature
