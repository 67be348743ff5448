// Vantor::AlgorithmType: the framework's algorithm kinds. The numbers are fixed by the
// framework and are part of every cache key; never renumber. Values outside this list
// are unsupported by the engine but may be passed around as plain numbers.
#pragma once

#include <cstdint>

namespace Vantor {

enum class AlgorithmType : int32_t {
    AllNodes = -1,           ///< a whole-graph run with no single result; the kind of string-kind results
    Face = 4,                ///< faces: rectangles, 106 landmarks, pose (C_FaceBuffer)
    Skeleton = 7,            ///< body key points per person (C_SkeletonBuffer)
    FaceVerify = 8,          ///< face recognition features (C_FaceVerifyBuffer)
    FaceExpression = 9,      ///< facial expression; has a graph but produces no blob
    FaceClusting = 10,       ///< faces grouped by person (C_FaceClustingBuffer)
    Matting = 12,            ///< portrait matting mask (C_MattingResult)
    SceneRecog = 25,         ///< named scenes with probabilities (C_SceneRecogBuffer)
    Similarity = 29,         ///< image feature for similar-image search (C_SimilarityBuffer)
    AfterEffect = 30,        ///< aesthetic scores (C_AfterEffectBuffer)
    PornCls = 33,            ///< sensitive-content flag and confidence (C_PornClsBuffer)
    FaceAttribute = 46,      ///< age, gender, expression per face (C_FaceAttributeBuffer); no graph of its own
    SceneRecogV3 = 58,       ///< scene class ids with confidences (C_SceneRecogV3Buffer)
    SaliencySeg = 60,        ///< salient regions (C_SaliencySegInfo)
    PetMatting = 71,         ///< pet matting mask (C_PetMattingBuffer)
    FacePetDetect = 95,      ///< pet faces (C_FacePetDetectBuffer)
    NHClassification = 121,  ///< image classes over the built-in labels (C_NHClassificationBuffer)
    RelationRecog = 130,     ///< relation classes (C_NHClassificationBuffer)
};

}  // namespace Vantor
