// Blob encoders of the whole-image buffers: aesthetics, scene recognition (two
// generations), similarity, sensitive content and classification graphs.
#include <cstdlib>
#include <cstring>

#include "encoding/blob_encoders.h"
#include "encoding/record_conversion.h"
#include "encoding/record_lists.h"

namespace VQFeature {

using records::buildRecords;
using records::copyList;
using records::countOf;
using records::freeRecords;

namespace {

void freeAEScoreInfo(CAEScoreInfo* info) { std::free(info); }

// The scene entries of both generations own one strdup name.
template <typename Record>
void freeNamedRecord(Record* info) {
    std::free(info->name);
    std::free(info);
}

}  // namespace

void* convertToBlob(Vantor::AfterEffectBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CAfterEffectBuffer message = C__AFTER_EFFECT_BUFFER__INIT;
    const size_t n = countOf(buffer->scores);
    message.m_scores = records::allocRecordArray<CAEScoreInfo>(n);
    for (size_t i = 0; i < n; ++i) {
        const Vantor::AEScoreInfo& score = buffer->scores[i];
        CAEScoreInfo* info = records::newRecord(c__aescore_info__init);
        info->time = score.time;
        info->score = score.score;
        info->face_score = score.faceScore;
        info->quality_score = score.qualityScore;
        info->sharepness_score = score.sharpnessScore;
        info->meaningless_score = score.meaninglessScore;
        info->portrait_score = score.portraitScore;
        message.m_scores[i] = info;
    }
    message.n_m_scores = n;

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_scores, message.n_m_scores, freeAEScoreInfo);
    return blob;
}

void* convertToBlob(Vantor::SceneRecogBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CSceneRecogBuffer message = C__SCENE_RECOG_BUFFER__INIT;
    // Each entry is held (a reference of our own) while it is read.
    message.m_scenerecoginfo = buildRecords<CSceneRecogInfo>(
        buffer->infos, &message.n_m_scenerecoginfo, [](Glintcore::SharePtr<Vantor::SceneRecogInfo> held) {
            CSceneRecogInfo* info = records::newRecord(c__scene_recog_info__init);
            info->prob = held->prob;
            info->satisfied = held->satisfied;
            info->name = strdup(held->name.c_str());
            return info;
        });
    message.m_choose = buffer->choose;

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_scenerecoginfo, message.n_m_scenerecoginfo, freeNamedRecord<CSceneRecogInfo>);
    return blob;
}

void* convertToBlob(Vantor::SceneRecogV3Buffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CSceneRecogV3Buffer message = C__SCENE_RECOG_V3_BUFFER__INIT;
    message.m_scenerecogv3info = buildRecords<CSceneRecogV3Info>(
        buffer->infos, &message.n_m_scenerecogv3info, [](Glintcore::SharePtr<Vantor::SceneRecogV3Info> held) {
            CSceneRecogV3Info* info = records::newRecord(c__scene_recog_v3_info__init);
            info->id = held->id;
            info->confidence = held->confidence;
            info->thres = held->thres;
            info->satisfied = held->satisfied;
            info->name = strdup(held->name.c_str());
            return info;
        });
    message.c3_feature = copyList<float>(buffer->c3Feature, &message.n_c3_feature);

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_scenerecogv3info, message.n_m_scenerecogv3info, freeNamedRecord<CSceneRecogV3Info>);
    std::free(message.c3_feature);
    return blob;
}

void* convertToBlob(Vantor::SimilarityBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CSimilarityBuffer message = C__SIMILARITY_BUFFER__INIT;
    message.score = buffer->score;
    message.feature = copyList<uint32_t>(buffer->feature, &message.n_feature);  // one element per byte
    message.clusterids = copyList<int32_t>(buffer->clusterIds, &message.n_clusterids);

    void* blob = records::packBlob(&message.base, size);

    std::free(message.feature);
    std::free(message.clusterids);
    return blob;
}

void* convertToBlob(Vantor::PornClsBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CPornClsBuffer message = C__PORN_CLS_BUFFER__INIT;
    message.is_porn = buffer->isPorn;
    message.confidence = buffer->confidence;
    return records::packBlob(&message.base, size);
}

// Kinds 121 and 130 share this encoder. The producer fills one feature slot per
// information slot, so the leading non-empty feature slots F equal bufferSize B; should
// they ever differ, only slots below both (and below the slot count) are read.
void* convertToBlob(Vantor::NHClassificationBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    constexpr size_t kSlots = Vantor::NHClassificationBuffer::kSlots;
    CNHClassificationBuffer message = C__NHCLASSIFICATION_BUFFER__INIT;
    message.m_buffersize = buffer->bufferSize;

    const size_t infoSlots = buffer->bufferSize < kSlots ? static_cast<size_t>(buffer->bufferSize) : kSlots;
    message.m_classificationinfos = records::allocRecordArray<CNHClassificationInfo>(infoSlots);
    size_t infoCount = 0;
    for (size_t i = 0; i < infoSlots; ++i) {
        if (buffer->infos[i]) message.m_classificationinfos[infoCount++] = allocCNHClassificationInfo(*buffer->infos[i]);
    }
    message.n_m_classificationinfos = infoCount;

    size_t featureSlots = 0;  // F: leading non-empty feature slots
    while (featureSlots < kSlots && buffer->features[featureSlots]) ++featureSlots;
    if (featureSlots > 0) {
        message.m_classificationfeatures = records::allocRecordArray<CNHClassificationFeature>(featureSlots);
        const size_t featureCount = featureSlots < infoSlots ? featureSlots : infoSlots;
        for (size_t i = 0; i < featureCount; ++i) {
            message.m_classificationfeatures[i] = allocCNHClassificationFeature(*buffer->features[i]);
        }
        message.n_m_classificationfeatures = featureCount;
    }

    const size_t labelCount = countOf(buffer->labels);
    message.m_labels = static_cast<char**>(std::malloc(labelCount * sizeof(char*)));
    for (size_t i = 0; i < labelCount; ++i) message.m_labels[i] = strdup(buffer->labels[i].c_str());
    message.n_m_labels = labelCount;
    message.m_thresh = copyList<float>(buffer->thresh, &message.n_m_thresh);

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_classificationinfos, message.n_m_classificationinfos, freeCNHClassificationInfo);
    for (size_t i = 0; i < labelCount; ++i) std::free(message.m_labels[i]);
    std::free(message.m_labels);
    std::free(message.m_thresh);
    freeRecords(message.m_classificationfeatures, message.n_m_classificationfeatures, freeCNHClassificationFeature);
    return blob;
}

}  // namespace VQFeature
