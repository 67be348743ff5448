// Blob encoders of the region buffers: pet matting, pet faces, saliency, skeleton and
// matting.
#include <cstdlib>

#include "encoding/blob_encoders.h"
#include "encoding/record_conversion.h"
#include "encoding/record_lists.h"

namespace VQFeature {

using records::buildRecords;
using records::copyList;
using records::freeRecords;

namespace {

void freeFacePetInfo(CFacePetInfo* info) {
    freeCFloat2(info->points_array, info->n_points_array);
    freeCRect(info->rect);
    std::free(info);
}

}  // namespace

void* convertToBlob(Vantor::PetMattingBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr || !buffer->info) return nullptr;  // the info is required
    CPetMattingBuffer message = C__PET_MATTING_BUFFER__INIT;
    message.m_petmattinginfo = allocCPetMattingInfoInfo(*buffer->info);

    void* blob = records::packBlob(&message.base, size);

    freeCPetMattingInfo(message.m_petmattinginfo);
    return blob;
}

void* convertToBlob(Vantor::FacePetDetectBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CFacePetDetectBuffer message = C__FACE_PET_DETECT_BUFFER__INIT;
    message.m_facepetinfos = buildRecords<CFacePetInfo>(
        buffer->infos, &message.n_m_facepetinfos, [](const Glintcore::SharePtr<Vantor::FacePetInfo>& pet) {
            CFacePetInfo* info = records::newRecord(c__face_pet_info__init);
            info->face_pet_type = pet->facePetType;
            info->rect = allocCRect(pet->rect);
            unsigned long n = 0;
            info->points_array = allocCFloat2(pet->points, &n);
            info->n_points_array = n;
            info->yaw = pet->yaw;
            info->pitch = pet->pitch;
            info->roll = pet->roll;
            info->id = pet->id;
            info->action = pet->action;
            info->ear_type = pet->earType;
            // score is not carried: every pet blob has held 0 there and readers expect it.
            return info;
        });

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_facepetinfos, message.n_m_facepetinfos, freeFacePetInfo);
    return blob;
}

// Saliency: a generic buffer of type 47 whose first info is a SaliencySegInfo.
void* convertToBlob(Vantor::VantorBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr || buffer->getType() != Vantor::BUFFER_TYPE_SALIENCY_SEG || buffer->infos.empty()) {
        return nullptr;
    }
    const Glintcore::SharePtr<Vantor::VantorBufferInfo> held = buffer->infos[0];  // held while converted
    const auto* saliency = dynamic_cast<const Vantor::SaliencySegInfo*>(held.get());
    if (saliency == nullptr) return nullptr;
    CSaliencySegInfo* message = allocCSaliencySegInfo(*saliency);

    void* blob = records::packBlob(&message->base, size);

    freeCSaliencySegInfo(message);
    return blob;
}

void* convertToBlob(Vantor::SkeletonBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CSkeletonBuffer message = C__SKELETON_BUFFER__INIT;
    message.m_skeletoninfos =
        buildRecords<CSkeletonInfo>(buffer->infos, &message.n_m_skeletoninfos,
                                    [](const auto& person) { return allocCSkeletonInfo(*person); });
    // Deliberate field shifts that readers of these blobs depend on: both source sizes
    // carry the executed flag, m_heatmapDim carries the backbone-valid flag, and
    // m_isBackboneFeatsValid stays false.
    message.m_isexecuted = buffer->isExecuted;
    message.m_sourcewidth = buffer->isExecuted;
    message.m_sourceheight = buffer->isExecuted;
    message.m_backbonefeats = copyList<float>(buffer->backboneFeats, &message.n_m_backbonefeats);
    message.m_backbonfeatdim = buffer->backboneFeatDim;
    message.m_heatmaps = copyList<float>(buffer->heatmaps, &message.n_m_heatmaps);
    message.m_heatmapdim = buffer->isBackboneFeatsValid;

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_skeletoninfos, message.n_m_skeletoninfos, freeCSkeletonInfo);
    std::free(message.m_backbonefeats);
    std::free(message.m_heatmaps);
    return blob;
}

void* convertToBlob(Vantor::MattingBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr || !buffer->result) return nullptr;  // nothing to carry
    const Vantor::MattingResult& result = *buffer->result;
    CMattingResult message = C__MATTING_RESULT__INIT;
    message.width = result.width;
    message.height = result.height;
    message.maskdata = copyList<uint32_t>(result.mask, &message.n_maskdata);
    message.resultrect = allocCRect(result.rect);

    void* blob = records::packBlob(&message.base, size);

    std::free(message.maskdata);
    freeCRect(message.resultrect);
    return blob;
}

}  // namespace VQFeature
