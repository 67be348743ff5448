/// Result: one result blob for one asset and one algorithm kind.
///
/// The blob (result, resultLength) is a malloc block held by the Result. The first
/// matching typed accessor decodes it, keeps the decoded message and lets go of the blob,
/// so afterwards only the decoded message remains. A block may have several holders (the
/// engine's hand-over to a several-kind item, a pointer set into a second record): it is
/// freed by the last (extractor/blob_blocks.h).
/// Shared between the engine and the caches through shared_ptr; not synchronised.
#pragma once

#include <string>

#include "Vantor/AlgorithmType.h"
#include "extractor/iresult.h"

namespace VQFeature {

class Result : public IResult {
public:
    /// No blob, empty texts, kind 0.
    Result();
    /// No blob.
    Result(const std::string& assetId, const std::string& algorithmKey, Vantor::AlgorithmType type);
    /// Holds the blob: a new block becomes this Result's, a block another record holds
    /// gets one more holder (Java: a pointer of a freed block throws
    /// IllegalArgumentException). The length passes through a signed 32-bit int and is
    /// widened with its sign, as the binding always did.
    Result(const std::string& assetId, const std::string& algorithmKey, Vantor::AlgorithmType type, void* result,
           int length);
    /// A string-kind result: algorithmType is -1.
    Result(const std::string& assetId, const std::string& algorithmKey, const std::string& algorithmStringType,
           void* result, int length);
    Result(const Result&) = delete;
    Result& operator=(const Result&) = delete;
    ~Result() override;

    void freeResult();       ///< lets go of the blob (freed unless another record holds it); resultLength unchanged
    void resetData();        ///< forgets the blob without freeing (it was handed elsewhere)
    /// Stores a malloc copy of size bytes; resultLength and an earlier blob are left as
    /// they are (the caller sets the length).
    void setResultNative(const char* data, unsigned long size);
    /// Copies size bytes of the blob into dest; the caller sizes dest.
    void memcpyStructResult(char* dest, unsigned long size);
    /// For the three named string kinds, releases the decoded message and returns true.
    bool freeStringTypeResult();
    /// Releases the decoded message, if any.
    void freeStructResult();

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

    unsigned long resultLength;          ///< bytes of the blob
    void* result;                        ///< the blob (native memory; read it with memcpyStructResult). Set from Java, the record becomes one more holder of the block and lets go of its earlier one; a pointer of a freed block throws IllegalArgumentException
    std::string assetId;                 ///< the picture's id
    std::string algorithmStringType;     ///< the string kind, empty for enumerated kinds
    Vantor::AlgorithmType algorithmType; ///< the kind; -1 for a string kind
    std::string algorithmKey;            ///< the request's algorithm key (second half of the cache key)

private:
    void* decoded_;
};

}  // namespace VQFeature
