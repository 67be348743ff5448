// The encoder dispatch: algorithm kind -> framework buffer type -> blob encoder.
#include "encoding/blob_encoders.h"
#include "extractor/extractor_impl.h"

namespace VQFeature {

namespace {

template <typename Buffer>
void* encodeAs(void* buffer, unsigned long* size) {
    return convertToBlob(static_cast<Buffer*>(buffer), size);
}

}  // namespace

void* Extractor::ExtractorImpl::resultConvert(Vantor::AlgorithmType type, void* buffer, unsigned long* size) {
    using Vantor::AlgorithmType;
    switch (type) {
        case AlgorithmType::Face: return encodeAs<Vantor::FaceBuffer>(buffer, size);
        case AlgorithmType::Skeleton: return encodeAs<Vantor::SkeletonBuffer>(buffer, size);
        case AlgorithmType::FaceVerify: return encodeAs<Vantor::FaceVerifyBuffer>(buffer, size);
        case AlgorithmType::FaceClusting: return encodeAs<Vantor::FaceClustingBuffer>(buffer, size);
        case AlgorithmType::Matting: return encodeAs<Vantor::MattingBuffer>(buffer, size);
        case AlgorithmType::SceneRecog: return encodeAs<Vantor::SceneRecogBuffer>(buffer, size);
        case AlgorithmType::Similarity: return encodeAs<Vantor::SimilarityBuffer>(buffer, size);
        case AlgorithmType::AfterEffect: return encodeAs<Vantor::AfterEffectBuffer>(buffer, size);
        case AlgorithmType::PornCls: return encodeAs<Vantor::PornClsBuffer>(buffer, size);
        case AlgorithmType::FaceAttribute: return encodeAs<Vantor::FaceAttributeBuffer>(buffer, size);
        case AlgorithmType::SceneRecogV3: return encodeAs<Vantor::SceneRecogV3Buffer>(buffer, size);
        case AlgorithmType::SaliencySeg: return encodeAs<Vantor::VantorBuffer>(buffer, size);
        case AlgorithmType::PetMatting: return encodeAs<Vantor::PetMattingBuffer>(buffer, size);
        case AlgorithmType::FacePetDetect: return encodeAs<Vantor::FacePetDetectBuffer>(buffer, size);
        // Both are classification-graph results of the same buffer type.
        case AlgorithmType::NHClassification:
        case AlgorithmType::RelationRecog: return encodeAs<Vantor::NHClassificationBuffer>(buffer, size);
        default: return nullptr;
    }
}

}  // namespace VQFeature
