// Region result buffers: pet matting (PetMattingBuffer, kind 71), pet faces
// (FacePetDetectBuffer, 71/95), saliency (SaliencySegInfo inside a generic buffer of
// type 47, kind 60), skeleton (SkeletonBuffer 7) and matting (MattingBuffer 12).
#pragma once

#include <cstdint>
#include <vector>

#include "Glintcore/Geometry.h"
#include "Glintcore/PrimitiveVector.h"
#include "Glintcore/SharePtr.h"
#include "Vantor/AlgorithmType.h"
#include "Vantor/VantorBuffer.h"

namespace Vantor {

class PetMattingInfo : public Glintcore::RefObject {
public:
    int32_t maskCount = 0;                    // masks filled: 0, 1 or 2
    int32_t maskWidth = 0;
    int32_t maskHeight = 0;
    Glintcore::PrimitiveVector<uint8_t> mask0;  // maskWidth x maskHeight bytes
    Glintcore::PrimitiveVector<uint8_t> mask1;
};

class PetMattingBuffer : public VantorBuffer {
public:
    PetMattingBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::PetMatting)) {}
    Glintcore::SharePtr<PetMattingInfo> info;
};

class FacePetInfo : public Glintcore::RefObject {
public:
    int32_t facePetType = 0;      // 1 cat, 2 dog
    Glintcore::Rect rect;
    float score = 0.f;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> points;
    float yaw = 0.f;
    float pitch = 0.f;
    float roll = 0.f;
    int32_t id = 0;
    uint32_t action = 0;
    int32_t earType = 0;
};

class FacePetDetectBuffer : public VantorBuffer {
public:
    explicit FacePetDetectBuffer(int32_t type = static_cast<int32_t>(AlgorithmType::FacePetDetect))
        : VantorBuffer(type) {}
    std::vector<Glintcore::SharePtr<FacePetInfo>> infos;
};

class SaliencySegInfo : public VantorBufferInfo {
public:
    bool valid = false;
    float realW = 0.f;            // size of the analysed area, pixels
    float realH = 0.f;
    float imgW = 0.f;             // size of the mask, pixels
    float imgH = 0.f;
    float bboxCenterX = 0.f;      // salient box, normalised
    float bboxCenterY = 0.f;
    float bboxWidth = 0.f;
    float bboxHeight = 0.f;
    float bboxRotateAngle = 0.f;
    int32_t modelIndex = 0;
    Glintcore::PrimitiveVector<uint8_t> alpha;  // saliency mask, imgW x imgH bytes
    Glintcore::PrimitiveVector<uint8_t> input;  // the analysed grey image, same size
};

class SkeletonInfo : public Glintcore::RefObject {
public:
    int32_t id = 0;
    Glintcore::Rect rect;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> keyPoints;
    Glintcore::PrimitiveVector<uint8_t> keyPointsDetected;  // one flag byte per point
    Glintcore::PrimitiveVector<float> keyPointsScore;
    int32_t orientation = 0;
};

class SkeletonBuffer : public VantorBuffer {
public:
    SkeletonBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::Skeleton)) {}
    std::vector<Glintcore::SharePtr<SkeletonInfo>> infos;
    bool isExecuted = false;
    int32_t sourceWidth = 0;
    int32_t sourceHeight = 0;
    Glintcore::PrimitiveVector<float> backboneFeats;
    int32_t backboneFeatDim = 0;
    Glintcore::PrimitiveVector<float> heatmaps;
    int32_t heatmapDim = 0;
    bool isBackboneFeatsValid = false;
};

class MattingResult : public Glintcore::RefObject {
public:
    int32_t width = 0;
    int32_t height = 0;
    Glintcore::PrimitiveVector<uint8_t> mask;  // width x height bytes, 255 = foreground
    Glintcore::Rect rect;                      // foreground bounding box
};

class MattingBuffer : public VantorBuffer {
public:
    MattingBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::Matting)) {}
    Glintcore::SharePtr<MattingResult> result;
};

}  // namespace Vantor
