// Vantor::AlgorithmType: the framework's algorithm kinds. The numbers are fixed by the
// framework and are part of every cache key; never renumber. Values outside this list
// are unsupported by the engine but may be passed around as plain numbers.
#pragma once

#include <cstdint>

namespace Vantor {

enum class AlgorithmType : int32_t {
    AllNodes = -1,          // whole-graph run, no single result
    Face = 4,
    Skeleton = 7,
    FaceVerify = 8,
    FaceExpression = 9,     // has a graph, no encoder
    FaceClusting = 10,
    Matting = 12,
    SceneRecog = 25,
    Similarity = 29,
    AfterEffect = 30,
    PornCls = 33,
    FaceAttribute = 46,     // has an encoder, no graph
    SceneRecogV3 = 58,
    SaliencySeg = 60,
    PetMatting = 71,
    FacePetDetect = 95,
    NHClassification = 121,
    RelationRecog = 130,
};

}  // namespace Vantor
