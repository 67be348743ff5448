// CoverUtil's graph and model-list lookups, VantorGraph and the post-processor names.
#include <string>

#include "vantor/cover_util.h"
#include "vantor/graph_texts.h"

namespace VQFeature {

const char* const kPostProcessorNames[3] = {
    "ClassificationPostProcess_clip128",
    "ClassificationPostProcess_c300",
    "ClassificationPostProcess_relation",
};

namespace {

std::string kind121Graph() {
    std::string text(GraphTexts::kKind121Head);
    text += GraphTexts::kClassLabels208;
    text += GraphTexts::kKind121Middle;
    text += GraphTexts::kClassThresholds208;
    text += GraphTexts::kKind121Tail;
    return text;
}

}  // namespace

// A plain lookup by kind number: no template is parsed or filled in here; per-run
// parameters go through VantorSystem::setParams instead.
std::string CoverUtil::getAlgorithmConf(const Vantor::AlgorithmType& type) {
    using Vantor::AlgorithmType;
    switch (type) {
        case AlgorithmType::Face: return GraphTexts::kKind4;
        case AlgorithmType::Skeleton: return GraphTexts::kKind7;
        case AlgorithmType::FaceVerify: return GraphTexts::kKind8;
        case AlgorithmType::FaceExpression: return GraphTexts::kKind9;
        case AlgorithmType::FaceClusting: return GraphTexts::kKind10;
        case AlgorithmType::Matting: return GraphTexts::kKind12;
        case AlgorithmType::SceneRecog: return GraphTexts::kKind25;
        case AlgorithmType::Similarity: return GraphTexts::kKind29;
        case AlgorithmType::AfterEffect: return GraphTexts::kKind30;
        case AlgorithmType::PornCls: return GraphTexts::kKind33;
        case AlgorithmType::SceneRecogV3: return GraphTexts::kKind58;
        case AlgorithmType::SaliencySeg: return GraphTexts::kKind60;
        case AlgorithmType::PetMatting: return GraphTexts::kKind71;
        case AlgorithmType::FacePetDetect: return GraphTexts::kKind95;
        case AlgorithmType::NHClassification: return kind121Graph();
        case AlgorithmType::RelationRecog: return GraphTexts::kKind130;
        default: return "";  // FaceAttribute (46) has an encoder but no graph, on purpose
    }
}

std::string CoverUtil::getDefaultModels() { return GraphTexts::kDefaultModels; }

std::string VantorGraph::gradingGraph() { return GraphTexts::kGradingGraph; }

std::string VantorGraph::recognitionGraph() { return GraphTexts::kRecognitionGraph; }

}  // namespace VQFeature
