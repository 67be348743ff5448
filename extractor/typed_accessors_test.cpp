// Every typed accessor of Result and MultiResult against a valid blob of every kind:
// each answers its own kind only, and decodes with its own message's decoder.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "extractor/algorithm_types.h"
#include "extractor/multi_result.h"
#include "extractor/result.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

struct EncodedKind {
    AlgorithmType kind;
    const ProtobufCMessageDescriptor* descriptor;
};

// The kinds with a message of their own (aliases pack an earlier row's message).
#define VQFE_RESULT_KIND_ALIAS(...)
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name) {AlgorithmType::kind, &c__##name##__descriptor},
const std::vector<EncodedKind> kEncodedKinds = {
#include "encoding/result_kinds.def"
};

struct Accessor {
    AlgorithmType kind;
    std::function<const void*(IResult&)> get;
};

const std::vector<Accessor> kAccessors = {
    {AlgorithmType::AfterEffect, [](IResult& r) -> const void* { return r.afterEffectBuffer(); }},
    {AlgorithmType::SceneRecog, [](IResult& r) -> const void* { return r.sceneRecogBuffer(); }},
    {AlgorithmType::SceneRecogV3, [](IResult& r) -> const void* { return r.sceneRecogV3Buffer(); }},
    {AlgorithmType::FaceVerify, [](IResult& r) -> const void* { return r.faceVerifyBuffer(); }},
    {AlgorithmType::PornCls, [](IResult& r) -> const void* { return r.pornClsBuffer(); }},
    {AlgorithmType::Similarity, [](IResult& r) -> const void* { return r.similarityBuffer(); }},
    {AlgorithmType::Face, [](IResult& r) -> const void* { return r.faceBuffer(); }},
    {AlgorithmType::FaceAttribute, [](IResult& r) -> const void* { return r.faceAttributeBuffer(); }},
    {AlgorithmType::NHClassification, [](IResult& r) -> const void* { return r.nHClassificationBuffer(); }},
    {AlgorithmType::PetMatting, [](IResult& r) -> const void* { return r.petMattingBuffer(); }},
    {AlgorithmType::FacePetDetect, [](IResult& r) -> const void* { return r.facePetDetectBuffer(); }},
    {AlgorithmType::SaliencySeg, [](IResult& r) -> const void* { return r.saliencySegInfo(); }},
    {AlgorithmType::Skeleton, [](IResult& r) -> const void* { return r.skeletonBuffer(); }},
    {AlgorithmType::Matting, [](IResult& r) -> const void* { return r.mattingResult(); }},
    {AlgorithmType::FaceClusting, [](IResult& r) -> const void* { return r.faceClustingBuffer(); }},
};

// A message with every field at its default; required sub-messages are filled the same way.
ProtobufCMessage* defaultMessage(const ProtobufCMessageDescriptor* descriptor) {
    auto* message = static_cast<ProtobufCMessage*>(std::calloc(1, descriptor->sizeof_message));
    protobuf_c_message_init(descriptor, message);
    for (unsigned i = 0; i < descriptor->n_fields; ++i) {
        const ProtobufCFieldDescriptor& field = descriptor->fields[i];
        if (field.label != PROTOBUF_C_LABEL_REQUIRED || field.type != PROTOBUF_C_TYPE_MESSAGE) continue;
        auto* slot = reinterpret_cast<ProtobufCMessage**>(reinterpret_cast<char*>(message) + field.offset);
        *slot = defaultMessage(static_cast<const ProtobufCMessageDescriptor*>(field.descriptor));
    }
    return message;
}

// A malloc blob, as the engine hands them over.
void* packedDefault(const ProtobufCMessageDescriptor* descriptor, unsigned long* size) {
    ProtobufCMessage* message = defaultMessage(descriptor);
    *size = protobuf_c_message_get_packed_size(message);
    void* blob = std::malloc(*size > 0 ? *size : 1);
    protobuf_c_message_pack(message, static_cast<uint8_t*>(blob));
    protobuf_c_message_free_unpacked(message, nullptr);
    return blob;
}

TEST(TypedAccessorsTest, ResultAnswersItsOwnKindOnly) {
    ASSERT_EQ(kEncodedKinds.size(), kAccessors.size());
    for (const EncodedKind& encoded : kEncodedKinds) {
        unsigned long size = 0;
        void* blob = packedDefault(encoded.descriptor, &size);
        Result result("asset", "key", encoded.kind, blob, static_cast<int>(size));
        for (const Accessor& accessor : kAccessors) {
            const void* record = accessor.get(result);
            if (accessor.kind == encoded.kind) {
                EXPECT_NE(record, nullptr) << "kind " << static_cast<int>(encoded.kind);
                EXPECT_EQ(accessor.get(result), record);  // decoded once, then kept
            } else {
                EXPECT_EQ(record, nullptr) << "kind " << static_cast<int>(encoded.kind) << " read as "
                                           << static_cast<int>(accessor.kind);
            }
        }
    }
}

TEST(TypedAccessorsTest, MultiResultFindsEveryKindAmongTheOthers) {
    MultiResult multi;
    for (const Accessor& accessor : kAccessors) EXPECT_EQ(accessor.get(multi), nullptr);

    // Emplaced in reverse, so no accessor finds its item by position.
    for (auto it = kEncodedKinds.rbegin(); it != kEncodedKinds.rend(); ++it) {
        unsigned long size = 0;
        void* blob = packedDefault(it->descriptor, &size);
        multi.emplace(it->kind, blob, size);
    }
    const char* const stringKinds[] = {AlgorithmTypeRelation, AlgorithmTypeC300, AlgorithmTypeClip128};
    for (const char* stringKind : stringKinds) {
        unsigned long size = 0;
        void* blob = packedDefault(&c__nhclassification_buffer__descriptor, &size);
        multi.emplace(std::string(stringKind), blob, size);
    }
    for (const Accessor& accessor : kAccessors) {
        const void* record = accessor.get(multi);
        EXPECT_NE(record, nullptr) << "kind " << static_cast<int>(accessor.kind);
        EXPECT_EQ(accessor.get(multi), record);
    }
    EXPECT_NE(multi.relationRecogBuffer(), nullptr);
    EXPECT_NE(multi.c300Buffer(), nullptr);
    EXPECT_NE(multi.clip128Buffer(), nullptr);
    EXPECT_NE(multi.relationRecogBuffer(), multi.nHClassificationBuffer());  // separate items, separate records
    EXPECT_EQ(multi.resultCount(), static_cast<int>(kEncodedKinds.size()) + 3);
}

}  // namespace
}  // namespace VQFeature
