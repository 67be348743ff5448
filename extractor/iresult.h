/// IResult: typed access to decoded result blobs. Each accessor decodes the blob of its
/// algorithm kind into a protobuf-c message (owned by the result object, released by it)
/// or returns null. Accessors mutate the object: not safe for concurrent use.
/// The accessor order is the binding's slot order; do not reorder.
#pragma once

#include "vqfe_results.pb-c.h"

namespace VQFeature {

class IResult {
public:
    virtual ~IResult() = default;
    virtual CAfterEffectBuffer* afterEffectBuffer() = 0;
    virtual CSceneRecogBuffer* sceneRecogBuffer() = 0;
    virtual CSceneRecogV3Buffer* sceneRecogV3Buffer() = 0;
    virtual CFaceVerifyBuffer* faceVerifyBuffer() = 0;
    virtual CPornClsBuffer* pornClsBuffer() = 0;
    virtual CSimilarityBuffer* similarityBuffer() = 0;
    virtual CFaceBuffer* faceBuffer() = 0;
    virtual CFaceAttributeBuffer* faceAttributeBuffer() = 0;
    virtual CNHClassificationBuffer* relationRecogBuffer() = 0;
    virtual CNHClassificationBuffer* c300Buffer() = 0;
    virtual CNHClassificationBuffer* clip128Buffer() = 0;
    virtual CNHClassificationBuffer* nHClassificationBuffer() = 0;
    virtual CPetMattingBuffer* petMattingBuffer() = 0;
    virtual CFacePetDetectBuffer* facePetDetectBuffer() = 0;
    virtual CSaliencySegInfo* saliencySegInfo() = 0;
    virtual CSkeletonBuffer* skeletonBuffer() = 0;
    virtual CMattingResult* mattingResult() = 0;
    virtual CFaceClustingBuffer* faceClustingBuffer() = 0;
};

}  // namespace VQFeature
