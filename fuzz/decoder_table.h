// The fifteen exported decode helpers as one table, in the order of
// encoding/decode_helpers.h. The decoders fuzz target dispatches on an input's first byte
// (index = byte % count); the seed maker writes each real blob behind its index byte.
// Plain data, read-only, safe from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "encoding/decode_helpers.h"

namespace vqfe_fuzz {

struct Decoder {
    const char* name;                          // "<name>" of <name>_alloc / <name>_free
    int kind;                                  // algorithm kind whose encoder packs it
    const ProtobufCMessageDescriptor* descriptor;
    ProtobufCMessage* (*decode)(const uint8_t* data, size_t length);
    void (*release)(ProtobufCMessage* message);
};

// Typed adapters: every message starts with its ProtobufCMessage base, so the pointers
// convert both ways without calling a function through a foreign signature.
template <typename T, T* (*Alloc)(const uint8_t*, size_t)>
ProtobufCMessage* decodeAs(const uint8_t* data, size_t length) {
    T* message = Alloc(data, length);
    return message == nullptr ? nullptr : &message->base;
}

template <typename T, void (*Free)(T*)>
void releaseAs(ProtobufCMessage* message) {
    Free(reinterpret_cast<T*>(message));
}

#define VQFE_FUZZ_DECODER(name, type, prefix, kind) \
    {#name, kind, &prefix##descriptor, decodeAs<type, name##_alloc>, releaseAs<type, name##_free>}

inline constexpr Decoder kDecoders[] = {
    VQFE_FUZZ_DECODER(after_effect_buffer, CAfterEffectBuffer, c__after_effect_buffer__, 30),
    VQFE_FUZZ_DECODER(scene_recog_buffer, CSceneRecogBuffer, c__scene_recog_buffer__, 25),
    VQFE_FUZZ_DECODER(scene_recog_v3_buffer, CSceneRecogV3Buffer, c__scene_recog_v3_buffer__, 58),
    VQFE_FUZZ_DECODER(face_verify_buffer, CFaceVerifyBuffer, c__face_verify_buffer__, 8),
    VQFE_FUZZ_DECODER(porn_cls_buffer, CPornClsBuffer, c__porn_cls_buffer__, 33),
    VQFE_FUZZ_DECODER(similarity_buffer, CSimilarityBuffer, c__similarity_buffer__, 29),
    VQFE_FUZZ_DECODER(face_buffer, CFaceBuffer, c__face_buffer__, 4),
    VQFE_FUZZ_DECODER(face_attribute_buffer, CFaceAttributeBuffer, c__face_attribute_buffer__, 46),
    VQFE_FUZZ_DECODER(nhclassification_buffer, CNHClassificationBuffer, c__nhclassification_buffer__, 121),
    VQFE_FUZZ_DECODER(pet_matting_buffer, CPetMattingBuffer, c__pet_matting_buffer__, 71),
    VQFE_FUZZ_DECODER(face_pet_detect_buffer, CFacePetDetectBuffer, c__face_pet_detect_buffer__, 95),
    VQFE_FUZZ_DECODER(saliency_seg_info, CSaliencySegInfo, c__saliency_seg_info__, 60),
    VQFE_FUZZ_DECODER(skeleton_buffer, CSkeletonBuffer, c__skeleton_buffer__, 7),
    VQFE_FUZZ_DECODER(matting_result, CMattingResult, c__matting_result__, 12),
    VQFE_FUZZ_DECODER(face_clusting_buffer, CFaceClustingBuffer, c__face_clusting_buffer__, 10),
};

#undef VQFE_FUZZ_DECODER

inline constexpr size_t kDecoderCount = sizeof kDecoders / sizeof kDecoders[0];

}  // namespace vqfe_fuzz
