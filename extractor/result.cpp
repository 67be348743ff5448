#include "extractor/result.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "encoding/decode_helpers.h"
#include "extractor/blob_blocks.h"
#include "extractor/algorithm_types.h"

namespace VQFeature {

using Vantor::AlgorithmType;

namespace {

// The shared accessor recipe: a kind that is not the Result's own gives null; a
// decoded slot is answered as is; otherwise the blob is decoded into the slot and, the
// decoded message being its successor, the blob is freed (resultLength stays).
template <typename Message>
Message* decodeOnce(bool kindMatches, void*& slot, void*& blob, unsigned long length,
                    Message* (*alloc)(const uint8_t*, size_t)) {
    if (!kindMatches) return nullptr;
    if (slot != nullptr) return static_cast<Message*>(slot);
    slot = alloc(static_cast<const uint8_t*>(blob), blobs::readable(blob, length));
    if (blob != nullptr) {
        blobs::release(blob);
        blob = nullptr;
    }
    return static_cast<Message*>(slot);
}

// Lengths pass through a signed 32-bit int and are widened with their sign.
unsigned long widenLength(int length) { return static_cast<unsigned long>(static_cast<long>(length)); }

}  // namespace

Result::Result() : resultLength(0), result(nullptr), algorithmType(static_cast<AlgorithmType>(0)), decoded_(nullptr) {}

Result::Result(const std::string& assetId, const std::string& algorithmKey, AlgorithmType type)
    : resultLength(0),
      result(nullptr),
      assetId(assetId),
      algorithmType(type),
      algorithmKey(algorithmKey),
      decoded_(nullptr) {}

Result::Result(const std::string& assetId, const std::string& algorithmKey, AlgorithmType type, void* result,
               int length)
    : resultLength(widenLength(length)),
      result(result),
      assetId(assetId),
      algorithmType(type),
      algorithmKey(algorithmKey),
      decoded_(nullptr) {
    blobs::hold(result, length > 0 ? static_cast<unsigned long>(length) : 0);
}

Result::Result(const std::string& assetId, const std::string& algorithmKey, const std::string& algorithmStringType,
               void* result, int length)
    : resultLength(widenLength(length)),
      result(result),
      assetId(assetId),
      algorithmStringType(algorithmStringType),
      algorithmType(AlgorithmType::AllNodes),
      algorithmKey(algorithmKey),
      decoded_(nullptr) {
    blobs::hold(result, length > 0 ? static_cast<unsigned long>(length) : 0);
}

Result::~Result() {
    freeStructResult();
    blobs::release(result);
}

void Result::freeResult() {
    if (result == nullptr) return;
    blobs::release(result);
    result = nullptr;
}

void Result::resetData() {
    blobs::forget(result);
    resultLength = 0;
    result = nullptr;
}

void Result::setResultNative(const char* data, unsigned long size) {
    void* copy = std::malloc(size > 0 ? size : 1);
    if (copy == nullptr) throw std::bad_alloc();
    if (size > 0) {
        if (data != nullptr) {
            std::memcpy(copy, data, size);
        } else {
            std::memset(copy, 0, size);
        }
    }
    // An earlier blob is still ours (a blob handed elsewhere is forgotten through
    // resetData first), so release it rather than lose it.
    blobs::release(result);
    result = copy;
    blobs::hold(copy, size);
}

void Result::memcpyStructResult(char* dest, unsigned long size) {
    if (dest == nullptr || result == nullptr) return;
    // The caller sizes dest; the copy is cut only where the blob itself ends (a blob
    // set directly into the fields is described by resultLength).
    const unsigned long readable = blobs::sizeOr(result, resultLength);
    const unsigned long n = size < readable ? size : readable;
    if (n > 0) std::memcpy(dest, result, n);
}

bool Result::freeStringTypeResult() {
    const char* const kinds[] = {AlgorithmTypeClip128, AlgorithmTypeC300, AlgorithmTypeRelation};
    for (const char* kind : kinds) {
        if (algorithmStringType == kind) {
            nhclassification_buffer_free(static_cast<CNHClassificationBuffer*>(decoded_));
            // Cleared so that the destructor cannot release the record a second time;
            // the slot is private, so nothing else can tell.
            decoded_ = nullptr;
            return true;
        }
    }
    return false;
}

void Result::freeStructResult() {
    if (decoded_ == nullptr) return;
    if (freeStringTypeResult()) return;
    switch (algorithmType) {
        // Kind 130 was historically dropped here without release; its record is released
        // all the same (the slot is emptied either way, so no caller can tell).
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name) \
    case AlgorithmType::kind: name##_free(static_cast<Message*>(decoded_)); break;
#include "encoding/result_kinds.def"
        default: break;  // no accessor of another kind ever fills the slot
    }
    decoded_ = nullptr;
}

CAfterEffectBuffer* Result::afterEffectBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::AfterEffect, decoded_, result, resultLength,
                      after_effect_buffer_alloc);
}

CSceneRecogBuffer* Result::sceneRecogBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::SceneRecog, decoded_, result, resultLength,
                      scene_recog_buffer_alloc);
}

CSceneRecogV3Buffer* Result::sceneRecogV3Buffer() {
    return decodeOnce(algorithmType == AlgorithmType::SceneRecogV3, decoded_, result, resultLength,
                      scene_recog_v3_buffer_alloc);
}

CFaceVerifyBuffer* Result::faceVerifyBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::FaceVerify, decoded_, result, resultLength,
                      face_verify_buffer_alloc);
}

CPornClsBuffer* Result::pornClsBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::PornCls, decoded_, result, resultLength,
                      porn_cls_buffer_alloc);
}

CSimilarityBuffer* Result::similarityBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::Similarity, decoded_, result, resultLength,
                      similarity_buffer_alloc);
}

CFaceBuffer* Result::faceBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::Face, decoded_, result, resultLength, face_buffer_alloc);
}

CFaceAttributeBuffer* Result::faceAttributeBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::FaceAttribute, decoded_, result, resultLength,
                      face_attribute_buffer_alloc);
}

// The three string-kind accessors answer only on a MultiResult.
CNHClassificationBuffer* Result::relationRecogBuffer() { return nullptr; }
CNHClassificationBuffer* Result::c300Buffer() { return nullptr; }
CNHClassificationBuffer* Result::clip128Buffer() { return nullptr; }

CNHClassificationBuffer* Result::nHClassificationBuffer() {
    const bool classification =
        algorithmType == AlgorithmType::NHClassification || algorithmType == AlgorithmType::RelationRecog;
    return decodeOnce(classification, decoded_, result, resultLength, nhclassification_buffer_alloc);
}

CPetMattingBuffer* Result::petMattingBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::PetMatting, decoded_, result, resultLength,
                      pet_matting_buffer_alloc);
}

CFacePetDetectBuffer* Result::facePetDetectBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::FacePetDetect, decoded_, result, resultLength,
                      face_pet_detect_buffer_alloc);
}

CSaliencySegInfo* Result::saliencySegInfo() {
    return decodeOnce(algorithmType == AlgorithmType::SaliencySeg, decoded_, result, resultLength,
                      saliency_seg_info_alloc);
}

CSkeletonBuffer* Result::skeletonBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::Skeleton, decoded_, result, resultLength,
                      skeleton_buffer_alloc);
}

CMattingResult* Result::mattingResult() {
    return decodeOnce(algorithmType == AlgorithmType::Matting, decoded_, result, resultLength, matting_result_alloc);
}

CFaceClustingBuffer* Result::faceClustingBuffer() {
    return decodeOnce(algorithmType == AlgorithmType::FaceClusting, decoded_, result, resultLength,
                      face_clusting_buffer_alloc);
}

}  // namespace VQFeature
