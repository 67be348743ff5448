// The one-pass unpacker against protobuf-c's own unpack: on every input both must give
// no message, or messages that pack to the same bytes.
#include "encoding/message_unpack.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "testing/encoder_test_support.h"

namespace VQFeature {
namespace {

using namespace testing_support;
using Glintcore::makeShared;

// Protocol-buffer wire text, written by hand for the shapes our encoders never write.
struct Wire {
    std::string bytes;
    Wire& varint(uint64_t v) {
        do {
            bytes += static_cast<char>((v & 0x7f) | (v > 0x7f ? 0x80 : 0));
            v >>= 7;
        } while (v != 0);
        return *this;
    }
    Wire& tag(uint32_t field, uint32_t wireType) { return varint((field << 3) | wireType); }
    Wire& fixed32(float f) {
        char raw[4];
        std::memcpy(raw, &f, 4);
        bytes.append(raw, 4);
        return *this;
    }
    Wire& section(uint32_t field, const std::string& content) {
        tag(field, 2).varint(content.size());
        bytes += content;
        return *this;
    }
};

std::string packed(const ProtobufCMessage* message) {
    std::string out(protobuf_c_message_get_packed_size(message), '\0');
    protobuf_c_message_pack(message, reinterpret_cast<uint8_t*>(out.data()));
    return out;
}

// Both unpackers on the bytes: "null" when both refuse, else the bytes both pack to
// (the test fails when they disagree).
std::string unpackBoth(const ProtobufCMessageDescriptor* descriptor, const std::string& bytes) {
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    ProtobufCMessage* ours = unpackMessage(descriptor, bytes.size(), data);
    ProtobufCMessage* reference = protobuf_c_message_unpack(descriptor, nullptr, bytes.size(), data);
    EXPECT_EQ(ours == nullptr, reference == nullptr) << descriptor->name << ", " << bytes.size() << " bytes";
    std::string result = "null";
    if (ours != nullptr && reference != nullptr) {
        result = packed(ours);
        EXPECT_EQ(result, packed(reference)) << descriptor->name;
    }
    protobuf_c_message_free_unpacked(ours, nullptr);
    protobuf_c_message_free_unpacked(reference, nullptr);
    return result;
}

std::string blobBytes(const Blob& blob) { return std::string(static_cast<const char*>(blob.data), blob.size); }

// A face-verification blob: nested messages two deep, strings, floats, a negative id.
std::string verifyBlob() {
    Vantor::FaceVerifyBuffer buffer;
    for (int i = 0; i < 2; ++i) {
        auto info = makeShared<Vantor::FaceVerifyInfo>();
        info->features = {0.5f, -0.25f, 1e-3f};
        info->face.points = points(3, 0.1f * static_cast<float>(i));
        info->face.visibility = {1.f, 0.f, 1.f};
        info->face.id = -1 - i;
        info->id = 7 * i;
        info->rect = {0.1f, 0.2f, 0.3f, 0.4f};
        info->modelVersion = i == 0 ? "v2.1" : "";
        buffer.faceVerifyInfos.push_back(info);
    }
    buffer.dynamicInfos.push_back(buffer.faceVerifyInfos[0]);
    buffer.needUpdate = true;
    buffer.validFaceNum = 2;
    buffer.dynamicFaceNum = -3;
    return blobBytes(encode(&buffer));
}

// A classification blob: runs of unpacked ints (one to ten bytes each), floats, strings.
std::string classificationBlob() {
    Vantor::NHClassificationBuffer classes;
    auto info = makeShared<Vantor::NHClassificationInfo>();
    info->id = {3, 1, 2, 200, 70000};
    info->confidence = {0.5f, 0.25f, 0.125f, 0.f, 1.f};
    info->exceedThresh = {1, 0, -1, 1, 0};
    info->numClasses = 5;
    auto feature = makeShared<Vantor::NHClassificationFeature>();
    feature->features = {0.5f, 1.5f, 2.5f};
    classes.bufferSize = 1;
    classes.infos[0] = info;
    classes.features[0] = feature;
    classes.labels = {"cat", "", "dog"};
    classes.thresh = {0.5f, 0.75f};
    return blobBytes(encode(&classes));
}

TEST(MessageUnpackTest, AgreesWithProtobufCOnEncoderBlobs) {
    EXPECT_NE(unpackBoth(&c__face_verify_buffer__descriptor, verifyBlob()), "null");

    Vantor::FaceBuffer faces;
    auto face = makeShared<Vantor::Face106>();
    face->points = points(106, 0.5f);
    face->visibility = Glintcore::PrimitiveVector<float>(106, 0.75f);
    faces.faces = {face, face};
    auto mask = makeShared<Vantor::FaceMouthMask>();
    mask->faceMaskSize = 16;
    for (int i = 0; i < 256; ++i) mask->faceMask.push_back(static_cast<uint8_t>(i));  // one- and two-byte varints
    faces.mouthMasks = {mask};
    testing::internal::CaptureStdout();  // the face encoder's diagnostic line
    const std::string faceBlob = blobBytes(encode(&faces));
    testing::internal::GetCapturedStdout();
    const std::string faceResult = unpackBoth(&c__face_buffer__descriptor, faceBlob);
    EXPECT_EQ(faceResult, faceBlob);  // a blob of ours decodes and packs back to itself

    EXPECT_NE(unpackBoth(&c__nhclassification_buffer__descriptor, classificationBlob()), "null");

    Vantor::FaceClustingBuffer clusters;
    clusters.results = {0, 1, -1};
    clusters.clusters = {{0, 2}, {}, {1}};
    clusters.clustingInfo.flag = 1;
    EXPECT_NE(unpackBoth(&c__face_clusting_buffer__descriptor, blobBytes(encode(&clusters))), "null");

    Vantor::AfterEffectBuffer none;  // zero bytes: a message with only empty lists
    EXPECT_EQ(unpackBoth(&c__after_effect_buffer__descriptor, blobBytes(encode(&none))), "");
}

TEST(MessageUnpackTest, AgreesOnShapesOtherWritersUse) {
    // Packed lists, also split in several runs and mixed with single elements.
    Wire ints;
    ints.section(1, Wire().varint(5).varint(300).varint(0xffffffffffffffffull).bytes).tag(1, 0).varint(9);
    ints.section(1, "");
    EXPECT_EQ(unpackBoth(&c__int_array__descriptor, ints.bytes), Wire().tag(1, 0).varint(5).tag(1, 0).varint(300)
                                                                   .tag(1, 0).varint(0xffffffffffffffffull)
                                                                   .tag(1, 0).varint(9).bytes);
    // One list in several runs, split by other fields, across the array's growth steps.
    Wire split;  // C_SimilarityBuffer: score, feature (uint32), clusterIds (int32)
    for (uint32_t run : {7u, 1u, 8u, 17u}) {
        for (uint32_t i = 0; i < run; ++i) split.tag(2, 0).varint(i * 37);
        split.tag(3, 0).varint(run).tag(1, 5).fixed32(0.5f);
    }
    EXPECT_NE(unpackBoth(&c__similarity_buffer__descriptor, split.bytes), "null");

    Wire features;  // C_NHClassificationFeature: packed floats
    features.section(1, Wire().fixed32(1.5f).fixed32(-2.f).bytes);
    EXPECT_NE(unpackBoth(&c__nhclassification_feature__descriptor, features.bytes), "null");
    Wire ragged;  // packed floats whose length is not a multiple of four
    ragged.section(1, Wire().fixed32(1.5f).bytes + "x");
    unpackBoth(&c__nhclassification_feature__descriptor, ragged.bytes);

    // Required fields given twice: the last one wins, strings included.
    Wire twice;  // C_SceneRecogInfo: prob, satisfied, name
    twice.tag(1, 5).fixed32(0.5f).tag(2, 0).varint(1).section(3, "first").tag(1, 5).fixed32(0.25f).section(3, "second");
    EXPECT_NE(unpackBoth(&c__scene_recog_info__descriptor, twice.bytes), "null");
    // A bool whose only set bits lie past bit 63 is still true.
    Wire farBool;
    farBool.tag(1, 5).fixed32(0.5f).tag(2, 0);
    farBool.bytes += std::string("\x80\x80\x80\x80\x80\x80\x80\x80\x80\x7e", 10);
    farBool.section(3, "x");
    EXPECT_NE(unpackBoth(&c__scene_recog_info__descriptor, farBool.bytes), "null");

    // Left to protobuf-c: a sub-message given twice (merged), unknown fields (kept).
    Wire rect;
    for (uint32_t f = 1; f <= 5; ++f) rect.tag(f, 5).fixed32(0.1f * static_cast<float>(f));
    Wire pet;  // C_FacePetInfo needs all of its required fields
    pet.tag(1, 0).varint(2).section(2, rect.bytes).tag(3, 5).fixed32(0.9f);
    for (uint32_t f = 5; f <= 7; ++f) pet.tag(f, 5).fixed32(1.f);
    pet.tag(8, 0).varint(4).tag(9, 0).varint(1).tag(10, 0).varint(0);
    Wire mergedRect = pet;
    Wire otherRect;
    for (uint32_t f = 1; f <= 5; ++f) otherRect.tag(f, 5).fixed32(0.5f);
    mergedRect.section(2, otherRect.bytes);
    EXPECT_NE(unpackBoth(&c__face_pet_info__descriptor, mergedRect.bytes), "null");
    Wire unknown = pet;
    unknown.tag(99, 0).varint(12345).section(100, "kept");
    EXPECT_NE(unpackBoth(&c__face_pet_info__descriptor, unknown.bytes), "null");

    // Refused by both: a missing required field, a wrong wire type, a zero field number.
    EXPECT_EQ(unpackBoth(&c__face_pet_info__descriptor, rect.bytes), "null");
    EXPECT_EQ(unpackBoth(&c__int_array__descriptor, Wire().tag(1, 5).fixed32(1.f).bytes), "null");
    EXPECT_EQ(unpackBoth(&c__int_array__descriptor, Wire().tag(0, 0).varint(1).bytes), "null");
}

TEST(MessageUnpackTest, AgreesOnEveryTruncationAndOnCorruptedBytes) {
    const std::pair<const ProtobufCMessageDescriptor*, std::string> corpus[] = {
        {&c__face_verify_buffer__descriptor, verifyBlob()},
        {&c__nhclassification_buffer__descriptor, classificationBlob()},
    };
    uint32_t x = 12345;
    for (const auto& [descriptor, blob] : corpus) {
        for (size_t n = 0; n < blob.size(); ++n) unpackBoth(descriptor, blob.substr(0, n));
        for (int round = 0; round < 2000; ++round) {
            std::string corrupted = blob;
            for (int k = 0; k < 1 + round % 3; ++k) {
                x = x * 1664525u + 1013904223u;
                corrupted[(x >> 8) % corrupted.size()] = static_cast<char>(x >> 24);
            }
            unpackBoth(descriptor, corrupted);
        }
    }
}

}  // namespace
}  // namespace VQFeature
