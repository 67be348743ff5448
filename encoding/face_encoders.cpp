// Blob encoders of the face buffers: detection (C_FaceBuffer), verification,
// attributes and clustering.
#include <cstdlib>
#include <iostream>

#include "encoding/blob_encoders.h"
#include "encoding/record_conversion.h"
#include "encoding/record_lists.h"

namespace VQFeature {

using records::buildRecords;
using records::copyList;
using records::countOf;
using records::freeRecords;

namespace {

// Builds the CFace106 records and writes the diagnostic line of the face encoder to
// standard output. Tools read this line: the rectangles show the width twice and never
// the height, which is its established format.
CFace106** buildFaces(const std::vector<Glintcore::SharePtr<Vantor::Face106>>& faces, size_t* count) {
    const size_t n = countOf(faces);
    CFace106** out = records::allocRecordArray<CFace106>(n);
    size_t built = 0;
    std::cout << "[VQFE]FaceBuffer: size=" << faces.size();
    for (size_t i = 0; i < n; ++i) {
        const Vantor::Face106* face = faces[i].get();
        if (face == nullptr) continue;  // no face: no record
        std::cout << " score=" << face->score << " rect=(" << face->rect.x << "," << face->rect.y << ","
                  << face->rect.width << "," << face->rect.width << ")"
                  << " n_points_array=" << face->points.size() << " n_visibility_array=" << face->visibility.size();
        CFace106* record = allocCFace106(*face);
        out[built++] = record;
        std::cout << " c_score=" << record->score << " c_rect=(" << record->rect->x << "," << record->rect->y << ","
                  << record->rect->width << "," << record->rect->width << ")"
                  << " c_n_points_array=" << record->n_points_array
                  << " c_n_visibility_array=" << record->n_visibility_array;
    }
    std::cout << std::endl;
    *count = built;
    return out;
}

}  // namespace

void* convertToBlob(Vantor::FaceBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CFaceBuffer message = C__FACE_BUFFER__INIT;
    message.m_width = buffer->imageWidth;
    message.m_height = buffer->imageHeight;
    message.m_facebaseinfos = buildFaces(buffer->faces, &message.n_m_facebaseinfos);
    message.m_faceextrainfos = buildRecords<CFaceExtra>(
        buffer->extras, &message.n_m_faceextrainfos, [](const auto& extra) { return allocCFaceExtra(*extra); });
    message.m_facemouthmask = buildRecords<CFaceMouthMask>(
        buffer->mouthMasks, &message.n_m_facemouthmask, [](const auto& mask) { return allocCFaceMouthMask(*mask); });
    message.m_faceteethmask = buildRecords<CFaceTeethMask>(
        buffer->teethMasks, &message.n_m_faceteethmask, [](const auto& mask) { return allocCFaceTeethMask(*mask); });
    message.m_facefacemask = buildRecords<CFaceFaceMask>(
        buffer->faceMasks, &message.n_m_facefacemask, [](const auto& mask) { return allocCFaceMask(*mask); });
    message.m_faceocclusion =
        buildRecords<CFaceOcclusion>(buffer->occlusions, &message.n_m_faceocclusion,
                                     [](const auto& occlusion) { return allocCFaceOcclusion(*occlusion); });

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_facebaseinfos, message.n_m_facebaseinfos, freeCFace106);
    freeRecords(message.m_faceextrainfos, message.n_m_faceextrainfos, freeCFaceExtra);
    freeRecords(message.m_facemouthmask, message.n_m_facemouthmask, freeCFaceMouthMask);
    freeRecords(message.m_faceteethmask, message.n_m_faceteethmask, freeCFaceTeethMask);
    freeRecords(message.m_facefacemask, message.n_m_facefacemask, freeCFaceMask);
    freeRecords(message.m_faceocclusion, message.n_m_faceocclusion, freeCFaceOcclusion);
    return blob;
}

void* convertToBlob(Vantor::FaceVerifyBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CFaceVerifyBuffer message = C__FACE_VERIFY_BUFFER__INIT;
    message.needupdate = buffer->needUpdate;
    message.m_validfacenum = buffer->validFaceNum;
    message.m_dynamicfacenum = buffer->dynamicFaceNum;
    // Each info is held (a reference of our own) while it is converted.
    auto convert = [](Glintcore::SharePtr<Vantor::FaceVerifyInfo> held) { return allocCFaceVerifyInfo(held); };
    message.m_dynamicinfos = buildRecords<CFaceVerifyInfo>(buffer->dynamicInfos, &message.n_m_dynamicinfos, convert);
    message.m_faceverifyinfos =
        buildRecords<CFaceVerifyInfo>(buffer->faceVerifyInfos, &message.n_m_faceverifyinfos, convert);

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_dynamicinfos, message.n_m_dynamicinfos, freeCFaceVerifyInfo);
    freeRecords(message.m_faceverifyinfos, message.n_m_faceverifyinfos, freeCFaceVerifyInfo);
    return blob;
}

void* convertToBlob(Vantor::FaceAttributeBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CFaceAttributeBuffer message = C__FACE_ATTRIBUTE_BUFFER__INIT;
    message.m_faceattributeinfos =
        buildRecords<CFaceAttribute>(buffer->attributes, &message.n_m_faceattributeinfos,
                                     [](const auto& attribute) { return allocCFaceAttribute(*attribute); });

    void* blob = records::packBlob(&message.base, size);

    freeRecords(message.m_faceattributeinfos, message.n_m_faceattributeinfos, freeFaceAttr);
    return blob;
}

void* convertToBlob(Vantor::FaceClustingBuffer* buffer, unsigned long* size) {
    if (buffer == nullptr) return nullptr;
    CFaceClustingBuffer message = C__FACE_CLUSTING_BUFFER__INIT;
    message.m_results = copyList<int32_t>(buffer->results, &message.n_m_results);
    const size_t clusterCount = countOf(buffer->clusters);
    message.m_clusters = records::allocRecordArray<CIntArray>(clusterCount);
    for (size_t i = 0; i < clusterCount; ++i) {
        CIntArray* cluster = records::newRecord(c__int_array__init);
        cluster->i = copyList<int32_t>(buffer->clusters[i], &cluster->n_i);
        message.m_clusters[i] = cluster;
    }
    message.n_m_clusters = clusterCount;
    message.m_faceclustinginfo = buffer->clustingInfo.flag;

    void* blob = records::packBlob(&message.base, size);

    for (size_t i = 0; i < clusterCount; ++i) {
        std::free(message.m_clusters[i]->i);
        std::free(message.m_clusters[i]);
    }
    std::free(message.m_clusters);
    std::free(message.m_results);
    return blob;
}

}  // namespace VQFeature
