// Exported decode helpers: <name>_alloc unpacks a blob into a new message (null for a
// malformed blob); <name>_free releases it. Plain C names: apps bind to them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "vqfe_results.pb-c.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VQFE_DECODE_PAIR(name, type)                                  \
    type* name##_alloc(const uint8_t* data, size_t length);           \
    void name##_free(type* message);

VQFE_DECODE_PAIR(after_effect_buffer, CAfterEffectBuffer)
VQFE_DECODE_PAIR(scene_recog_buffer, CSceneRecogBuffer)
VQFE_DECODE_PAIR(scene_recog_v3_buffer, CSceneRecogV3Buffer)
VQFE_DECODE_PAIR(face_verify_buffer, CFaceVerifyBuffer)
VQFE_DECODE_PAIR(porn_cls_buffer, CPornClsBuffer)
VQFE_DECODE_PAIR(similarity_buffer, CSimilarityBuffer)
VQFE_DECODE_PAIR(face_buffer, CFaceBuffer)
VQFE_DECODE_PAIR(face_attribute_buffer, CFaceAttributeBuffer)
VQFE_DECODE_PAIR(nhclassification_buffer, CNHClassificationBuffer)
VQFE_DECODE_PAIR(pet_matting_buffer, CPetMattingBuffer)
VQFE_DECODE_PAIR(face_pet_detect_buffer, CFacePetDetectBuffer)
VQFE_DECODE_PAIR(saliency_seg_info, CSaliencySegInfo)
VQFE_DECODE_PAIR(skeleton_buffer, CSkeletonBuffer)
VQFE_DECODE_PAIR(matting_result, CMattingResult)
VQFE_DECODE_PAIR(face_clusting_buffer, CFaceClustingBuffer)

#undef VQFE_DECODE_PAIR

#ifdef __cplusplus
}
#endif
