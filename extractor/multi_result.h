/// MultiResult: the blobs of several algorithm kinds for one asset, one ResultItem each.
///
/// Items own their blobs (malloc blocks, freed when the last holder of the item lets
/// go). Typed accessors decode the first matching item into a slot owned by the
/// MultiResult; the item keeps its blob. Not synchronised.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Vantor/AlgorithmType.h"
#include "extractor/iresult.h"

namespace VQFeature {

class MultiResult : public IResult {
public:
    /// The blob of one kind.
    class ResultItem {
    public:
        /// No blob.
        ResultItem();
        /// Both hold data (a malloc block; one more holder of a block another record holds).
        ResultItem(Vantor::AlgorithmType type, void* data, unsigned long size);
        /// An item of a string kind; holds data.
        ResultItem(const std::string& stringType, void* data, unsigned long size);
        ResultItem(const ResultItem&) = delete;
        ResultItem& operator=(const ResultItem&) = delete;
        ~ResultItem();

        /// Copies size bytes of data into dest; the caller sizes dest.
        void memcpyStructResult(char* dest, unsigned long size);

        Vantor::AlgorithmType type;   ///< not meaningful for string-kind items
        std::string stringType;       ///< empty for enumerated items
        void* data;                   ///< the blob (native memory; read it with memcpyStructResult). Set from Java as Result::result is, with the same rules
        unsigned long size;           ///< bytes of the blob
    };

    /// No items.
    MultiResult();
    MultiResult(const MultiResult&) = delete;
    MultiResult& operator=(const MultiResult&) = delete;
    ~MultiResult() override;

    /// Append an item that holds data.
    void emplace(Vantor::AlgorithmType type, void* data, unsigned long size);
    /// Append an item of a string kind that holds data.
    void emplace(const std::string& stringType, void* data, unsigned long size);
    /// The first item of that string kind, or null.
    std::shared_ptr<ResultItem> getResultItem(const std::string& stringType);
    /// The first item of that kind, or null.
    std::shared_ptr<ResultItem> getResultItem(Vantor::AlgorithmType type);
    /// Drops the items; decoded slots stay.
    void clear();
    /// Number of items.
    int resultCount();

    CAfterEffectBuffer* afterEffectBuffer() override;
    CSceneRecogBuffer* sceneRecogBuffer() override;
    CSceneRecogV3Buffer* sceneRecogV3Buffer() override;
    CFaceVerifyBuffer* faceVerifyBuffer() override;
    CPornClsBuffer* pornClsBuffer() override;
    CSimilarityBuffer* similarityBuffer() override;
    CFaceBuffer* faceBuffer() override;
    CFaceAttributeBuffer* faceAttributeBuffer() override;
    CNHClassificationBuffer* relationRecogBuffer() override;
    CNHClassificationBuffer* c300Buffer() override;
    CNHClassificationBuffer* clip128Buffer() override;
    CNHClassificationBuffer* nHClassificationBuffer() override;
    CPetMattingBuffer* petMattingBuffer() override;
    CFacePetDetectBuffer* facePetDetectBuffer() override;
    CSaliencySegInfo* saliencySegInfo() override;
    CSkeletonBuffer* skeletonBuffer() override;
    CMattingResult* mattingResult() override;
    CFaceClustingBuffer* faceClustingBuffer() override;

    std::string assetId;                       ///< the picture's id
    std::vector<Vantor::AlgorithmType> types;  ///< the kinds asked for
    std::vector<std::string> stringTypes;      ///< the string kinds asked for
    std::vector<std::shared_ptr<ResultItem>> items;  ///< insertion order

private:
    CAfterEffectBuffer* afterEffect_ = nullptr;
    CSceneRecogBuffer* sceneRecog_ = nullptr;
    CSceneRecogV3Buffer* sceneRecogV3_ = nullptr;
    CFaceVerifyBuffer* faceVerify_ = nullptr;
    CPornClsBuffer* pornCls_ = nullptr;
    CSimilarityBuffer* similarity_ = nullptr;
    CFaceBuffer* face_ = nullptr;
    CFaceAttributeBuffer* faceAttribute_ = nullptr;
    CNHClassificationBuffer* nHClassification_ = nullptr;
    CNHClassificationBuffer* relationRecog_ = nullptr;
    CNHClassificationBuffer* clip128_ = nullptr;
    CNHClassificationBuffer* c300_ = nullptr;
    CPetMattingBuffer* petMatting_ = nullptr;
    CFacePetDetectBuffer* facePetDetect_ = nullptr;
    CSaliencySegInfo* saliencySeg_ = nullptr;
    CSkeletonBuffer* skeleton_ = nullptr;
    CMattingResult* matting_ = nullptr;
    CFaceClustingBuffer* faceClusting_ = nullptr;
};

}  // namespace VQFeature
