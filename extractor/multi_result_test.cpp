#include "extractor/multi_result.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "extractor/algorithm_types.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

template <typename Message>
void* packed(const Message& message, unsigned long* size) {
    *size = protobuf_c_message_get_packed_size(&message.base);
    void* blob = std::malloc(*size);
    protobuf_c_message_pack(&message.base, static_cast<uint8_t*>(blob));
    return blob;
}

void emplaceFace(MultiResult& multi, int32_t width) {
    CFaceBuffer face = C__FACE_BUFFER__INIT;
    face.m_width = width;
    unsigned long size = 0;
    void* blob = packed(face, &size);
    multi.emplace(AlgorithmType::Face, blob, size);
}

template <typename Key>
void emplaceClassification(MultiResult& multi, const Key& kind, uint64_t bufferSize) {
    CNHClassificationBuffer classification = C__NHCLASSIFICATION_BUFFER__INIT;
    classification.m_buffersize = bufferSize;
    unsigned long size = 0;
    void* blob = packed(classification, &size);
    multi.emplace(kind, blob, size);
}

TEST(MultiResultTest, AccessorsDecodeTheFirstMatchingItemAndKeepItsBlob) {
    MultiResult multi;
    emplaceFace(multi, 100);
    emplaceFace(multi, 200);
    emplaceClassification(multi, std::string(AlgorithmTypeC300), 3);
    emplaceClassification(multi, std::string(AlgorithmTypeClip128), 4);
    emplaceClassification(multi, AlgorithmType::NHClassification, 5);
    EXPECT_EQ(multi.resultCount(), 5);

    CFaceBuffer* face = multi.faceBuffer();
    ASSERT_NE(face, nullptr);
    EXPECT_EQ(face->m_width, 100);
    EXPECT_EQ(multi.faceBuffer(), face);
    EXPECT_NE(multi.items[0]->data, nullptr);  // the item keeps its blob

    ASSERT_NE(multi.c300Buffer(), nullptr);
    EXPECT_EQ(multi.c300Buffer()->m_buffersize, 3u);
    ASSERT_NE(multi.clip128Buffer(), nullptr);
    EXPECT_EQ(multi.clip128Buffer()->m_buffersize, 4u);
    ASSERT_NE(multi.nHClassificationBuffer(), nullptr);
    EXPECT_EQ(multi.nHClassificationBuffer()->m_buffersize, 5u);
    EXPECT_EQ(multi.relationRecogBuffer(), nullptr);
    EXPECT_EQ(multi.skeletonBuffer(), nullptr);

    // Not found is not remembered: a later item is found by a later call.
    emplaceClassification(multi, std::string(AlgorithmTypeRelation), 6);
    ASSERT_NE(multi.relationRecogBuffer(), nullptr);
    EXPECT_EQ(multi.relationRecogBuffer()->m_buffersize, 6u);
}

TEST(MultiResultTest, ItemsLookupClearAndCount) {
    MultiResult multi;
    EXPECT_EQ(multi.getResultItem(AlgorithmType::Face), nullptr);
    EXPECT_EQ(multi.getResultItem(std::string(AlgorithmTypeC300)), nullptr);
    emplaceFace(multi, 7);
    emplaceClassification(multi, std::string(AlgorithmTypeC300), 1);
    multi.emplace(AlgorithmType::Skeleton, nullptr, 0);  // an item without blob

    auto face = multi.getResultItem(AlgorithmType::Face);
    ASSERT_NE(face, nullptr);
    EXPECT_EQ(face->stringType, "");
    auto c300 = multi.getResultItem(std::string(AlgorithmTypeC300));
    ASSERT_NE(c300, nullptr);
    EXPECT_EQ(c300->stringType, AlgorithmTypeC300);
    EXPECT_EQ(multi.getResultItem(AlgorithmType::AllNodes), c300);  // string items carry -1
    EXPECT_NE(multi.getResultItem(AlgorithmType::Skeleton), nullptr);
    EXPECT_EQ(multi.skeletonBuffer(), nullptr);

    std::vector<char> copy(face->size);
    face->memcpyStructResult(copy.data(), face->size);
    EXPECT_EQ(std::memcmp(copy.data(), face->data, face->size), 0);

    CFaceBuffer* decoded = multi.faceBuffer();
    ASSERT_NE(decoded, nullptr);
    multi.clear();
    EXPECT_EQ(multi.resultCount(), 0);
    EXPECT_EQ(multi.faceBuffer(), decoded);  // decoded slots survive clear
    EXPECT_EQ(multi.c300Buffer(), nullptr);
    EXPECT_NE(face->data, nullptr);  // a holder outside keeps the item alive
}

}  // namespace
}  // namespace VQFeature
