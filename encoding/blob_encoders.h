// Blob encoders: one framework result buffer -> one packed message in a new malloc
// block. *size receives the byte count; the caller owns the blob and frees it with free().
// Null means no result (an unusable buffer).
#pragma once

#include "Vantor/Vantor.h"

namespace VQFeature {

void* convertToBlob(Vantor::FaceBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::SkeletonBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::FaceVerifyBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::FaceClustingBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::MattingBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::SceneRecogBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::SimilarityBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::AfterEffectBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::PornClsBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::FaceAttributeBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::SceneRecogV3Buffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::VantorBuffer* buffer, unsigned long* size);  // saliency, type 47 only
void* convertToBlob(Vantor::PetMattingBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::FacePetDetectBuffer* buffer, unsigned long* size);
void* convertToBlob(Vantor::NHClassificationBuffer* buffer, unsigned long* size);

}  // namespace VQFeature
