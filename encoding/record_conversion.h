// Record conversion: copies one framework result object into its plain record (the
// generated protobuf-c structure of its message), ready to be packed by the encoders.
//
// Ownership: every alloc* returns a malloc record (passed through its generated init)
// whose lists are malloc arrays, sub-records malloc records and strings strdup copies;
// the caller releases it with the matching free* (null-safe). Framework objects are only
// read. Stateless; safe from any thread as long as the framework object is not changed
// meanwhile.
//
// Rectangles: `y` is flipped to a bottom-left origin, (1 - y) - height in single
// precision, and `y_vantor` keeps the framework's own top-left y.
#pragma once

#include "Glintcore/Geometry.h"
#include "Glintcore/PrimitiveVector.h"
#include "Glintcore/SharePtr.h"
#include "Vantor/Vantor.h"
#include "vqfe_results.pb-c.h"

namespace VQFeature {

// One CFloat2 record per point; *count receives the number of points.
CFloat2** allocCFloat2(const Glintcore::PrimitiveVector<Glintcore::Vector2f>& points, unsigned long* count);
void freeCFloat2(CFloat2** array, unsigned long count);

CRect* allocCRect(const Glintcore::Rect& rect);
void freeCRect(CRect* rect);

// Mask bytes are zero-extended (255 stays 255).
CFaceMouthMask* allocCFaceMouthMask(const Vantor::FaceMouthMask& mask);
CFaceTeethMask* allocCFaceTeethMask(const Vantor::FaceTeethMask& mask);
CFaceFaceMask* allocCFaceMask(const Vantor::FaceFaceMask& mask);
void freeCFaceMouthMask(CFaceMouthMask* mask);
void freeCFaceTeethMask(CFaceTeethMask* mask);
void freeCFaceMask(CFaceFaceMask* mask);

// The free function's name lacks the C; it is the name the system always used.
CFaceAttribute* allocCFaceAttribute(const Vantor::FaceAttribute& attribute);
void freeFaceAttr(CFaceAttribute* attribute);

CFaceOcclusion* allocCFaceOcclusion(const Vantor::FaceOcclusion& occlusion);
void freeCFaceOcclusion(CFaceOcclusion* occlusion);

CFaceExtra* allocCFaceExtra(const Vantor::FaceExtra& extra);
void freeCFaceExtra(CFaceExtra* extra);

CFace106* allocCFace106(const Vantor::Face106& face);
void freeCFace106(CFace106* face);

// Null for a null info.
CFaceVerifyInfo* allocCFaceVerifyInfo(Glintcore::SharePtr<Vantor::FaceVerifyInfo>& info);
void freeCFaceVerifyInfo(CFaceVerifyInfo* info);

// Flag bytes are sign-extended.
CNHClassificationInfo* allocCNHClassificationInfo(const Vantor::NHClassificationInfo& info);
void freeCNHClassificationInfo(CNHClassificationInfo* info);

CNHClassificationFeature* allocCNHClassificationFeature(const Vantor::NHClassificationFeature& feature);
void freeCNHClassificationFeature(CNHClassificationFeature* feature);

// The doubled "InfoInfo" is the system's name and stays.
CPetMattingInfo* allocCPetMattingInfoInfo(const Vantor::PetMattingInfo& info);
void freeCPetMattingInfo(CPetMattingInfo* info);

CSaliencySegInfo* allocCSaliencySegInfo(const Vantor::SaliencySegInfo& info);
void freeCSaliencySegInfo(CSaliencySegInfo* info);

// `orientation` is deliberately not carried and stays 0.
CSkeletonInfo* allocCSkeletonInfo(const Vantor::SkeletonInfo& info);
void freeCSkeletonInfo(CSkeletonInfo* info);

}  // namespace VQFeature
