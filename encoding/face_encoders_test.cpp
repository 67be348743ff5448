// Round trips of the face encoders: framework buffer -> blob -> decoded message.
#include <gtest/gtest.h>

#include <string>

#include "encoding/encoder_test_support.h"

namespace VQFeature {
namespace {

using namespace testing_support;
using Glintcore::makeShared;
using Glintcore::SharePtr;

SharePtr<Vantor::Face106> makeFace(float score, Glintcore::Rect rect, int32_t id) {
    auto face = makeShared<Vantor::Face106>();
    face->rect = rect;
    face->score = score;
    face->points = points(106, static_cast<float>(id));
    face->visibility = Glintcore::PrimitiveVector<float>(106, 0.5f + static_cast<float>(id));
    face->yaw = 10.f + id;
    face->pitch = -5.f - id;
    face->roll = 1.5f;
    face->eyeDist = 0.125f;
    face->id = id;
    face->action = 0x80000001u;
    face->trackingCount = 7u + id;
    return face;
}

template <typename Mask>
SharePtr<Mask> makeMask(int32_t id) {
    auto mask = makeShared<Mask>();
    mask->faceMaskSize = 2;
    mask->faceMask = {0, 255, 17, static_cast<uint8_t>(id)};
    mask->warpMat = {1.f, 0.f, -3.5f, 0.f, 1.f, 2.f};
    mask->id = id;
    return mask;
}

template <typename Record>
void expectMask(const Record* mask, int32_t id) {
    EXPECT_EQ(mask->face_mask_size, 2);
    ASSERT_EQ(mask->n_face_mask, 4u);
    EXPECT_EQ(mask->face_mask[1], 255u);
    EXPECT_EQ(mask->face_mask[3], static_cast<uint32_t>(id));
    ASSERT_EQ(mask->n_warp_mat, 6u);
    EXPECT_EQ(mask->warp_mat[2], -3.5f);
    EXPECT_EQ(mask->id, id);
}

void expectFace(const CFace106* face, const Vantor::Face106& source) {
    EXPECT_EQ(face->score, source.score);
    EXPECT_EQ(face->rect->x, source.rect.x);
    EXPECT_EQ(face->rect->y, flippedY(source.rect));
    EXPECT_EQ(face->rect->y_vantor, source.rect.y);
    EXPECT_EQ(face->rect->width, source.rect.width);
    EXPECT_EQ(face->rect->height, source.rect.height);
    ASSERT_EQ(face->n_points_array, 106u);
    for (size_t i = 0; i < 106; ++i) {
        EXPECT_EQ(face->points_array[i]->x, source.points[i].x);
        EXPECT_EQ(face->points_array[i]->y, source.points[i].y);
    }
    ASSERT_EQ(face->n_visibility_array, 106u);
    EXPECT_EQ(face->visibility_array[105], source.visibility[105]);
    EXPECT_EQ(face->yaw, source.yaw);
    EXPECT_EQ(face->pitch, source.pitch);
    EXPECT_EQ(face->roll, source.roll);
    EXPECT_EQ(face->eye_dist, source.eyeDist);
    EXPECT_EQ(face->id, source.id);
    EXPECT_EQ(face->action, source.action);
    EXPECT_EQ(face->tracking_cnt, source.trackingCount);
}

TEST(FaceEncoderTest, RoundTripsEveryListAndWritesTheDiagnosticLine) {
    Vantor::FaceBuffer buffer;
    buffer.imageWidth = 1920;
    buffer.imageHeight = 1080;
    buffer.faces = {makeFace(0.5f, {0.1f, 0.2f, 0.3f, 0.4f}, 1), makeFace(0.75f, {0.5f, 0.25f, 0.125f, 0.125f}, 2)};
    auto extra = makeShared<Vantor::FaceExtra>();
    extra->eyeCount = 8;
    extra->eyebrowCount = 9;
    extra->lipsCount = 10;
    extra->irisCount = 11;
    extra->eyeLeft = points(8, 1.f);
    extra->eyeRight = points(8, 2.f);
    extra->eyebrowLeft = points(9, 3.f);
    extra->eyebrowRight = points(9, 4.f);
    extra->lips = points(10, 5.f);
    extra->leftIris = points(11, 6.f);
    buffer.extras = {extra};  // right iris left empty
    buffer.mouthMasks = {makeMask<Vantor::FaceMouthMask>(1)};
    buffer.teethMasks = {makeMask<Vantor::FaceTeethMask>(2), makeMask<Vantor::FaceTeethMask>(3)};
    buffer.faceMasks = {makeMask<Vantor::FaceFaceMask>(4)};
    auto occlusion = makeShared<Vantor::FaceOcclusion>();
    occlusion->prob = 0.875f;
    occlusion->id = 2;
    buffer.occlusions = {occlusion, occlusion, occlusion};

    ::testing::internal::CaptureStdout();
    Blob blob = encode(&buffer);
    const std::string line = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(line,
              "[VQFE]FaceBuffer: size=2"
              " score=0.5 rect=(0.1,0.2,0.3,0.3) n_points_array=106 n_visibility_array=106"
              " c_score=0.5 c_rect=(0.1,0.4,0.3,0.3) c_n_points_array=106 c_n_visibility_array=106"
              " score=0.75 rect=(0.5,0.25,0.125,0.125) n_points_array=106 n_visibility_array=106"
              " c_score=0.75 c_rect=(0.5,0.625,0.125,0.125) c_n_points_array=106 c_n_visibility_array=106\n");

    auto face = decode(blob, face_buffer_alloc, face_buffer_free);
    ASSERT_NE(face, nullptr);
    EXPECT_EQ(face->m_width, 1920);
    EXPECT_EQ(face->m_height, 1080);
    ASSERT_EQ(face->n_m_facebaseinfos, 2u);
    expectFace(face->m_facebaseinfos[0], *buffer.faces[0]);
    expectFace(face->m_facebaseinfos[1], *buffer.faces[1]);

    ASSERT_EQ(face->n_m_faceextrainfos, 1u);
    const CFaceExtra* e = face->m_faceextrainfos[0];
    EXPECT_EQ(e->eye_count, 8);
    EXPECT_EQ(e->eyebrow_count, 9);
    EXPECT_EQ(e->lips_count, 10);
    EXPECT_EQ(e->iris_count, 11);
    ASSERT_EQ(e->n_eye_left, 8u);
    EXPECT_EQ(e->eye_left[7]->x, 8.f);
    EXPECT_EQ(e->eye_right[0]->y, 2.f);
    ASSERT_EQ(e->n_eyebrow_left, 9u);
    EXPECT_EQ(e->eyebrow_left[1]->y, 2.f);
    EXPECT_EQ(e->eyebrow_right[8]->x, 12.f);
    ASSERT_EQ(e->n_lips, 10u);
    EXPECT_EQ(e->lips[9]->y, -4.f);
    ASSERT_EQ(e->n_left_iris, 11u);
    EXPECT_EQ(e->left_iris[10]->x, 16.f);
    EXPECT_EQ(e->n_right_iris, 0u);

    ASSERT_EQ(face->n_m_facemouthmask, 1u);
    expectMask(face->m_facemouthmask[0], 1);
    ASSERT_EQ(face->n_m_faceteethmask, 2u);
    expectMask(face->m_faceteethmask[1], 3);
    ASSERT_EQ(face->n_m_facefacemask, 1u);
    expectMask(face->m_facefacemask[0], 4);
    ASSERT_EQ(face->n_m_faceocclusion, 3u);  // independent of the face count
    EXPECT_EQ(face->m_faceocclusion[2]->prob, 0.875f);
    EXPECT_EQ(face->m_faceocclusion[2]->id, 2);
}

TEST(FaceEncoderTest, EmptyBufferAndNullElements) {
    Vantor::FaceBuffer empty;
    ::testing::internal::CaptureStdout();
    Blob blob = encode(&empty);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[VQFE]FaceBuffer: size=0\n");
    EXPECT_EQ(blob.size, 4u);  // the two required sizes only
    auto face = decode(blob, face_buffer_alloc, face_buffer_free);
    ASSERT_NE(face, nullptr);
    EXPECT_EQ(face->n_m_facebaseinfos + face->n_m_faceocclusion, 0u);

    // A null element carries no result: it is skipped, never dereferenced.
    Vantor::FaceBuffer holes;
    holes.faces = {nullptr, makeFace(0.25f, {}, 5)};
    holes.extras = {nullptr};
    holes.occlusions = {nullptr};
    ::testing::internal::CaptureStdout();
    Blob withHoles = encode(&holes);
    EXPECT_EQ(::testing::internal::GetCapturedStdout().rfind("[VQFE]FaceBuffer: size=2 score=0.25 ", 0), 0u);
    auto decoded = decode(withHoles, face_buffer_alloc, face_buffer_free);
    ASSERT_NE(decoded, nullptr);
    ASSERT_EQ(decoded->n_m_facebaseinfos, 1u);
    EXPECT_EQ(decoded->m_facebaseinfos[0]->id, 5);
    EXPECT_EQ(decoded->n_m_faceextrainfos + decoded->n_m_faceocclusion, 0u);

    unsigned long size = 77;
    EXPECT_EQ(convertToBlob(static_cast<Vantor::FaceBuffer*>(nullptr), &size), nullptr);
    EXPECT_EQ(size, 77u);
}

SharePtr<Vantor::FaceVerifyInfo> makeVerifyInfo(int32_t id, const char* version) {
    auto info = makeShared<Vantor::FaceVerifyInfo>();
    info->features = {0.25f, -0.5f, static_cast<float>(id)};
    info->face = *makeFace(0.5f, {0.1f, 0.1f, 0.2f, 0.2f}, id);
    info->id = id;
    info->rect = {0.3f, 0.1f, 0.2f, 0.6f};
    info->faceStatus = -id;
    info->modelVersion = version;
    return info;
}

TEST(FaceEncoderTest, VerifyAttributeAndClusteringRoundTrip) {
    Vantor::FaceVerifyBuffer verify;
    verify.faceVerifyInfos = {makeVerifyInfo(1, "v1.2"), makeVerifyInfo(2, "")};
    verify.dynamicInfos = {makeVerifyInfo(3, "dyn"), nullptr};
    verify.needUpdate = true;
    verify.validFaceNum = 2;
    verify.dynamicFaceNum = 1;
    ::testing::internal::CaptureStdout();  // keep the test output clean of other lines
    Blob verifyBlob = encode(&verify);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    auto v = decode(verifyBlob, face_verify_buffer_alloc, face_verify_buffer_free);
    ASSERT_NE(v, nullptr);
    EXPECT_TRUE(v->needupdate);
    EXPECT_EQ(v->m_validfacenum, 2);
    EXPECT_EQ(v->m_dynamicfacenum, 1);
    ASSERT_EQ(v->n_m_faceverifyinfos, 2u);
    ASSERT_EQ(v->n_m_dynamicinfos, 1u);
    const CFaceVerifyInfo* first = v->m_faceverifyinfos[0];
    EXPECT_STREQ(first->m_modelversion, "v1.2");
    EXPECT_STREQ(v->m_faceverifyinfos[1]->m_modelversion, "");
    EXPECT_STREQ(v->m_dynamicinfos[0]->m_modelversion, "dyn");
    ASSERT_EQ(first->n_features, 3u);
    EXPECT_EQ(first->features[1], -0.5f);
    EXPECT_EQ(first->id, 1);
    EXPECT_EQ(first->m_facestatus, -1);
    EXPECT_FLOAT_EQ(first->rect->y, 0.3f);
    EXPECT_EQ(first->rect->y_vantor, 0.1f);
    expectFace(first->m_face106, verify.faceVerifyInfos[0]->face);

    Vantor::FaceAttributeBuffer attributes;
    auto attribute = makeShared<Vantor::FaceAttribute>();
    attribute->age = 31.5f;
    attribute->boyProb = 0.25f;
    attribute->gender = 1;
    attribute->attractive = 0.75f;
    attribute->happyScore = 0.125f;
    attribute->expType = 3;
    attribute->expProbs = {0.1f, 0.2f, 0.3f, 0.4f};
    attribute->realFaceProb = 0.9f;
    attribute->quality = 0.8f;
    attributes.attributes = {attribute, nullptr, attribute};
    Blob attributeBlob = encode(&attributes);
    auto a = decode(attributeBlob, face_attribute_buffer_alloc, face_attribute_buffer_free);
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(a->n_m_faceattributeinfos, 2u);
    const CFaceAttribute* attr = a->m_faceattributeinfos[1];
    EXPECT_EQ(attr->age, 31.5f);
    EXPECT_EQ(attr->boy_prob, 0.25f);
    EXPECT_EQ(attr->gender, 1);
    EXPECT_EQ(attr->attractive, 0.75f);
    EXPECT_EQ(attr->happy_score, 0.125f);
    EXPECT_EQ(attr->exp_type, 3);
    ASSERT_EQ(attr->n_exp_probs, 4u);
    EXPECT_EQ(attr->exp_probs[3], 0.4f);
    EXPECT_EQ(attr->real_face_prob, 0.9f);
    EXPECT_EQ(attr->quality, 0.8f);

    Vantor::FaceClustingBuffer clusters;
    clusters.results = {0, 1, -1, 1};
    clusters.clusters = {{0}, {1, 3}, {}};
    clusters.clustingInfo.flag = 1;
    Blob clusterBlob = encode(&clusters);
    auto c = decode(clusterBlob, face_clusting_buffer_alloc, face_clusting_buffer_free);
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(c->n_m_results, 4u);
    EXPECT_EQ(c->m_results[2], -1);
    ASSERT_EQ(c->n_m_clusters, 3u);
    ASSERT_EQ(c->m_clusters[1]->n_i, 2u);
    EXPECT_EQ(c->m_clusters[1]->i[1], 3);
    EXPECT_EQ(c->m_clusters[2]->n_i, 0u);
    EXPECT_TRUE(c->m_faceclustinginfo);
}

}  // namespace
}  // namespace VQFeature
