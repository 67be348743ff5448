// The encoder dispatch by algorithm kind and the decode helpers on bad input.
#include <gtest/gtest.h>

#include <cstring>

#include "testing/encoder_test_support.h"
#include "encoding/result_convert.h"

namespace VQFeature {
namespace {

using namespace testing_support;
using Vantor::AlgorithmType;

Blob convert(AlgorithmType type, void* buffer) {
    Blob blob;
    blob.data = encodeResult(type, buffer, &blob.size);
    return blob;
}

TEST(ResultConvertTest, DispatchesByKind) {
    Vantor::PornClsBuffer porn;
    porn.isPorn = 1;
    porn.confidence = 0.5f;
    EXPECT_EQ(json(convert(AlgorithmType::PornCls, &porn), porn_cls_buffer_alloc, porn_cls_buffer_free),
              R"({"is_porn":true,"confidence":0.5})");
    Vantor::FaceClustingBuffer clusters;
    clusters.results = {4};
    EXPECT_EQ(json(convert(AlgorithmType::FaceClusting, &clusters), face_clusting_buffer_alloc, face_clusting_buffer_free),
              R"({"m_results":[4],"m_clusters":[],"m_faceClustingInfo":false})");
    Vantor::VantorBuffer saliency(Vantor::BUFFER_TYPE_SALIENCY_SEG);
    saliency.infos = {Glintcore::makeShared<Vantor::SaliencySegInfo>()};
    Blob saliencyBlob = convert(AlgorithmType::SaliencySeg, &saliency);
    EXPECT_NE(decode(saliencyBlob, saliency_seg_info_alloc, saliency_seg_info_free), nullptr);
    Vantor::VantorBuffer generic;
    EXPECT_EQ(convert(AlgorithmType::SaliencySeg, &generic).data, nullptr);
}

TEST(ResultConvertTest, KindsWithoutEncoderAndNullBuffersGiveNull) {
    Vantor::PornClsBuffer porn;
    for (int kind : {-1, 0, 3, 9, 11, 47, 120, 131, 1000}) {
        unsigned long size = 1234;
        EXPECT_EQ(encodeResult(static_cast<AlgorithmType>(kind), &porn, &size), nullptr)
            << kind;
        EXPECT_EQ(size, 1234u) << kind;
    }
    for (int kind : {4, 7, 8, 10, 12, 25, 29, 30, 33, 46, 58, 60, 71, 95, 121, 130}) {
        unsigned long size = 0;
        EXPECT_EQ(encodeResult(static_cast<AlgorithmType>(kind), nullptr, &size), nullptr)
            << kind;
    }
}

TEST(ResultConvertTest, ClassificationKindsShareOneEncoding) {
    Vantor::NHClassificationBuffer buffer;
    buffer.bufferSize = 1;
    buffer.infos[0] = Glintcore::makeShared<Vantor::NHClassificationInfo>();
    buffer.infos[0]->exceedThresh = {-1};
    buffer.features[0] = Glintcore::makeShared<Vantor::NHClassificationFeature>();
    buffer.features[0]->features = {0.5f, 0.25f};
    buffer.labels = {"relation"};
    Blob nh = convert(AlgorithmType::NHClassification, &buffer);
    Blob relation = convert(AlgorithmType::RelationRecog, &buffer);
    ASSERT_NE(nh.data, nullptr);
    ASSERT_EQ(nh.size, relation.size);
    EXPECT_EQ(std::memcmp(nh.data, relation.data, nh.size), 0);
}

TEST(DecodeHelpersTest, MalformedOrMissingBlobsDecodeToNull) {
    const uint8_t garbage[] = {0xff, 0xff, 0xff, 0xff, 0xff};
    EXPECT_EQ(face_buffer_alloc(garbage, sizeof garbage), nullptr);
    EXPECT_EQ(nhclassification_buffer_alloc(garbage, sizeof garbage), nullptr);
    EXPECT_EQ(porn_cls_buffer_alloc(nullptr, 0), nullptr);
    EXPECT_EQ(after_effect_buffer_alloc(nullptr, 16), nullptr);
    const uint8_t missingRequired[] = {0x08, 0x01};  // is_porn without confidence
    EXPECT_EQ(porn_cls_buffer_alloc(missingRequired, sizeof missingRequired), nullptr);
    face_buffer_free(nullptr);

    // Field number 0 written as a two-byte tag (0x85 0x00: number 0, fixed32), at the top
    // level and inside a cluster; without it the same blobs decode.
    const uint8_t porn[] = {0x08, 0x01, 0x15, 0, 0, 0x80, 0x3f, 0x85, 0x00, 1, 2, 3, 4};
    CPornClsBuffer* valid = porn_cls_buffer_alloc(porn, 7);
    ASSERT_NE(valid, nullptr);
    porn_cls_buffer_free(valid);
    EXPECT_EQ(porn_cls_buffer_alloc(porn, sizeof porn), nullptr);
    const uint8_t cluster[] = {0x18, 0x01, 0x12, 0x02, 0x08, 0x07};
    const uint8_t clusters[] = {0x18, 0x01, 0x12, 0x08, 0x08, 0x07, 0x85, 0x00, 1, 2, 3, 4};
    CFaceClustingBuffer* plain = face_clusting_buffer_alloc(cluster, sizeof cluster);
    ASSERT_NE(plain, nullptr);
    face_clusting_buffer_free(plain);
    EXPECT_EQ(face_clusting_buffer_alloc(clusters, sizeof clusters), nullptr);
}

}  // namespace
}  // namespace VQFeature
