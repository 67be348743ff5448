#include "encoding/decode_helpers.h"

#include "encoding/message_unpack.h"

namespace {

// protobuf-c accepts a field number 0 when its tag is written in more than one byte
// (0x80 0x00 ...) and keeps it as an unknown field; every other reader rejects such a
// blob, and protobuf-c itself rejects it once re-packed. Found by fuzz/decoders_fuzzer.
bool hasFieldNumberZero(const ProtobufCMessage* message) {
    for (unsigned u = 0; u < message->n_unknown_fields; ++u) {
        if (message->unknown_fields[u].tag == 0) return true;
    }
    const ProtobufCMessageDescriptor* desc = message->descriptor;
    const char* base = reinterpret_cast<const char*>(message);
    for (unsigned f = 0; f < desc->n_fields; ++f) {
        const ProtobufCFieldDescriptor& field = desc->fields[f];
        if (field.type != PROTOBUF_C_TYPE_MESSAGE) continue;
        const auto* slot = reinterpret_cast<const ProtobufCMessage* const*>(base + field.offset);
        size_t count = 1;
        if (field.label == PROTOBUF_C_LABEL_REPEATED) {
            count = *reinterpret_cast<const size_t*>(base + field.quantifier_offset);
            slot = *reinterpret_cast<const ProtobufCMessage* const* const*>(slot);
        }
        for (size_t i = 0; i < count; ++i) {
            if (slot[i] != NULL && hasFieldNumberZero(slot[i])) return true;
        }
    }
    return false;
}

}  // namespace

// Each pair unpacks with the default allocator (in one pass, see message_unpack.h) and
// frees with the generated free_unpacked. A null blob is no blob: its _alloc gives
// null without reading; a blob naming field number 0 is malformed and gives null too.
#define VQFE_DEFINE_DECODE_PAIR(name, type, prefix)                                                       \
    type* name##_alloc(const uint8_t* data, size_t length) {                                              \
        if (data == NULL) return NULL;                                                                    \
        type* message = reinterpret_cast<type*>(VQFeature::unpackMessage(&prefix##descriptor, length, data)); \
        if (message != NULL && hasFieldNumberZero(&message->base)) {                                      \
            prefix##free_unpacked(message, NULL);                                                         \
            return NULL;                                                                                  \
        }                                                                                                 \
        return message;                                                                                   \
    }                                                                                                     \
    void name##_free(type* message) { prefix##free_unpacked(message, NULL); }

VQFE_DEFINE_DECODE_PAIR(after_effect_buffer, CAfterEffectBuffer, c__after_effect_buffer__)
VQFE_DEFINE_DECODE_PAIR(scene_recog_buffer, CSceneRecogBuffer, c__scene_recog_buffer__)
VQFE_DEFINE_DECODE_PAIR(scene_recog_v3_buffer, CSceneRecogV3Buffer, c__scene_recog_v3_buffer__)
VQFE_DEFINE_DECODE_PAIR(face_verify_buffer, CFaceVerifyBuffer, c__face_verify_buffer__)
VQFE_DEFINE_DECODE_PAIR(porn_cls_buffer, CPornClsBuffer, c__porn_cls_buffer__)
VQFE_DEFINE_DECODE_PAIR(similarity_buffer, CSimilarityBuffer, c__similarity_buffer__)
VQFE_DEFINE_DECODE_PAIR(face_buffer, CFaceBuffer, c__face_buffer__)
VQFE_DEFINE_DECODE_PAIR(face_attribute_buffer, CFaceAttributeBuffer, c__face_attribute_buffer__)
VQFE_DEFINE_DECODE_PAIR(nhclassification_buffer, CNHClassificationBuffer, c__nhclassification_buffer__)
VQFE_DEFINE_DECODE_PAIR(pet_matting_buffer, CPetMattingBuffer, c__pet_matting_buffer__)
VQFE_DEFINE_DECODE_PAIR(face_pet_detect_buffer, CFacePetDetectBuffer, c__face_pet_detect_buffer__)
VQFE_DEFINE_DECODE_PAIR(saliency_seg_info, CSaliencySegInfo, c__saliency_seg_info__)
VQFE_DEFINE_DECODE_PAIR(skeleton_buffer, CSkeletonBuffer, c__skeleton_buffer__)
VQFE_DEFINE_DECODE_PAIR(matting_result, CMattingResult, c__matting_result__)
VQFE_DEFINE_DECODE_PAIR(face_clusting_buffer, CFaceClustingBuffer, c__face_clusting_buffer__)
