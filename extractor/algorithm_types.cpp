#include "extractor/algorithm_types.h"

namespace VQFeature {

const char* const AlgorithmTypeClip128 = "ClassificationPostProcess_clip128";
const char* const AlgorithmTypeC300 = "ClassificationPostProcess_c300";
const char* const AlgorithmTypeRelation = "ClassificationPostProcess_relation";

}  // namespace VQFeature
