#include "extractor/result.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "extractor/algorithm_types.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

// A malloc blob holding the packed message, as the encoders make them.
struct Packed {
    void* blob;
    int length;
};

template <typename Message>
Packed packed(const Message& message) {
    const size_t n = protobuf_c_message_get_packed_size(&message.base);
    void* blob = std::malloc(n);
    protobuf_c_message_pack(&message.base, static_cast<uint8_t*>(blob));
    return {blob, static_cast<int>(n)};
}

Packed faceBlob(int32_t width) {
    CFaceBuffer face = C__FACE_BUFFER__INIT;
    face.m_width = width;
    face.m_height = 2 * width;
    return packed(face);
}

Packed classificationBlob(uint64_t bufferSize) {
    CNHClassificationBuffer classification = C__NHCLASSIFICATION_BUFFER__INIT;
    classification.m_buffersize = bufferSize;
    return packed(classification);
}

TEST(ResultTest, FirstMatchingAccessConsumesTheBlob) {
    const Packed packedFace = faceBlob(640);
    void* blob = packedFace.blob;
    const int length = packedFace.length;
    Result result("asset", "key", AlgorithmType::Face, blob, length);
    EXPECT_EQ(result.sceneRecogBuffer(), nullptr);  // another kind: blob untouched
    EXPECT_EQ(result.result, blob);

    CFaceBuffer* face = result.faceBuffer();
    ASSERT_NE(face, nullptr);
    EXPECT_EQ(face->m_width, 640);
    EXPECT_EQ(face->m_height, 1280);
    EXPECT_EQ(result.result, nullptr);
    EXPECT_EQ(result.resultLength, static_cast<unsigned long>(length));  // length stays
    EXPECT_EQ(result.faceBuffer(), face);  // the decoded record is kept
    EXPECT_EQ(result.skeletonBuffer(), nullptr);
    EXPECT_EQ(result.c300Buffer(), nullptr);

    result.freeStructResult();  // released; the blob is gone, so nothing decodes again
    EXPECT_EQ(result.faceBuffer(), nullptr);
}

TEST(ResultTest, ConstructorsAndBlobOperations) {
    Result noBlob("a", "k", AlgorithmType::AfterEffect);
    EXPECT_EQ(noBlob.afterEffectBuffer(), nullptr);  // no blob, no record

    // The length passes through a signed int and is widened with its sign.
    Result negative("a", "k", AlgorithmType::Face, nullptr, -1);
    EXPECT_EQ(negative.resultLength, static_cast<unsigned long>(-1L));
    EXPECT_EQ(negative.faceBuffer(), nullptr);

    Result copy("a", "k", AlgorithmType::PornCls);
    const char bytes[] = {0x08, 0x01, 0x15, 0x00, 0x00, 0x00, 0x3f};  // is_porn, confidence 0.5
    copy.setResultNative(bytes, sizeof bytes);
    copy.setResultNative(bytes, sizeof bytes);  // replaces the earlier copy
    EXPECT_EQ(copy.resultLength, 0u);            // the caller sets the length
    char four[4] = {};
    copy.memcpyStructResult(four, sizeof four);  // copies what dest holds, whatever resultLength says
    EXPECT_EQ(std::memcmp(four, bytes, sizeof four), 0);
    copy.resultLength = sizeof bytes;
    char out[sizeof bytes + 4];
    std::memset(out, 0x55, sizeof out);
    copy.memcpyStructResult(out, sizeof out);  // stops at the blob's end
    EXPECT_EQ(std::memcmp(out, bytes, sizeof bytes), 0);
    EXPECT_EQ(std::memcmp(out + sizeof bytes, "\x55\x55\x55\x55", 4), 0);
    ASSERT_NE(copy.pornClsBuffer(), nullptr);
    EXPECT_EQ(copy.pornClsBuffer()->confidence, 0.5f);
    copy.memcpyStructResult(out, sizeof out);  // the blob is gone: nothing to copy

    const Packed freedBlob = faceBlob(1);
    Result freed("a", "k", AlgorithmType::Face, freedBlob.blob, freedBlob.length);
    freed.freeResult();
    EXPECT_EQ(freed.result, nullptr);
    EXPECT_EQ(freed.resultLength, static_cast<unsigned long>(freedBlob.length));
    EXPECT_EQ(freed.faceBuffer(), nullptr);

    void* handed = faceBlob(1).blob;
    Result reset("a", "k", AlgorithmType::Face, handed, 4);
    reset.resetData();
    EXPECT_EQ(reset.result, nullptr);
    EXPECT_EQ(reset.resultLength, 0u);
    std::free(handed);  // the new owner releases it
}

TEST(ResultTest, ClassificationKindsAndStringKinds) {
    const Packed nhBlob = classificationBlob(3);
    Result nh("a", "k", AlgorithmType::NHClassification, nhBlob.blob, nhBlob.length);
    ASSERT_NE(nh.nHClassificationBuffer(), nullptr);
    EXPECT_EQ(nh.nHClassificationBuffer()->m_buffersize, 3u);

    // Kind 130 decodes too; its record is released with the Result (LeakSanitizer checks).
    const Packed relationBlob = classificationBlob(4);
    Result relation("a", "k", AlgorithmType::RelationRecog, relationBlob.blob, relationBlob.length);
    EXPECT_EQ(relation.relationRecogBuffer(), nullptr);  // string-kind accessors: MultiResult only
    ASSERT_NE(relation.nHClassificationBuffer(), nullptr);
    EXPECT_EQ(relation.nHClassificationBuffer()->m_buffersize, 4u);
    relation.freeStructResult();
    EXPECT_EQ(relation.nHClassificationBuffer(), nullptr);
    const Packed droppedBlob = classificationBlob(7);
    {
        Result dropped("a", "k", AlgorithmType::RelationRecog, droppedBlob.blob, droppedBlob.length);
        ASSERT_NE(dropped.nHClassificationBuffer(), nullptr);
    }  // released by the destructor

    const Packed stringKindBlob = classificationBlob(5);
    Result stringKind("a", "k", std::string(AlgorithmTypeC300), stringKindBlob.blob, stringKindBlob.length);
    EXPECT_EQ(stringKind.algorithmType, AlgorithmType::AllNodes);
    EXPECT_EQ(stringKind.nHClassificationBuffer(), nullptr);
    EXPECT_EQ(stringKind.c300Buffer(), nullptr);
    EXPECT_EQ(stringKind.faceBuffer(), nullptr);
    EXPECT_NE(stringKind.result, nullptr);  // nothing consumed it
    EXPECT_TRUE(stringKind.freeStringTypeResult());
    EXPECT_TRUE(stringKind.freeStringTypeResult());  // safe to repeat

    Result otherString("a", "k", std::string("ClassificationPostProcess_other"), nullptr, 0);
    EXPECT_FALSE(otherString.freeStringTypeResult());

    // A classification record whose Result also names a string kind is released once,
    // by freeStringTypeResult, and not again by the destructor.
    const Packed bothBlob = classificationBlob(6);
    Result both("a", "k", AlgorithmType::NHClassification, bothBlob.blob, bothBlob.length);
    both.algorithmStringType = AlgorithmTypeClip128;
    ASSERT_NE(both.nHClassificationBuffer(), nullptr);
    EXPECT_TRUE(both.freeStringTypeResult());
    both.freeStructResult();
}

}  // namespace
}  // namespace VQFeature
