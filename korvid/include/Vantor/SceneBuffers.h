// Whole-image result buffers: aesthetics (AfterEffectBuffer, kind 30), scene
// recognition (SceneRecogBuffer 25, SceneRecogV3Buffer 58), similarity features
// (SimilarityBuffer 29), sensitive content (PornClsBuffer 33) and classification graphs
// (NHClassificationBuffer 121 and 130).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Glintcore/PrimitiveVector.h"
#include "Glintcore/SharePtr.h"
#include "Vantor/AlgorithmType.h"
#include "Vantor/VantorBuffer.h"

namespace Vantor {

struct AEScoreInfo {
    int32_t time = 0;             // frame time; 0 for still images
    float score = 0.f;            // overall aesthetic score
    float faceScore = 0.f;
    float qualityScore = 0.f;
    float sharpnessScore = 0.f;
    float meaninglessScore = 0.f;
    float portraitScore = 0.f;
};

class AfterEffectBuffer : public VantorBuffer {
public:
    AfterEffectBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::AfterEffect)) {}
    std::vector<AEScoreInfo> scores;
};

class SceneRecogInfo : public Glintcore::RefObject {
public:
    float prob = 0.f;
    bool satisfied = false;       // prob reached the label's threshold
    std::string name;
};

class SceneRecogBuffer : public VantorBuffer {
public:
    SceneRecogBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::SceneRecog)) {}
    std::vector<Glintcore::SharePtr<SceneRecogInfo>> infos;
    int32_t choose = -1;          // index of the chosen scene, -1 for none
};

class SceneRecogV3Info : public Glintcore::RefObject {
public:
    int32_t id = 0;
    float confidence = 0.f;
    float thres = 0.f;
    bool satisfied = false;
    std::string name;
};

class SceneRecogV3Buffer : public VantorBuffer {
public:
    SceneRecogV3Buffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::SceneRecogV3)) {}
    std::vector<Glintcore::SharePtr<SceneRecogV3Info>> infos;
    Glintcore::PrimitiveVector<float> c3Feature;
};

class SimilarityBuffer : public VantorBuffer {
public:
    SimilarityBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::Similarity)) {}
    float score = 0.f;
    Glintcore::PrimitiveVector<uint8_t> feature;   // feature bytes
    Glintcore::PrimitiveVector<int32_t> clusterIds;
};

class PornClsBuffer : public VantorBuffer {
public:
    PornClsBuffer() : VantorBuffer(static_cast<int32_t>(AlgorithmType::PornCls)) {}
    uint8_t isPorn = 0;           // one-byte flag
    float confidence = 0.f;
};

class NHClassificationInfo : public Glintcore::RefObject {
public:
    Glintcore::PrimitiveVector<int32_t> id;           // class ids, in output order
    Glintcore::PrimitiveVector<float> confidence;     // one per id
    Glintcore::PrimitiveVector<int8_t> exceedThresh;  // one flag byte per id
    int32_t numClasses = 0;
};

class NHClassificationFeature : public Glintcore::RefObject {
public:
    Glintcore::PrimitiveVector<float> features;
};

class NHClassificationBuffer : public VantorBuffer {
public:
    static constexpr int kSlots = 10;
    explicit NHClassificationBuffer(int32_t type = static_cast<int32_t>(AlgorithmType::NHClassification))
        : VantorBuffer(type) {}
    // Number of filled information slots (at most kSlots). The producer fills one
    // feature slot per information slot when it outputs features, none otherwise.
    uint64_t bufferSize = 0;
    Glintcore::SharePtr<NHClassificationInfo> infos[kSlots];
    Glintcore::SharePtr<NHClassificationFeature> features[kSlots];  // empty slot = null
    std::vector<std::string> labels;
    Glintcore::PrimitiveVector<float> thresh;
};

}  // namespace Vantor
