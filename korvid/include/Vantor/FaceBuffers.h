// Face result buffers: detection with landmarks (FaceBuffer, kind 4), verification
// features (FaceVerifyBuffer, kind 8), attributes (FaceAttributeBuffer, kind 46) and
// clustering (FaceClustingBuffer, kind 10). Rectangles and points are normalised to
// the image, top-left origin.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Glintcore/Geometry.h"
#include "Glintcore/PrimitiveVector.h"
#include "Glintcore/SharePtr.h"
#include "Vantor/AlgorithmType.h"
#include "Vantor/VantorBuffer.h"

namespace Vantor {

class Face106 : public Glintcore::RefObject {
public:
    Glintcore::Rect rect;
    float score = 0.f;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> points;  // landmarks
    Glintcore::PrimitiveVector<float> visibility;            // one per landmark
    float yaw = 0.f;
    float pitch = 0.f;
    float roll = 0.f;
    float eyeDist = 0.f;       // distance between the eye centres, normalised to width
    int32_t id = 0;
    uint32_t action = 0;       // bit set of detected actions
    uint32_t trackingCount = 0;
};

class FaceExtra : public Glintcore::RefObject {
public:
    int32_t eyeCount = 0;
    int32_t eyebrowCount = 0;
    int32_t lipsCount = 0;
    int32_t irisCount = 0;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> eyeLeft;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> eyeRight;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> eyebrowLeft;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> eyebrowRight;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> lips;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> leftIris;
    Glintcore::PrimitiveVector<Glintcore::Vector2f> rightIris;
};

// The three face masks share one layout but are distinct types.
class FaceMaskBase : public Glintcore::RefObject {
public:
    int32_t faceMaskSize = 0;                    // mask side length in pixels
    Glintcore::PrimitiveVector<uint8_t> faceMask;  // 0..255 per pixel
    Glintcore::PrimitiveVector<float> warpMat;     // 2x3 affine, face crop to image
    int32_t id = 0;                                // face id the mask belongs to
};
class FaceMouthMask : public FaceMaskBase {};
class FaceTeethMask : public FaceMaskBase {};
class FaceFaceMask : public FaceMaskBase {};

class FaceOcclusion : public Glintcore::RefObject {
public:
    float prob = 0.f;
    int32_t id = 0;
};

class FaceBuffer : public VantorBuffer {
public:
    FaceBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::Face)) {}
    int32_t imageWidth = 0;
    int32_t imageHeight = 0;
    std::vector<Glintcore::SharePtr<Face106>> faces;
    std::vector<Glintcore::SharePtr<FaceExtra>> extras;
    std::vector<Glintcore::SharePtr<FaceMouthMask>> mouthMasks;
    std::vector<Glintcore::SharePtr<FaceTeethMask>> teethMasks;
    std::vector<Glintcore::SharePtr<FaceFaceMask>> faceMasks;
    std::vector<Glintcore::SharePtr<FaceOcclusion>> occlusions;
};

class FaceVerifyInfo : public Glintcore::RefObject {
public:
    Glintcore::PrimitiveVector<float> features;  // identity feature vector
    Face106 face;
    int32_t id = 0;
    Glintcore::Rect rect;
    int32_t faceStatus = 0;
    std::string modelVersion;
};

class FaceVerifyBuffer : public VantorBuffer {
public:
    FaceVerifyBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::FaceVerify)) {}
    std::vector<Glintcore::SharePtr<FaceVerifyInfo>> faceVerifyInfos;
    std::vector<Glintcore::SharePtr<FaceVerifyInfo>> dynamicInfos;
    bool needUpdate = false;
    int32_t validFaceNum = 0;
    int32_t dynamicFaceNum = 0;
};

class FaceAttribute : public Glintcore::RefObject {
public:
    float age = 0.f;
    float boyProb = 0.f;
    int32_t gender = 0;        // 0 female, 1 male
    float attractive = 0.f;
    float happyScore = 0.f;
    int32_t expType = 0;       // index of the most likely expression
    Glintcore::PrimitiveVector<float> expProbs;
    float realFaceProb = 0.f;
    float quality = 0.f;
};

class FaceAttributeBuffer : public VantorBuffer {
public:
    FaceAttributeBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::FaceAttribute)) {}
    std::vector<Glintcore::SharePtr<FaceAttribute>> attributes;
};

class FaceClustingInfo : public Glintcore::RefObject {
public:
    uint8_t flag = 0;          // 1 when the clustering state changed in this run
};

class FaceClustingBuffer : public VantorBuffer {
public:
    FaceClustingBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::FaceClusting)) {}
    Glintcore::PrimitiveVector<int32_t> results;                 // cluster id per face
    std::vector<Glintcore::PrimitiveVector<int32_t>> clusters;   // face indices per cluster
    FaceClustingInfo clustingInfo;
};

}  // namespace Vantor
