/// The string algorithm kinds: output-node names of classification graphs. They are
/// used wherever a kind is given by name (MultiAlgorithmInput::stringTypes, clearTypes
/// by name, MultiResult items).
#pragma once

#include "Vantor/AlgorithmType.h"

namespace VQFeature {

extern const char* const AlgorithmTypeClip128;   ///< "ClassificationPostProcess_clip128"
extern const char* const AlgorithmTypeC300;      ///< "ClassificationPostProcess_c300"
extern const char* const AlgorithmTypeRelation;  ///< "ClassificationPostProcess_relation"

}  // namespace VQFeature
