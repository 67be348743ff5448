#include "encoding/decode_helpers.h"

#include "encoding/message_unpack.h"

// Each pair unpacks with the default allocator (in one pass, see message_unpack.h) and
// frees with the generated free_unpacked. A null blob is no blob: its _alloc gives
// null without reading.
#define VQFE_DEFINE_DECODE_PAIR(name, type, prefix)                                                       \
    type* name##_alloc(const uint8_t* data, size_t length) {                                              \
        if (data == NULL) return NULL;                                                                    \
        return reinterpret_cast<type*>(VQFeature::unpackMessage(&prefix##descriptor, length, data));      \
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
