// CoverUtil's graph and model-list lookups, VantorGraph and the post-processor names.
// (CoverUtil's blob memory helpers live with the encoders.)
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
    switch (static_cast<int>(type)) {
        case 4: return GraphTexts::kKind4;
        case 7: return GraphTexts::kKind7;
        case 8: return GraphTexts::kKind8;
        case 9: return GraphTexts::kKind9;
        case 10: return GraphTexts::kKind10;
        case 12: return GraphTexts::kKind12;
        case 25: return GraphTexts::kKind25;
        case 29: return GraphTexts::kKind29;
        case 30: return GraphTexts::kKind30;
        case 33: return GraphTexts::kKind33;
        case 58: return GraphTexts::kKind58;
        case 60: return GraphTexts::kKind60;
        case 71: return GraphTexts::kKind71;
        case 95: return GraphTexts::kKind95;
        case 121: return kind121Graph();
        case 130: return GraphTexts::kKind130;
        default: return "";  // 46 (FaceAttribute) has an encoder but no graph, on purpose
    }
}

std::string CoverUtil::getDefaultModels() { return GraphTexts::kDefaultModels; }

std::string VantorGraph::gradingGraph() { return GraphTexts::kGradingGraph; }

std::string VantorGraph::recognitionGraph() { return GraphTexts::kRecognitionGraph; }

}  // namespace VQFeature
