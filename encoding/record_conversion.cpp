#include "encoding/record_conversion.h"

#include <cstdlib>
#include <cstring>

#include "encoding/record_lists.h"

namespace VQFeature {

using records::copyList;
using records::countOf;
using records::newRecord;

CFloat2** allocCFloat2(const Glintcore::PrimitiveVector<Glintcore::Vector2f>& points, unsigned long* count) {
    const size_t n = countOf(points);
    CFloat2** array = records::allocRecordArray<CFloat2>(n);
    for (size_t i = 0; i < n; ++i) {
        CFloat2* point = newRecord(c__float2__init);
        point->x = points[i].x;
        point->y = points[i].y;
        array[i] = point;
    }
    *count = n;
    return array;
}

void freeCFloat2(CFloat2** array, unsigned long count) {
    if (array == nullptr) return;
    // The points are malloc records without pointers, so the default allocator's
    // free_unpacked (which calls free) releases them exactly.
    for (unsigned long i = 0; i < count; ++i) c__float2__free_unpacked(array[i], nullptr);
    std::free(array);
}

CRect* allocCRect(const Glintcore::Rect& rect) {
    CRect* out = newRecord(c__rect__init);
    out->x = rect.x;
    out->y = (1.0f - rect.y) - rect.height;  // bottom-left origin
    out->y_vantor = rect.y;
    out->width = rect.width;
    out->height = rect.height;
    return out;
}

void freeCRect(CRect* rect) { std::free(rect); }

namespace {

// The three mask messages share one layout.
template <typename Record>
Record* fillMask(Record* out, const Vantor::FaceMaskBase& mask) {
    out->face_mask_size = mask.faceMaskSize;
    out->face_mask = copyList<uint32_t>(mask.faceMask, &out->n_face_mask);
    out->warp_mat = copyList<float>(mask.warpMat, &out->n_warp_mat);
    out->id = mask.id;
    return out;
}

template <typename Record>
void freeMask(Record* mask) {
    if (mask == nullptr) return;
    std::free(mask->warp_mat);
    std::free(mask->face_mask);
    std::free(mask);
}

}  // namespace

CFaceMouthMask* allocCFaceMouthMask(const Vantor::FaceMouthMask& mask) {
    return fillMask(newRecord(c__face_mouth_mask__init), mask);
}
CFaceTeethMask* allocCFaceTeethMask(const Vantor::FaceTeethMask& mask) {
    return fillMask(newRecord(c__face_teeth_mask__init), mask);
}
CFaceFaceMask* allocCFaceMask(const Vantor::FaceFaceMask& mask) {
    return fillMask(newRecord(c__face_face_mask__init), mask);
}
void freeCFaceMouthMask(CFaceMouthMask* mask) { freeMask(mask); }
void freeCFaceTeethMask(CFaceTeethMask* mask) { freeMask(mask); }
void freeCFaceMask(CFaceFaceMask* mask) { freeMask(mask); }

CFaceAttribute* allocCFaceAttribute(const Vantor::FaceAttribute& attribute) {
    CFaceAttribute* out = newRecord(c__face_attribute__init);
    out->age = attribute.age;
    out->boy_prob = attribute.boyProb;
    out->gender = attribute.gender;
    out->attractive = attribute.attractive;
    out->happy_score = attribute.happyScore;
    out->exp_type = attribute.expType;
    out->exp_probs = copyList<float>(attribute.expProbs, &out->n_exp_probs);
    out->real_face_prob = attribute.realFaceProb;
    out->quality = attribute.quality;
    return out;
}

void freeFaceAttr(CFaceAttribute* attribute) {
    if (attribute == nullptr) return;
    std::free(attribute->exp_probs);
    std::free(attribute);
}

CFaceOcclusion* allocCFaceOcclusion(const Vantor::FaceOcclusion& occlusion) {
    CFaceOcclusion* out = newRecord(c__face_occlusion__init);
    out->prob = occlusion.prob;
    out->id = occlusion.id;
    return out;
}

void freeCFaceOcclusion(CFaceOcclusion* occlusion) { std::free(occlusion); }

CFaceExtra* allocCFaceExtra(const Vantor::FaceExtra& extra) {
    CFaceExtra* out = newRecord(c__face_extra__init);
    out->eye_count = extra.eyeCount;
    out->eyebrow_count = extra.eyebrowCount;
    out->lips_count = extra.lipsCount;
    out->iris_count = extra.irisCount;
    unsigned long n = 0;
    out->eye_left = allocCFloat2(extra.eyeLeft, &n);
    out->n_eye_left = n;
    out->eye_right = allocCFloat2(extra.eyeRight, &n);
    out->n_eye_right = n;
    out->eyebrow_left = allocCFloat2(extra.eyebrowLeft, &n);
    out->n_eyebrow_left = n;
    out->eyebrow_right = allocCFloat2(extra.eyebrowRight, &n);
    out->n_eyebrow_right = n;
    out->lips = allocCFloat2(extra.lips, &n);
    out->n_lips = n;
    out->left_iris = allocCFloat2(extra.leftIris, &n);
    out->n_left_iris = n;
    out->right_iris = allocCFloat2(extra.rightIris, &n);
    out->n_right_iris = n;
    return out;
}

void freeCFaceExtra(CFaceExtra* extra) {
    if (extra == nullptr) return;
    freeCFloat2(extra->eye_left, extra->n_eye_left);
    freeCFloat2(extra->eye_right, extra->n_eye_right);
    freeCFloat2(extra->eyebrow_left, extra->n_eyebrow_left);
    freeCFloat2(extra->eyebrow_right, extra->n_eyebrow_right);
    freeCFloat2(extra->lips, extra->n_lips);
    freeCFloat2(extra->left_iris, extra->n_left_iris);
    freeCFloat2(extra->right_iris, extra->n_right_iris);
    std::free(extra);
}

CFace106* allocCFace106(const Vantor::Face106& face) {
    CFace106* out = newRecord(c__face106__init);
    out->rect = allocCRect(face.rect);
    out->score = face.score;
    unsigned long n = 0;
    out->points_array = allocCFloat2(face.points, &n);
    out->n_points_array = n;
    out->visibility_array = copyList<float>(face.visibility, &out->n_visibility_array);
    out->yaw = face.yaw;
    out->pitch = face.pitch;
    out->roll = face.roll;
    out->eye_dist = face.eyeDist;
    out->id = face.id;
    out->action = face.action;
    out->tracking_cnt = face.trackingCount;
    return out;
}

void freeCFace106(CFace106* face) {
    if (face == nullptr) return;
    std::free(face->visibility_array);
    freeCFloat2(face->points_array, face->n_points_array);
    freeCRect(face->rect);
    std::free(face);
}

CFaceVerifyInfo* allocCFaceVerifyInfo(Glintcore::SharePtr<Vantor::FaceVerifyInfo>& info) {
    if (!info) return nullptr;
    CFaceVerifyInfo* out = newRecord(c__face_verify_info__init);
    out->id = info->id;
    out->m_facestatus = info->faceStatus;
    out->m_modelversion = strdup(info->modelVersion.c_str());
    out->features = copyList<float>(info->features, &out->n_features);
    out->rect = allocCRect(info->rect);
    out->m_face106 = allocCFace106(info->face);
    return out;
}

void freeCFaceVerifyInfo(CFaceVerifyInfo* info) {
    if (info == nullptr) return;
    std::free(info->m_modelversion);
    std::free(info->features);
    freeCRect(info->rect);
    freeCFace106(info->m_face106);
    std::free(info);
}

CNHClassificationInfo* allocCNHClassificationInfo(const Vantor::NHClassificationInfo& info) {
    CNHClassificationInfo* out = newRecord(c__nhclassification_info__init);
    out->id = copyList<int32_t>(info.id, &out->n_id);
    out->confidence = copyList<float>(info.confidence, &out->n_confidence);
    out->exceedthresh = copyList<int32_t>(info.exceedThresh, &out->n_exceedthresh);  // int8: sign-extended
    out->numclasses = info.numClasses;
    return out;
}

void freeCNHClassificationInfo(CNHClassificationInfo* info) {
    if (info == nullptr) return;
    std::free(info->id);
    std::free(info->confidence);
    std::free(info->exceedthresh);
    std::free(info);
}

CNHClassificationFeature* allocCNHClassificationFeature(const Vantor::NHClassificationFeature& feature) {
    CNHClassificationFeature* out = newRecord(c__nhclassification_feature__init);
    out->features = copyList<float>(feature.features, &out->n_features);
    return out;
}

void freeCNHClassificationFeature(CNHClassificationFeature* feature) {
    if (feature == nullptr) return;
    std::free(feature->features);
    std::free(feature);
}

CPetMattingInfo* allocCPetMattingInfoInfo(const Vantor::PetMattingInfo& info) {
    CPetMattingInfo* out = newRecord(c__pet_matting_info__init);
    out->maskcount = info.maskCount;
    out->maskwidth = info.maskWidth;
    out->maskheight = info.maskHeight;
    out->mask0 = copyList<uint32_t>(info.mask0, &out->n_mask0);
    out->mask1 = copyList<uint32_t>(info.mask1, &out->n_mask1);
    return out;
}

void freeCPetMattingInfo(CPetMattingInfo* info) {
    if (info == nullptr) return;
    std::free(info->mask0);
    std::free(info->mask1);
    std::free(info);
}

CSaliencySegInfo* allocCSaliencySegInfo(const Vantor::SaliencySegInfo& info) {
    CSaliencySegInfo* out = newRecord(c__saliency_seg_info__init);
    out->valid = info.valid;
    out->realw = info.realW;
    out->realh = info.realH;
    out->img_w = info.imgW;
    out->img_h = info.imgH;
    out->bboxcenterx = info.bboxCenterX;
    out->bboxcentery = info.bboxCenterY;
    out->bboxwidth = info.bboxWidth;
    out->bboxheight = info.bboxHeight;
    out->bboxrotateangle = info.bboxRotateAngle;
    out->modelindex = info.modelIndex;
    out->alpha = copyList<uint32_t>(info.alpha, &out->n_alpha);
    out->input = copyList<uint32_t>(info.input, &out->n_input);
    return out;
}

void freeCSaliencySegInfo(CSaliencySegInfo* info) {
    if (info == nullptr) return;
    std::free(info->alpha);
    std::free(info->input);
    std::free(info);
}

CSkeletonInfo* allocCSkeletonInfo(const Vantor::SkeletonInfo& info) {
    CSkeletonInfo* out = newRecord(c__skeleton_info__init);
    out->id = info.id;
    out->rect = allocCRect(info.rect);
    unsigned long n = 0;
    out->key_points_xy = allocCFloat2(info.keyPoints, &n);
    out->n_key_points_xy = n;
    out->key_points_detected = copyList<uint32_t>(info.keyPointsDetected, &out->n_key_points_detected);
    out->key_points_score = copyList<float>(info.keyPointsScore, &out->n_key_points_score);
    // orientation is not carried: the blob has always held 0 there.
    return out;
}

void freeCSkeletonInfo(CSkeletonInfo* info) {
    if (info == nullptr) return;
    freeCRect(info->rect);
    freeCFloat2(info->key_points_xy, info->n_key_points_xy);
    std::free(info->key_points_detected);
    std::free(info->key_points_score);
    std::free(info);
}

}  // namespace VQFeature
