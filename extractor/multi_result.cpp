#include "extractor/multi_result.h"

#include <cstring>

#include "encoding/decode_helpers.h"
#include "extractor/blob_blocks.h"
#include "extractor/algorithm_types.h"

namespace VQFeature {

using Vantor::AlgorithmType;
using ResultItem = MultiResult::ResultItem;

// String-kind items leave the kind unset; -1 (the whole-graph value) never names an
// encoded kind, so they cannot be mistaken for an enumerated item.
ResultItem::ResultItem() : type(AlgorithmType::AllNodes), data(nullptr), size(0) {}

ResultItem::ResultItem(AlgorithmType type, void* data, unsigned long size) : type(type), data(data), size(size) {
    blobs::hold(data, size);
}

ResultItem::ResultItem(const std::string& stringType, void* data, unsigned long size)
    : type(AlgorithmType::AllNodes), stringType(stringType), data(data), size(size) {
    blobs::hold(data, size);
}

ResultItem::~ResultItem() {
    blobs::release(data);
    data = nullptr;
}

void ResultItem::memcpyStructResult(char* dest, unsigned long count) {
    if (dest == nullptr || data == nullptr) return;
    const unsigned long n = blobs::readable(data, count < size ? count : size);  // never read past the blob
    if (n > 0) std::memcpy(dest, data, n);
}

namespace {

template <typename Message>
Message* decodeItem(const std::shared_ptr<ResultItem>& item, Message* (*alloc)(const uint8_t*, size_t)) {
    if (!item) return nullptr;
    return alloc(static_cast<const uint8_t*>(item->data), blobs::readable(item->data, item->size));
}

// The shared accessor recipe: a filled slot is answered as is; otherwise the first
// matching item is decoded into it (the item keeps its blob). Nothing found leaves the
// slot null, so a later call searches again.
template <typename Message, typename Key>
Message* decodeSlot(MultiResult& owner, Message*& slot, const Key& key, Message* (*alloc)(const uint8_t*, size_t)) {
    if (slot == nullptr) slot = decodeItem(owner.getResultItem(key), alloc);
    return slot;
}

template <typename Message>
void release(Message*& slot, void (*freeMessage)(Message*)) {
    if (slot != nullptr) freeMessage(slot);
    slot = nullptr;
}

}  // namespace

MultiResult::MultiResult() = default;

MultiResult::~MultiResult() {
    release(afterEffect_, after_effect_buffer_free);
    release(sceneRecog_, scene_recog_buffer_free);
    release(sceneRecogV3_, scene_recog_v3_buffer_free);
    release(faceVerify_, face_verify_buffer_free);
    release(pornCls_, porn_cls_buffer_free);
    release(similarity_, similarity_buffer_free);
    release(face_, face_buffer_free);
    release(faceAttribute_, face_attribute_buffer_free);
    release(nHClassification_, nhclassification_buffer_free);
    release(relationRecog_, nhclassification_buffer_free);
    release(clip128_, nhclassification_buffer_free);
    release(c300_, nhclassification_buffer_free);
    release(petMatting_, pet_matting_buffer_free);
    release(facePetDetect_, face_pet_detect_buffer_free);
    release(saliencySeg_, saliency_seg_info_free);
    release(skeleton_, skeleton_buffer_free);
    release(matting_, matting_result_free);
    release(faceClusting_, face_clusting_buffer_free);
}

void MultiResult::emplace(AlgorithmType type, void* data, unsigned long size) {
    items.push_back(std::make_shared<ResultItem>(type, data, size));
}

void MultiResult::emplace(const std::string& stringType, void* data, unsigned long size) {
    items.push_back(std::make_shared<ResultItem>(stringType, data, size));
}

std::shared_ptr<ResultItem> MultiResult::getResultItem(const std::string& stringType) {
    for (const auto& item : items) {
        if (item->stringType == stringType) return item;
    }
    return nullptr;
}

std::shared_ptr<ResultItem> MultiResult::getResultItem(AlgorithmType type) {
    for (const auto& item : items) {
        if (item->type == type) return item;
    }
    return nullptr;
}

void MultiResult::clear() { items.clear(); }

int MultiResult::resultCount() { return static_cast<int>(items.size()); }

CAfterEffectBuffer* MultiResult::afterEffectBuffer() {
    return decodeSlot(*this, afterEffect_, AlgorithmType::AfterEffect, after_effect_buffer_alloc);
}

CSceneRecogBuffer* MultiResult::sceneRecogBuffer() {
    return decodeSlot(*this, sceneRecog_, AlgorithmType::SceneRecog, scene_recog_buffer_alloc);
}

CSceneRecogV3Buffer* MultiResult::sceneRecogV3Buffer() {
    return decodeSlot(*this, sceneRecogV3_, AlgorithmType::SceneRecogV3, scene_recog_v3_buffer_alloc);
}

CFaceVerifyBuffer* MultiResult::faceVerifyBuffer() {
    return decodeSlot(*this, faceVerify_, AlgorithmType::FaceVerify, face_verify_buffer_alloc);
}

CPornClsBuffer* MultiResult::pornClsBuffer() {
    return decodeSlot(*this, pornCls_, AlgorithmType::PornCls, porn_cls_buffer_alloc);
}

CSimilarityBuffer* MultiResult::similarityBuffer() {
    return decodeSlot(*this, similarity_, AlgorithmType::Similarity, similarity_buffer_alloc);
}

CFaceBuffer* MultiResult::faceBuffer() { return decodeSlot(*this, face_, AlgorithmType::Face, face_buffer_alloc); }

CFaceAttributeBuffer* MultiResult::faceAttributeBuffer() {
    return decodeSlot(*this, faceAttribute_, AlgorithmType::FaceAttribute, face_attribute_buffer_alloc);
}

CNHClassificationBuffer* MultiResult::relationRecogBuffer() {
    return decodeSlot(*this, relationRecog_, std::string(AlgorithmTypeRelation), nhclassification_buffer_alloc);
}

CNHClassificationBuffer* MultiResult::c300Buffer() {
    return decodeSlot(*this, c300_, std::string(AlgorithmTypeC300), nhclassification_buffer_alloc);
}

CNHClassificationBuffer* MultiResult::clip128Buffer() {
    return decodeSlot(*this, clip128_, std::string(AlgorithmTypeClip128), nhclassification_buffer_alloc);
}

// Only kind 121 here; kind 130 results reach a MultiResult by their string kind.
CNHClassificationBuffer* MultiResult::nHClassificationBuffer() {
    return decodeSlot(*this, nHClassification_, AlgorithmType::NHClassification, nhclassification_buffer_alloc);
}

CPetMattingBuffer* MultiResult::petMattingBuffer() {
    return decodeSlot(*this, petMatting_, AlgorithmType::PetMatting, pet_matting_buffer_alloc);
}

CFacePetDetectBuffer* MultiResult::facePetDetectBuffer() {
    return decodeSlot(*this, facePetDetect_, AlgorithmType::FacePetDetect, face_pet_detect_buffer_alloc);
}

CSaliencySegInfo* MultiResult::saliencySegInfo() {
    return decodeSlot(*this, saliencySeg_, AlgorithmType::SaliencySeg, saliency_seg_info_alloc);
}

CSkeletonBuffer* MultiResult::skeletonBuffer() {
    return decodeSlot(*this, skeleton_, AlgorithmType::Skeleton, skeleton_buffer_alloc);
}

CMattingResult* MultiResult::mattingResult() {
    return decodeSlot(*this, matting_, AlgorithmType::Matting, matting_result_alloc);
}

CFaceClustingBuffer* MultiResult::faceClustingBuffer() {
    return decodeSlot(*this, faceClusting_, AlgorithmType::FaceClusting, face_clusting_buffer_alloc);
}

}  // namespace VQFeature
